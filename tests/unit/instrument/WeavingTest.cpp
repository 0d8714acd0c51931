#include "support/ClassBuilder.h"
#include "support/ClassBundle.h"
#include "support/ParsedClass.h"
#include "support/ReferenceClass.h"
#include "support/WeaveClasses.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <set>

namespace {

using B = ClassBuilder;
using Weaving = QuietTest;

const char OBJECT[] = "Ljava/lang/Object;";
const char STRING[] = "Ljava/lang/String;";

// Every kind that the callback may have; `more` in front, `last` is the type of @This.
ProbeCallback everything(const std::string& more, std::vector<CallbackParameter> first,
                         const std::string& self, const std::string& result) {
    first.insert(first.end(),
                 {kind(CALLBACK_THIS), kind(CALLBACK_PARAMS), parameter(1), parameter(2),
                  parameter(9), kind(CALLBACK_METHOD_NAME), kind(CALLBACK_METHOD_SIGNATURE),
                  kind(CALLBACK_METHOD_PARAMETER_TYPES), kind(CALLBACK_CLASS_REF)});
    return {"(" + more + self + "[" + OBJECT + OBJECT + "JI" + STRING + STRING + STRING +
                "Ljava/lang/Class;)" + result,
            first};
}

// The result of onEnter and a value as Object.
ProbeCallback atExit(CallbackParameterKind value, const std::string& type, const std::string& self,
                     const std::string& result) {
    return everything("J" + type, {kind(CALLBACK_ON_ENTER_RESULT), kind(value)}, self, result);
}

std::vector<std::unique_ptr<ProbeDescriptor>> probesOfEveryKind() {
    const std::string throwable = "Ljava/lang/Throwable;";
    std::vector<std::unique_ptr<ProbeDescriptor>> probes;
    for (const bool isTested : {false, true}) {
        const std::string self = isTested ? "Ljava/lang/Runnable;" : OBJECT;
        ProbeOutline outline;
        outline.instanceOf = isTested ? "java/lang/Runnable" : "";
        outline.enter = everything("", {}, self, "J");
        outline.exit = atExit(CALLBACK_RETURN_VALUE, OBJECT, self, "V");
        outline.thrown = atExit(CALLBACK_THROWN_EXCEPTION, throwable, self, "V");
        probes.push_back(makeProbe(outline));
        for (const char* const type : {"I", "J", OBJECT}) {
            outline.replaced = type;
            outline.swallows = true;
            outline.exit = atExit(CALLBACK_RETURN_VALUE, OBJECT, self, type);
            outline.thrown = atExit(CALLBACK_THROWN_EXCEPTION, throwable, self, type);
            probes.push_back(makeProbe(outline));
        }
    }
    return probes;
}

const char LINKER_SOURCE[] = R"(
import java.io.*;
import java.net.*;
import java.nio.file.*;
import java.util.*;
public class Linker {
    public static void main(String[] args) throws Exception {
        ClassLoader jars = new URLClassLoader(new URL[] {new File(args[0]).toURI().toURL()}, null);
        ClassLoader modules = ClassLoader.getSystemClassLoader();
        try (PrintWriter out = new PrintWriter(args[2])) {
            for (String name : Files.readAllLines(Path.of(args[1]))) {
                boolean inJar = name.startsWith("+");
                String end = "ok";
                try {
                    Class.forName(inJar ? name.substring(1) : name, false, inJar ? jars : modules)
                        .getDeclaredConstructors();
                } catch (NoClassDefFoundError e) {
                    end = ("" + e.getMessage()).contains("p/Probe") ? e.toString() : "missing";
                } catch (Throwable e) {
                    end = e.toString();
                }
                out.println(name + " " + end);
            }
        }
    }
}
)";

std::string dottedName(const std::string& path) {
    std::string name = path.substr(0, path.size() - 6);
    for (char& c : name) {
        c = c == '/' ? '.' : c;
    }
    return name;
}

// Where a class of a bundle belongs: the module, empty for a jar, and the path in it.
struct Place {
    std::string module;
    std::string path;
    bool isBase() const { return module == "java.base"; }
    bool isInfo() const {
        return path.find("module-info") != std::string::npos ||
               path.find("META-INF/") != std::string::npos;
    }
    std::string folder(const std::string& root) const {
        return root + (module.empty() ? "/jars/" : "/modules/" + module + "/");
    }
};

