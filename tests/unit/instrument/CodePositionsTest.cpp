#include "classfile/OpCodes.h"
#include "support/ClassBundle.h"
#include "support/ParsedClass.h"
#include "support/ReferenceClass.h"
#include "support/RewriteClasses.h"

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <set>

// Rewritten classes are compared with their originals: old and new code are walked side by side,
// and every position that an attribute, a handler, a frame or a branch holds must lie where its
// instruction went. All that is not code must be the same.

namespace {

// What the compiler makes of it has positions in every table there is.
const char SOURCE[] = R"(
import java.lang.annotation.*;
import java.util.*;
import java.util.function.*;
public class Positions<T extends Comparable<T>> {
    @Target(ElementType.TYPE_USE) @Retention(RetentionPolicy.RUNTIME) @interface Seen {
        String[] value() default {}; int number() default 0; }
    @Target(ElementType.TYPE_USE) @Retention(RetentionPolicy.CLASS) @interface Hidden { }
    record Pair<A>(A left, @Seen A right) { }
    sealed interface Shape permits Circle { }
    record Circle(double radius) implements Shape { }
    T best;
    Object all(List<? extends T> list, int selector, Object other) throws Exception {
        @Seen({"a", "b"}) List<@Hidden T> copy = new @Seen ArrayList<@Hidden T>(list);
        for (@Hidden T each : copy) {
            @Seen(number = 3) T previous = best;
            best = previous == null ? each : (@Seen @Hidden T) each;
        }
        switch (selector) {
            case 1: return new int[] {selector, new int[2][3].length};
            case 2: return (@Hidden Object) new @Hidden String("x" + selector);
            case 3: case 5: break;
            default: if (selector > 9) { throw new @Seen IllegalStateException("nine"); }
        }
        try (@Seen AutoCloseable closed = new java.io.StringReader(selector > 4 ? "y" : "z")) {
            Function<Object, @Seen String> text = @Seen String::valueOf;
            Supplier<@Hidden ArrayList<T>> maker = @Hidden ArrayList<T>::new;
            return other instanceof @Seen String s ? text.apply(s)
                 : other instanceof Pair<?> ? maker.get() : new Pair<>(closed, selector);
        } catch (@Hidden IllegalArgumentException | @Seen ClassCastException e) {
            return Collections.<@Seen Object>emptyList();
        } finally {
            best = null;
        }
    }
}
)";

int shortAt(const std::string& code, int at) {
    return static_cast<unsigned char>(code[static_cast<size_t>(at)]) << 8 |
           static_cast<unsigned char>(code[static_cast<size_t>(at) + 1]);
}