Place placeOf(const std::string& name) {
    const std::string modules = "/modules/";
    if (name.compare(0, modules.size(), modules) != 0) {
        return {"", name.substr(name.find('!') + 1)};
    }
    const size_t slash = name.find('/', modules.size());
    return {name.substr(modules.size(), slash - modules.size()), name.substr(slash + 1)};
}

void writeClass(const std::string& folder, const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(folder + path).parent_path());
    writeBinaryFile(folder + path, bytes);
}

std::string bytesOf(const NamedClass& one) {
    return {reinterpret_cast<const char*>(one.bytes), static_cast<size_t>(one.length)};
}

// Classes of jars in the first run.
constexpr int PLAIN = 50;
// One class in so many, where one JDK has been looked at as a whole.
constexpr size_t SOME = 8;

// What is found in the bytes is found without the sanitizers; a part of the classes is enough to
// see what weaving does to memory.
#if defined(VDK_SANITIZED)
constexpr bool IS_SANITIZED = true;
#else
constexpr bool IS_SANITIZED = false;
#endif

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        lines.push_back(text.substr(at, end - at));
        at = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

// Names of the classes that ran in a JVM with this log.
std::set<std::string> initialized(const std::string& log) {
    std::set<std::string> names;
    for (const std::string& line : linesOf(log)) {
        const size_t at = line.find("Initializing '");
        if (at != std::string::npos) {
            const size_t start = at + 14;
            names.insert(line.substr(start, line.find('\'', start) - start) + ".class");
        }
    }
    return names;
}

// All classes of a JDK and of jars, woven and then linked by this JDK.
class WovenJdk {
public:
    // isWhole: all classes of its modules; else those of the base module, and some of the others.
    WovenJdk(const std::string& home, const std::vector<std::string>& jars, bool isWhole)
        : jdk(home), step(isWhole ? 1 : SOME), folder(makeTemporaryDirectory()),
          bundle(extractClasses(home, sources(jars))),
          linker(compileJava(home, "Linker", LINKER_SOURCE)) {
        std::filesystem::create_directories(folder + "/jars");
        listClasses();
    }

    // isNewest: in the base module all probes upon each other, else one beside the first.
    void weave(const std::vector<std::unique_ptr<ProbeDescriptor>>& probes, bool isNewest) {
        std::set<std::string> running;
        if (!IS_SANITIZED) {
            running = initialized(run("-Xlog:class+init=info", "some"));
            ASSERT_GT(running.size(), 300u);
        }
        RecordingHost host;
        std::set<std::string> taken;
        for (const NamedClass& one : bundle.classes()) {
            const Place place = placeOf(one.name);
            if (place.isInfo() || !taken.insert(place.path).second ||
                !isChosen(place, taken.size()) ||
                (place.isBase() && running.count(place.path) > 0)) {
                continue;
            }
            // The first takes every method and has all kinds.
            const bool takesMore = place.isBase() || one.name.find("/asm-all") != std::string::npos;
            std::vector<const ProbeDescriptor*> list;
            for (size_t i = 0; i < probes.size(); i++) {
                if (i == 0 || (takesMore && (isNewest || i == taken.size() % probes.size()))) {
                    list.push_back(probes[i].get());
                }
            }
            DataInput input(one.bytes, one.length);
            ClassFile classFile(input);
            const bool isWoven = weaveClass(classFile, list, &counts, &host) &&
                                 classFile.getConstantPool().getSize() < 65000;
            classes += isWoven ? 1 : 0;
            if (isWoven || place.module.empty()) {
                writeClass(place.folder(folder), place.path,
                           isWoven ? writtenClass(classFile) : bytesOf(one));
            }
        }
    }

    void link() {
        run("", "names");
        int faults = 0;
        int linked = 0;
        for (const std::string& line : linesOf(readBinaryFile(folder + "/results"))) {
            const bool isFault = line.find("Error", line.find(' ')) != std::string::npos;
            linked += line.size() > 3 && line.compare(line.size() - 3, 3, " ok") == 0 ? 1 : 0;
            if (isFault && ++faults < 10) {
                ADD_FAILURE() << line;
            }
        }
        const int methods = counts.methods[METHOD_OUTCOME_INSTRUMENTED];
        EXPECT_EQ(faults, 0);
        EXPECT_GT(linked, classes * 9 / 10);
        EXPECT_GT(methods, step == 1 ? 200000 : 100000);
        printf(
            "woven: %s, %zu modules: %d classes, probes in methods: %d, of three callbacks each; "
            "%d classes linked, %d verification errors\n",
            jdk.c_str(), modules.size(), classes, methods, linked, faults);
    }

private:
    static std::vector<std::string> sources(const std::vector<std::string>& jars) {
        std::vector<std::string> all = {"jrt"};
        all.insert(all.end(), jars.begin(), jars.end());
        return all;
    }

    // The names of all, and of some that are enough for all that linking makes run. What stays as
    // it is: reading a patched module and a folder of classes takes code that has to run.
    void listClasses() {
        std::string names;
        std::string some;
        std::set<std::string> taken;
        int fromJars = 0;
        for (const NamedClass& one : bundle.classes()) {
            const Place place = placeOf(one.name);
            if (place.isInfo() || !taken.insert(place.path).second) {
                continue;
            }
            // Patches of each loader, read in the first run already.
            const bool isPlain =
                place.module.empty() ? fromJars++ < PLAIN : modules.insert(place.module).second;
            const std::string name =
                (place.module.empty() ? "+" : "") + dottedName(place.path) + "\n";
            names += isChosen(place, taken.size()) ? name : "";
            some += isPlain || taken.size() % 40 == 0 ? name : "";
            if (isPlain) {
                writeClass(place.folder(folder), place.path, bytesOf(one));
            }
        }
        writeBinaryFile(folder + "/names", names);
        writeBinaryFile(folder + "/some", some);
    }

    bool isChosen(const Place& place, size_t number) const {
        return IS_SANITIZED ? number % SOME == 0
                            : place.isBase() || place.module.empty() || number % step == 0;
    }

    std::string run(const std::string& options, const std::string& which) {
        std::string command = jdk +
                              "/bin/java -Xmx1g -XX:+UseSerialGC -XX:TieredStopAtLevel=1 "
                              "-XX:+UnlockDiagnosticVMOptions -XX:-PrintWarnings "
                              "-XX:+BytecodeVerificationLocal -XX:+BytecodeVerificationRemote "
                              "--add-modules ALL-SYSTEM ";
        for (const std::string& module : modules) {
            const std::string patch = folder + "/modules/" + module;
            if (std::filesystem::exists(patch)) {
                command += "--patch-module " + module + "=" + patch + " ";
            }
        }
        std::string printed;
        EXPECT_EQ(runCommand(command + options + " -cp " + linker + " Linker " + folder +
                                 "/jars/ " + folder + "/" + which + " " + folder + "/results",
                             &printed),
                  0)
            << printed.substr(0, 3000);
        return printed;
    }

    const std::string jdk;
    const size_t step;
    const std::string folder;
    const ClassBundle bundle;
    const std::string linker;
    std::set<std::string> modules;
    InstrumentationCounts counts = {};
    int classes = 0;
};

// The jars of a test run: all that are named, or else those that the tests need anyway.
std::vector<std::string> chosenJars(bool isFirstJdk) {
    std::vector<std::string> jars;
    for (const std::string& jar : findSystemJars()) {
        const std::string name = jar.substr(jar.rfind('/') + 1);
        const bool isWanted =
            name.rfind("asm-all", 0) == 0 ||
            (isFirstJdk && (name.rfind("groovy-all", 0) == 0 || name.rfind("clojure", 0) == 0 ||
                            name.rfind("h2-", 0) == 0 || name.rfind("jna", 0) == 0 ||
                            name.rfind("junit4", 0) == 0 || name.rfind("tomcat10", 0) == 0));
        if (isWanted || getenv("VDK_LINK_JARS") != nullptr) {
            jars.push_back(jar);
        }
    }
    return jars;
}

} // namespace

// Every method of all modules of the newest JDK, of the base modules of the others and of jars with
// probes of every kind, in a JVM that verifies all classes; in the base module also such as replace
// values, one upon the other. What runs while the JVM starts stays as it is.
TEST_F(Weaving, everyMethodWovenWithEveryKindIsVerified) {
    const std::vector<std::unique_ptr<ProbeDescriptor>> probes = probesOfEveryKind();
    const std::vector<std::string> jdks = findJdks();
    for (const std::string& jdk : jdks) {
        const bool isNewest = jdk == jdks.back();
        WovenJdk woven(jdk, chosenJars(jdk == jdks.front()),
                       isNewest || getenv("VDK_LINK_JARS") != nullptr);
        woven.weave(probes, isNewest);
        if (!IS_SANITIZED) {
            woven.link();
        }
    }
}