std::string shortText(int value) {
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

// Where each instruction of one method went.
class Positions {
public:
    Positions(const ReferenceMethod& before, const std::string& after,
              const ReferenceClass& rewritten)
        : oldCode(before.code), code(after), type(rewritten), map(oldCode.size() + 1, -1),
          own(oldCode.size(), -1), n(0) {
        std::set<int> heads;
        for (const ReferenceHandler& handler : before.handlers) {
            heads.insert(handler.handler);
        }
        const unsigned char* const bytes = reinterpret_cast<const unsigned char*>(oldCode.data());
        const int length = static_cast<int>(oldCode.size());
        hasSwitch = false;
        for (int i = 0; i < length; i = nextInstruction(bytes, length, i)) {
            hasSwitch |= bytes[i] == OPC_TABLESWITCH || bytes[i] == OPC_LOOKUPSWITCH;
        }
        skipPrefix();
        for (int i = 0; i < length;) {
            const int opcode = bytes[i];
            const int next = nextInstruction(bytes, length, i);
            map[static_cast<size_t>(i)] = n;
            const bool isCaught = heads.count(i) > 0 && skipCall();
            if (isReturnOpcode(opcode)) {
                EXPECT_TRUE(skipCall() || isCaught || !isTraced) << i;
            }
            own[static_cast<size_t>(i)] = n;
            if (!holdsBranch(opcode)) {
                const size_t count = static_cast<size_t>(next - i);
                EXPECT_EQ(code.compare(static_cast<size_t>(n), count, oldCode,
                                       static_cast<size_t>(i), count),
                          0)
                    << i;
            }
            n += next - i;
            skipAllocation(opcode, next);
            i = next;
        }
        map[oldCode.size()] = n;
        EXPECT_EQ(n, static_cast<int>(code.size()));
        for (int i = 0; i < length; i = nextInstruction(bytes, length, i)) {
            checkBranches(i, bytes[i]);
        }
    }
    // The new place of what stands at an old one; an exit call stands ahead of its return, and one
    // of a handler ahead of the handler's first instruction.
    int at(int position) const { return map.at(static_cast<size_t>(position)); }
    // Behind such calls.
    int instruction(int position) const { return own.at(static_cast<size_t>(position)); }

private:
    static bool holdsBranch(int opcode) {
        const int kind = ourOpCodes[opcode].kind;
        return kind == OPK_CONDITIONAL || kind == OPK_GOTO || kind == OPK_JSR ||
               kind == OPK_TABLESWITCH || kind == OPK_LOOKUPSWITCH;
    }
    int byte(int position) const {
        return position < static_cast<int>(code.size())
                   ? static_cast<unsigned char>(code[static_cast<size_t>(position)])
                   : -1;
    }
    bool nops(int from, int count) const {
        for (int i = 0; i < count; i++) {
            if (byte(from + i) != OPC_NOP) {
                return false;
            }
        }
        return true;
    }
    bool callsCallback(int position) const {
        if (byte(position) != OPC_INVOKESTATIC) {
            return false;
        }
        const std::string& entry = type.pool.at(static_cast<size_t>(shortAt(code, position + 1)));
        return entry[0] == 10 &&
               type.className(shortAt(entry, 1)) == "com/vandrik/runtime/Callback";
    }
    bool skipCall() {
        if (byte(n) != OPC_SIPUSH || byte(n + 3) != OPC_SIPUSH || !callsCallback(n + 6)) {
            return false;
        }
        n += hasSwitch ? 12 : 9;
        return true;
    }
    void skipPrefix() {
        const bool variable = byte(0) == OPC_ICONST_M1 && byte(1) == OPC_WIDE;
        n = variable ? 5 : 0;
        // Methods that box a value have the calls at allocations alone.
        isTraced = !(variable && nops(5, 3));
        EXPECT_TRUE(skipCall() || !isTraced);
        n = !isTraced ? 8 : hasSwitch ? 16 : n;
    }
    void skipAllocation(int opcode, int next) {
        if (opcode == OPC_NEW) {
            const bool same =
                oldCode.compare(static_cast<size_t>(next), 4, code, static_cast<size_t>(n), 4) == 0;
            n += !same && (byte(n) == OPC_DUP || byte(n) == OPC_NOP) && nops(n + 1, 3) ? 4 : 0;
        } else if (opcode == OPC_INVOKESPECIAL || opcode == OPC_NEWARRAY ||
                   opcode == OPC_ANEWARRAY || opcode == OPC_MULTIANEWARRAY) {
            const bool call = (byte(n) == OPC_DUP || byte(n) == OPC_NOP) &&
                              byte(n + 1) == OPC_WIDE && callsCallback(n + 5);
            n += call || nops(n, 12) ? 12 : 0;
        }
    }
    int value(const std::string& text, int from, bool isShort) const {
        const int high = shortAt(text, from);
        return isShort ? static_cast<short>(high) : high << 16 | shortAt(text, from + 2);
    }
    void checkBranch(int instruction, int operand, bool isShort) const {
        const int moved = own[static_cast<size_t>(instruction)];
        const int target = instruction + value(oldCode, operand, isShort);
        EXPECT_EQ(moved + value(code, moved + operand - instruction, isShort), at(target))
            << instruction;
    }
    void checkBranches(int i, int opcode) const {
        if (!holdsBranch(opcode)) {
            return;
        }
        if (opcode != OPC_TABLESWITCH && opcode != OPC_LOOKUPSWITCH) {
            checkBranch(i, i + 1, true);
            return;
        }
        const int operands = (i + 4) & ~3;
        checkBranch(i, operands, false);
        const bool table = opcode == OPC_TABLESWITCH;
        const int low = value(oldCode, operands + 4, false);
        const int count = table ? value(oldCode, operands + 8, false) - low + 1 : low;
        for (int k = 0; k < count; k++) {
            checkBranch(i, operands + 12 + k * (table ? 4 : 8), false);
        }
    }

    const std::string& oldCode;
    const std::string& code;
    const ReferenceClass& type;
    std::vector<int> map;
    std::vector<int> own;
    int n;
    bool hasSwitch;
    bool isTraced = true;
};

// Copies a type annotations attribute, each position moved.
class AnnotationMover {
public:
    AnnotationMover(const std::string& body, const Positions& newPositions)
        : in(body), positions(newPositions) {
        for (int count = keep(2); count > 0; count--) {
            const int target = keep(1);
            if (target == 0x40 || target == 0x41) {
                for (int ranges = keep(2); ranges > 0; ranges--) {
                    const int start = in.u2();
                    const int end = start + in.u2();
                    text += shortText(positions.at(start));
                    text += shortText(positions.at(end) - positions.at(start));
                    keep(2);
                }
            } else if (target >= 0x43) {
                text += shortText(positions.at(in.u2()));
                keep(target >= 0x47 ? 1 : 0);
            } else {
                keep(target == 0x42 ? 2 : 0);
            }
            for (int steps = keep(1); steps > 0; steps--) {
                keep(2);
            }
            keep(2);
            elements();
        }
        EXPECT_TRUE(in.atEnd());
    }
    std::string text;

private:
    int keep(int bytes) {
        int value = 0;
        for (int i = 0; i < bytes; i++) {
            const int one = in.u1();
            value = value << 8 | one;
            text += static_cast<char>(one);
        }
        return value;
    }
    void elements() {
        for (int pairs = keep(2); pairs > 0; pairs--) {
            keep(2);
            element();
        }
    }
    void element() {
        const int tag = keep(1);
        if (tag == '[') {
            for (int count = keep(2); count > 0; count--) {
                element();
            }
        } else if (tag == '@') {
            keep(2);
            elements();
        } else {
            keep(tag == 'e' ? 4 : 2);
        }
    }
    ReferenceReader in;
    const Positions& positions;
};

std::string movedLines(const std::string& body, const Positions& positions) {
    std::string text = body;
    for (size_t at = 2; at < body.size(); at += 4) {
        text.replace(at, 2, shortText(positions.at(shortAt(body, static_cast<int>(at)))));
    }
    return text;
}

// A parameter is visible from the first instruction on, which now is the entry call.
std::string movedVariables(const std::string& body, const Positions& positions) {
    std::string text = body;
    for (size_t at = 2; at < body.size(); at += 10) {
        const int start = shortAt(body, static_cast<int>(at));
        const int end = positions.at(start + shortAt(body, static_cast<int>(at) + 2));
        const int moved = start == 0 ? 0 : positions.at(start);
        text.replace(at, 4, shortText(moved) + shortText(end - moved));
    }
    return text;
}

std::vector<std::string> movedTypes(const std::vector<std::string>& types,
                                    const Positions& positions) {
    std::vector<std::string> moved;
    for (const std::string& type : types) {
        moved.push_back(type.compare(0, 4, "new ") == 0
                            ? "new " +
                                  std::to_string(positions.instruction(std::stoi(type.substr(4))))
                            : type);
    }
    return moved;
}

// Numbers of what was compared.
struct Compared {
    long methods = 0;
    long frames = 0;
    long lines = 0;
    long variables = 0;
    long annotations = 0;
    long handlers = 0;
    long caught = 0; // of these, with a call at the head
};

void compareFrames(const ReferenceClass& before, const ReferenceMethod& m,
                   const ReferenceClass& after, const ReferenceMethod& n,
                   const Positions& positions, Compared* compared) {
    const std::vector<ReferenceFrame> old = before.frames(m);
    const std::vector<ReferenceFrame> now = after.frames(n);
    ASSERT_EQ(old.size(), now.size());
    for (size_t i = 1; i < old.size(); i++) {
        EXPECT_EQ(now[i].offset, positions.at(old[i].offset));
        std::vector<std::string> locals = movedTypes(old[i].locals, positions);
        if (n.maxLocals > m.maxLocals) {
            int slots = 0;
            for (const std::string& local : locals) {
                slots += local == "long" || local == "double" ? 2 : 1;
            }
            locals.resize(locals.size() + static_cast<size_t>(m.maxLocals - slots), "top");
            locals.push_back("int");
        }
        EXPECT_EQ(now[i].locals, locals);
        // A dup of ours may lie beside an object under construction.
        std::vector<std::string> stack = movedTypes(old[i].stack, positions);
        for (size_t k = 0; k < now[i].stack.size() && now[i].stack != stack; k++) {
            if (k == stack.size() || now[i].stack[k] != stack[k]) {
                ASSERT_EQ(now[i].stack[k].compare(0, 4, "new "), 0);
                stack.insert(stack.begin() + static_cast<long>(k), now[i].stack[k]);
            }
        }
        EXPECT_EQ(now[i].stack, stack);
        compared->frames++;
    }
}

void compareMethod(const ReferenceClass& before, const ReferenceMethod& m,
                   const ReferenceClass& after, const ReferenceMethod& n, Compared* compared) {
    const Positions positions(m, n.code, after);
    ASSERT_EQ(m.handlers.size(), n.handlers.size());
    for (size_t i = 0; i < m.handlers.size(); i++) {
        const ReferenceHandler& handler = m.handlers[i];
        // A range that begins with its own handler doesn't cover the call.
        const bool isOwn = handler.start == handler.handler;
        EXPECT_EQ(n.handlers[i].start,
                  isOwn ? positions.instruction(handler.start) : positions.at(handler.start));
        EXPECT_EQ(n.handlers[i].end, positions.at(handler.end));
        EXPECT_EQ(n.handlers[i].handler, positions.at(handler.handler));
        EXPECT_EQ(n.handlers[i].type, handler.type);
        compared->handlers++;
        const bool isCaught = positions.instruction(handler.handler) > n.handlers[i].handler;
        compared->caught += isCaught ? 1 : 0;
    }
    size_t next = 0;
    for (const ReferenceAttribute& attribute : m.codeAttributes) {
        if (attribute.first == "StackMapTable" || attribute.first == "StackMap") {
            continue;
        }
        while (n.codeAttributes.at(next).first == "StackMapTable") {
            next++;
        }
        const ReferenceAttribute& now = n.codeAttributes.at(next++);
        EXPECT_EQ(now.first, attribute.first);
        if (attribute.first == "LineNumberTable") {
            EXPECT_EQ(now.second, movedLines(attribute.second, positions));
            compared->lines += shortAt(attribute.second, 0);
        } else if (attribute.first.compare(0, 13, "LocalVariable") == 0) {
            EXPECT_EQ(now.second, movedVariables(attribute.second, positions));
            compared->variables += shortAt(attribute.second, 0);
        } else {
            EXPECT_EQ(now.second, AnnotationMover(attribute.second, positions).text);
            compared->annotations += shortAt(attribute.second, 0);
        }
    }
    compareFrames(before, m, after, n, positions, compared);
    compared->methods++;
}

void compareClass(const ReferenceClass& before, const ReferenceClass& after, Compared* compared) {
    EXPECT_TRUE(before.pool.size() <= after.pool.size() &&
                std::equal(before.pool.begin(), before.pool.end(), after.pool.begin()));
    EXPECT_EQ(before.major, after.major);
    EXPECT_EQ(before.minor, after.minor);
    EXPECT_EQ(before.flags, after.flags);
    EXPECT_EQ(before.interfaces, after.interfaces);
    EXPECT_TRUE(before.attributes == after.attributes);
    ASSERT_EQ(before.fields.size(), after.fields.size());
    for (size_t i = 0; i < before.fields.size(); i++) {
        EXPECT_TRUE(before.fields[i].attributes == after.fields[i].attributes);
    }
    ASSERT_EQ(before.methods.size(), after.methods.size());
    for (size_t i = 0; i < before.methods.size() && !testing::Test::HasFailure(); i++) {
        const ReferenceMethod& m = before.methods[i];
        const ReferenceMethod& n = after.methods[i];
        EXPECT_EQ(m.flags, n.flags);
        EXPECT_EQ(m.name + m.descriptor, n.name + n.descriptor);
        EXPECT_TRUE(m.attributes == n.attributes);
        if (m.code == n.code) {
            EXPECT_TRUE(m.codeAttributes == n.codeAttributes && m.handlers == n.handlers);
        } else {
            compareMethod(before, m, after, n, compared);
        }
        EXPECT_FALSE(testing::Test::HasFailure()) << m.name << m.descriptor;
    }
}

void compareAll(const ClassBundle& bundle, Compared* compared) {
    CountingIds ids;
    for (const NamedClass& entry : bundle.classes()) {
        const std::string bytes =
            rewriteClass(entry.bytes, entry.length, true, true, &ids, nullptr);
        if (!bytes.empty()) {
            compareClass(ReferenceClass(entry.bytes, static_cast<size_t>(entry.length)),
                         ReferenceClass(bytes.data(), bytes.size()), compared);
        }
        ASSERT_FALSE(testing::Test::HasFailure()) << entry.name;
    }
}

std::string newestJdk() {
    const std::string jdk = findJdk("25");
    return jdk.empty() ? findJdks().front() : jdk;
}

class CodePositions : public QuietTest {
protected:
    void print(const char* label) const {
        printf("%s: %ld methods, %ld frames, %ld lines, %ld variables, %ld type annotations, %ld "
               "handlers, %ld with calls\n",
               label, compared.methods, compared.frames, compared.lines, compared.variables,
               compared.annotations, compared.handlers, compared.caught);
    }
    Compared compared;
};

} // namespace