namespace {

const char WOVEN_SOURCE[] = R"(
import java.util.function.*;
public class Woven {
    static class Base {
        final String text;
        Base(Object other) { text = other == null ? "none" : "one"; }
    }
    static class Nested extends Base implements Runnable {
        Nested(Nested other, int count) {
            super(count > 0 ? new Nested(other, count - 1) : other);
            count += 10;
            p.Probe.log(text + count);
        }
        public void run() {}
        public String testedNever(int i) { String s = "n" + i; if (i > 0) { return s; } return "z"; }
    }
    static class Sub extends Nested {
        Sub() { super(null, 0); }
        String caughtThrows() { throw new Error("sub"); }
        String testedReturns(Object o) {
            for (Object text = o; text != null;) { o = text + "!"; break; }
            int number = o.hashCode();
            try { if (number == 7) { return null; } return "" + o; } finally { number++; }
        }
    }
    static class Other extends java.util.ArrayList<String> {
        String caughtThrows() { throw new Error("other"); }
        String testedReturns(Object o) { return "other" + o; }
    }
    interface Shape { default int replacedArea(int a) { return privately(a); }
        private int privately(int a) { return a * a; } static long replacedNot(int a) { return a; } }
    record Point(int x, int y) implements Shape {}
    enum Color { RED { int replacedValue() { return 1; } }; abstract int replacedValue(); }
    static int reassigned(int a, long b) { a = a + 1; b = b * 2; if (a > 100) throw new IllegalStateException("a" + a); return (int) (a + b); }
    static double wide(double a, long b, float c, boolean d, byte e, char f, short g, int[] h) { d = !d; return a + b + c + h.length; }
    static String switches(int i) {
        switch (i) { case 1: return "one"; case 2: i = 5; break; case 1000: return "many"; default: throw new RuntimeException("x"); }
        switch (i) { case 5: return "five"; case 50000: return "?"; }
        return "end";
    }
    static int replacedThrows(int i) { if (i < 0) throw new Error("minus"); return i; }
    static int loops() { int i = 0; do { i++; } while (i < 3); return i; }
    static synchronized int nested(Object lock) {
        try { synchronized (lock) { try { return lock.hashCode(); } catch (IllegalStateException e) { return 1; } } }
        catch (NullPointerException e) { return 2; } finally { lock = null; }
    }
    static <T extends Throwable> void sneak() throws T { throw (T) new Exception("sneaky"); }
    static void run(Runnable r) { try { r.run(); } catch (Throwable t) { p.Probe.log("caught " + t.getMessage()); } }
    static void early() {
        try {
            Class<?> type = Class.forName("Early");
            for (int i = 3; i >= -1; i -= 4) {
                int count = i;
                run(() -> {
                    try { type.getConstructor(int.class).newInstance(count); }
                    catch (ReflectiveOperationException e) { p.Probe.log("" + e.getCause()); }
                });
            }
        } catch (ClassNotFoundException e) { }
    }
    public static void main(String[] args) {
        run(() -> new Sub());
        run(() -> new Nested(null, 1));
        run(() -> reassigned(1, 2));
        run(() -> reassigned(100, 2));
        run(() -> wide(1, 2, 3, true, (byte) 4, 'f', (short) 5, new int[6]));
        for (int i : new int[] {1, 2, 3}) run(() -> switches(i));
        run(() -> p.Probe.log(replacedThrows(-1) + " " + replacedThrows(1)));
        run(() -> p.Probe.log("" + loops() + nested(null)));
        run(() -> p.Probe.log(new Sub().testedReturns("a") + new Other().testedReturns("b") + new Nested(null, 0).testedNever(1)));
        run(() -> p.Probe.log("" + new Point(3, 4).replacedArea(3) + Shape.replacedNot(4) + Color.RED.replacedValue()));
        run(() -> Woven.<RuntimeException>sneak());
        run(() -> p.Probe.log(new Sub().caughtThrows()));
        run(() -> new Other().caughtThrows());
        run(() -> early());
        System.out.print(p.Probe.all);
    }
}
)";

const char PROBE_SOURCE[] = R"(
package p;
import java.util.Arrays;
public class Probe {
    public static StringBuilder all = new StringBuilder();
    static long calls;
    public static void log(String text) { all.append(text).append(System.lineSeparator()); }
    static String arguments(Object[] all) {
        Object[] shown = all.clone();
        for (int i = 0; i < shown.length; i++) {
            Object one = shown[i];
            boolean plain = one == null || one instanceof Number || one instanceof Boolean ||
                one instanceof Character || one instanceof String;
            shown[i] = plain ? one : one.getClass().getSimpleName();
        }
        return Arrays.toString(shown);
    }
    static String what(Object self, Object[] all, Object first, long second, int none, String name,
                       String signature, String types, Class<?> owner) {
        if (all.length > 0 && first != all[0] && !first.equals(all[0]) || none != 0 ||
            !(owner.getName() + signature).contains("(")) throw new AssertionError();
        return owner.getSimpleName() + "." + name + types + " " + (self == null ? "static " : "") +
            second + arguments(all);
    }
    public static long onEnter(Object self, Object[] all, Object first, long second, int none,
                               String name, String signature, String types, Class<?> owner) {
        log("> " + what(self, all, first, second, none, name, signature, types, owner));
        return ++calls;
    }
    public static void onReturn(long call, Object value, Object self, Object[] all, Object first,
                                long second, int none, String name, String signature, String types,
                                Class<?> owner) {
        log("< " + call + " " + arguments(new Object[] {value}) + " " +
            what(self, all, first, second, none, name, signature, types, owner));
    }
    public static void onUncaughtException(long call, Throwable t, Object self, Object[] all,
                                           Object first, long second, int none, String name,
                                           String signature, String types, Class<?> owner) {
        log("! " + call + " " + t.getMessage() + " " +
            what(self, all, first, second, none, name, signature, types, owner));
    }
    public static class Replacing {
        public static int onReturn(Object value) { return (Integer) value + 100; }
        public static int onUncaughtExceptionExt(Throwable t) {
            log("swallowed " + t.getMessage());
            return 1000;
        }
    }
    public static class Caught {
        public static String onUncaughtExceptionExt(Throwable t) { return "saved from " + t.getMessage(); }
    }
    public static class Tested {
        public static String onEnter(Runnable self, Object first) {
            log("tested > " + first);
            return "T" + first;
        }
        public static void onReturn(String result, Runnable self, Object value, Object first) {
            log("tested < " + result + " " + value + " " + first);
        }
        public static void onUncaughtException(Runnable self, String result) {}
    }
}
)";

} // namespace

namespace {

// Code of a constructor ahead of its super call; of class files from 25 on.
const char EARLY_SOURCE[] = R"(
public class Early extends Woven.Base {
    final int x;
    public Early(int n) {
        if (n < 0) throw new IllegalArgumentException("negative");
        int y = n * 2;
        String text = "early" + y;
        try { y = Integer.parseInt("" + text); } catch (NumberFormatException e) { y++; }
        x = y;
        super(new Early(text).text);
        while (n > 0) { n--; }
        p.Probe.log(text + y + this.text + n);
    }
    private Early(String s) { x = 0; super(s); }
}
)";

ProbeOutline ofAllKinds(const char* methods) {
    ProbeOutline outline;
    outline.methods = methods;
    outline.enter = everything("", {}, OBJECT, "J");
    outline.exit = atExit(CALLBACK_RETURN_VALUE, OBJECT, OBJECT, "V");
    outline.thrown = atExit(CALLBACK_THROWN_EXCEPTION, "Ljava/lang/Throwable;", OBJECT, "V");
    return outline;
}