TEST_F(CodePositions, everyTableOfACompiledClassFollowsItsCode) {
    const std::string jdk = newestJdk();
    const std::string directory = compileJava(jdk, "Positions", SOURCE, "-g");
    std::string output;
    const std::string jar = directory + "/p.jar";
    ASSERT_EQ(runCommand(jdk + "/bin/jar cf " + jar + " -C " + directory + " .", &output), 0)
        << output;
    compareAll(ClassBundle(extractClasses(jdk, {jar})), &compared);
    print("compiled");
    EXPECT_GT(compared.variables, 10);
    EXPECT_GT(compared.annotations, 10);
    EXPECT_GT(compared.handlers, 2);
}

TEST_F(CodePositions, everythingOfAJdksClassesFollowsTheirCode) {
    compareAll(ClassBundle(extractClasses(newestJdk(), {"jrt:java.base"})), &compared);
    print("java.base");
    EXPECT_GT(compared.frames, 10000);
    EXPECT_GT(compared.caught, compared.handlers / 2);
}

TEST_F(CodePositions, everythingOfJarsFollowsTheirCode) {
    std::vector<std::string> jars;
    for (const std::string& jar : findSystemJars()) {
        if (getenv("VDK_LINK_JARS") != nullptr || jar.find("/asm-") != std::string::npos) {
            jars.push_back(jar);
        }
    }
    if (jars.empty()) {
        GTEST_SKIP() << "no jars installed";
    }
    compareAll(ClassBundle(extractClasses(findJdks().front(), jars)), &compared);
    print("jars");
}