// The probes of PROBE_SOURCE; those of all kinds first.
std::vector<std::unique_ptr<ProbeDescriptor>> probesOfTheProgram() {
    std::vector<std::unique_ptr<ProbeDescriptor>> probes;
    for (const char* const methods :
         {"<init>", "reassigned", "wide", "switches", "nested", "loops", "sneak", "replaced*"}) {
        probes.push_back(makeProbe(ofAllKinds(methods)));
    }
    ProbeOutline replacing;
    replacing.probeClass = "p/Probe$Replacing";
    replacing.methods = "replaced*";
    replacing.replaced = "I";
    replacing.swallows = true;
    replacing.exit = {std::string("(") + OBJECT + ")I", {kind(CALLBACK_RETURN_VALUE)}};
    replacing.thrown = {"(Ljava/lang/Throwable;)I", {kind(CALLBACK_THROWN_EXCEPTION)}};
    probes.push_back(makeProbe(replacing));
    const std::string self = "Ljava/lang/Runnable;";
    ProbeOutline tested;
    tested.probeClass = "p/Probe$Tested";
    tested.methods = "tested*";
    tested.instanceOf = "java/lang/Runnable";
    tested.enter = {"(" + self + OBJECT + ")" + STRING, {kind(CALLBACK_THIS), parameter(1)}};
    tested.exit = {"(" + std::string(STRING) + self + OBJECT + OBJECT + ")V",
                   {kind(CALLBACK_ON_ENTER_RESULT), kind(CALLBACK_THIS),
                    kind(CALLBACK_RETURN_VALUE), parameter(1)}};
    tested.thrown = {"(" + self + STRING + ")V",
                     {kind(CALLBACK_THIS), kind(CALLBACK_ON_ENTER_RESULT)}};
    probes.push_back(makeProbe(tested));
    ProbeOutline caught;
    caught.probeClass = "p/Probe$Caught";
    caught.methods = "caught*";
    caught.instanceOf = "java/lang/Runnable";
    caught.replaced = STRING;
    caught.swallows = true;
    caught.thrown = {std::string("(Ljava/lang/Throwable;)") + STRING,
                     {kind(CALLBACK_THROWN_EXCEPTION)}};
    probes.push_back(makeProbe(caught));
    return probes;
}

const char EXPECTED[] = R"(> Base.<init>(java.lang.Object) 0[null]
< 1 [null] Base.<init>(java.lang.Object) 0[null]
> Nested.<init>(Woven$Nested, int) 0[null, 0]
none10
< 2 [null] Nested.<init>(Woven$Nested, int) 0[null, 0]
> Sub.<init>() 0[]
< 3 [null] Sub.<init>() 0[]
> Base.<init>(java.lang.Object) 0[null]
< 4 [null] Base.<init>(java.lang.Object) 0[null]
> Nested.<init>(Woven$Nested, int) 0[null, 0]
none10
< 5 [null] Nested.<init>(Woven$Nested, int) 0[null, 0]
> Base.<init>(java.lang.Object) 0[Nested]
< 6 [null] Base.<init>(java.lang.Object) 0[Nested]
> Nested.<init>(Woven$Nested, int) 0[null, 1]
one11
< 7 [null] Nested.<init>(Woven$Nested, int) 0[null, 1]
> Woven.reassigned(int, long) static 2[1, 2]
< 8 [6] Woven.reassigned(int, long) static 2[1, 2]
> Woven.reassigned(int, long) static 2[100, 2]
! 9 a101 Woven.reassigned(int, long) static 2[100, 2]
caught a101
> Woven.wide(double, long, float, boolean, byte, char, short, int[]) static 2[1.0, 2, 3.0, true, 4, f, 5, int[]]
< 10 [12.0] Woven.wide(double, long, float, boolean, byte, char, short, int[]) static 2[1.0, 2, 3.0, true, 4, f, 5, int[]]
> Woven.switches(int) static 0[1]
< 11 [one] Woven.switches(int) static 0[1]
> Woven.switches(int) static 0[2]
< 12 [five] Woven.switches(int) static 0[2]
> Woven.switches(int) static 0[3]
! 13 x Woven.switches(int) static 0[3]
caught x
> Woven.replacedThrows(int) static 0[-1]
! 14 minus Woven.replacedThrows(int) static 0[-1]
swallowed minus
> Woven.replacedThrows(int) static 0[1]
< 15 [1] Woven.replacedThrows(int) static 0[1]
1000 101
> Woven.loops() static 0[]
< 16 [3] Woven.loops() static 0[]
> Woven.nested(java.lang.Object) static 0[null]
< 17 [2] Woven.nested(java.lang.Object) static 0[null]
32
> Base.<init>(java.lang.Object) 0[null]
< 18 [null] Base.<init>(java.lang.Object) 0[null]
> Nested.<init>(Woven$Nested, int) 0[null, 0]
none10
< 19 [null] Nested.<init>(Woven$Nested, int) 0[null, 0]
> Sub.<init>() 0[]
< 20 [null] Sub.<init>() 0[]
tested > a
tested < Ta a! a
> Other.<init>() 0[]
< 21 [null] Other.<init>() 0[]
> Base.<init>(java.lang.Object) 0[null]
< 22 [null] Base.<init>(java.lang.Object) 0[null]
> Nested.<init>(Woven$Nested, int) 0[null, 0]
none10
< 23 [null] Nested.<init>(Woven$Nested, int) 0[null, 0]
tested > 1
tested < T1 n1 1
a!otherbn1
> Point.<init>(int, int) 0[3, 4]
< 24 [null] Point.<init>(int, int) 0[3, 4]
> Shape.replacedArea(int) 0[3]
< 25 [9] Shape.replacedArea(int) 0[3]
> Shape.replacedNot(int) static 0[4]
< 26 [4] Shape.replacedNot(int) static 0[4]
> Color.<init>(java.lang.String, int) 0[RED, 0]
< 27 [null] Color.<init>(java.lang.String, int) 0[RED, 0]
> .<init>(java.lang.String, int) 0[RED, 0]
< 28 [null] .<init>(java.lang.String, int) 0[RED, 0]
> .replacedValue() 0[]
< 29 [1] .replacedValue() 0[]
1094101
> Woven.sneak() static 0[]
! 30 sneaky Woven.sneak() static 0[]
caught sneaky
> Base.<init>(java.lang.Object) 0[null]
< 31 [null] Base.<init>(java.lang.Object) 0[null]
> Nested.<init>(Woven$Nested, int) 0[null, 0]
none10
< 32 [null] Nested.<init>(Woven$Nested, int) 0[null, 0]
> Sub.<init>() 0[]
< 33 [null] Sub.<init>() 0[]
saved from sub
> Other.<init>() 0[]
< 34 [null] Other.<init>() 0[]
caught other
)";

const char EXPECTED_EARLY[] = R"(> Base.<init>(java.lang.Object) 0[early6]
< 35 [null] Base.<init>(java.lang.Object) 0[early6]
> Early.<init>(java.lang.String) 0[early6]
< 36 [null] Early.<init>(java.lang.String) 0[early6]
> Base.<init>(java.lang.Object) 0[one]
< 37 [null] Base.<init>(java.lang.Object) 0[one]
> Early.<init>(int) 0[3]
early67one0
< 38 [null] Early.<init>(int) 0[3]
java.lang.IllegalArgumentException: negative
)";

} // namespace

// What callbacks see and change: constructors, reassigned parameters, switches, values of all
// types, tests at run time, interfaces, records and enums. The program is compiled by each JDK.
TEST_F(Weaving, callbacksSeeWhatTheMethodsDo) {
    const auto probes = probesOfTheProgram();
    std::vector<const ProbeDescriptor*> list;
    for (const auto& probe : probes) {
        list.push_back(probe.get());
    }
    for (const std::string& jdk : findJdks()) {
        const bool hasEarly = jdk == findJdk("25");
        const std::string probe = compileJava(jdk, "Probe", PROBE_SOURCE);
        const std::string folder = compileJava(jdk, "Woven", WOVEN_SOURCE, "-g -cp " + probe);
        std::string output;
        if (hasEarly) {
            const std::string early =
                compileJava(jdk, "Early", EARLY_SOURCE, "-g -cp " + probe + ":" + folder);
            writeBinaryFile(folder + "/Early.class", readBinaryFile(early + "/Early.class"));
        }
        ASSERT_EQ(runCommand("cd " + folder + " && ls *.class", &output), 0);
        for (const std::string& name : linesOf(output)) {
            ParsedClass parsed(readBinaryFile(folder + "/" + name));
            RecordingHost host;
            InstrumentationCounts counts = {};
            weaveClass(parsed.classFile, list, &counts, &host);
            EXPECT_EQ(counts.methods[METHOD_OUTCOME_UNKNOWN_TYPES], 0) << name;
            writeBinaryFile(folder + "/" + name, parsed.write());
        }
        output.clear();
        EXPECT_EQ(runCommand(jdk + "/bin/java -Xverify:all -XX:-PrintWarnings -cp " + folder + ":" +
                                 probe + " Woven",
                             &output),
                  0);
        EXPECT_EQ(output, std::string(EXPECTED) + (hasEarly ? EXPECTED_EARLY : "")) << jdk;
    }
}
