#include "instrument/NativeWrapping.h"

#include "classfile/ByteCodeGenerator.h"
#include "classfile/OpCodes.h"
#include "core/ground/Options.h"

namespace {

enum Match { EQUALS, BEGINS };

struct NativeRow {
    Match match;
    const char* name;
    const char* reason;
};

const NativeRow NATIVE_CLASSES[] = {
    {EQUALS, "java/lang/Object", "an added method changes the method table of arrays"},
    {BEGINS, "java/lang/ClassLoader", "natives are looked up through it"},
    {BEGINS, "java/lang/Throwable", "stack traces are taken apart by depth"},
    {BEGINS, "sun/reflect/", "caller-sensitive by depth"},
    {EQUALS, "java/lang/Class", "natives are looked up through it"},
    {EQUALS, "java/lang/SecurityManager", "caller-sensitive by depth"},
    {EQUALS, "java/security/AccessController", "caller-sensitive by depth"},
    {EQUALS, "sun/misc/Unsafe", "intrinsics"},
    {EQUALS, "java/util/ResourceBundle", "caller-sensitive by depth"},
};

// What JVMs of today bind by name, depth or intrinsic.
const NativeRow MODERN_NATIVE_CLASSES[] = {
    {BEGINS, "jdk/internal/loader/", "looking up a native ends in a native of these"},
    {BEGINS, "jdk/internal/vm/", "a wrapped continuation hangs its virtual thread"},
    {BEGINS, "jdk/internal/reflect/", "getCallerClass checks that it is frame 0 itself"},
    {BEGINS, "jdk/internal/misc/", "Unsafe, VM, CDS, Signal: used while the JVM starts"},
    {EQUALS, "java/lang/System", "used while the JVM starts"},
    {EQUALS, "java/lang/Runtime", "used while the JVM starts"},
    {EQUALS, "java/lang/Thread", "thread identity"},
    {EQUALS, "java/lang/VirtualThread", "mounting counts its frames"},
    {BEGINS, "java/lang/StackStreamFactory", "walks the stack"},
    {BEGINS, "java/lang/StackTraceElement", "fills stack traces"},
    {EQUALS, "java/lang/invoke/MethodHandleNatives", "linkage"},
    {EQUALS, "java/lang/invoke/MethodHandle", "signature-polymorphic linker intrinsics"},
    {EQUALS, "java/lang/invoke/VarHandle", "signature-polymorphic linker intrinsics"},
    {EQUALS, "java/lang/ref/Reference", "called by the reference handler at any time"},
    {EQUALS, "java/lang/ref/Finalizer", "called by the finalizer at any time"},
    {EQUALS, "jdk/internal/util/SystemProps$Raw", "used while the JVM starts"},
};

// Libraries that bind every native method which reflection shows, by its plain name, instead of
// leaving it to the JVM: they would look for the renamed ones too. A class that uses them names
// something of theirs.
const char* const NATIVE_BINDERS[] = {"com/sun/jna/", "org/bridj/"};

// Often above classes with natives, and not serializable.
const char* const NEVER_SERIALIZABLE[] = {
    "java/lang/Object",        "java/lang/Thread",    "java/lang/ClassLoader",
    "java/lang/Runnable",      "java/lang/Iterable",  "java/lang/Comparable",
    "java/lang/AutoCloseable", "java/lang/Cloneable", "java/util/concurrent/Callable",
    "java/util/Iterator",      "java/io/Closeable",
};

// The JIT replaces it, and the JVM complains about a method that has lost or wrongly kept it.
const char INTRINSIC_ANNOTATION[] = "Ljdk/internal/vm/annotation/IntrinsicCandidate;";

template <int N>
const char* reasonIn(const NativeRow (&rows)[N], const Utf8View& className) {
    for (const NativeRow& row : rows) {
        if (row.match == EQUALS ? className == row.name : className.startsWith(row.name)) {
            return row.reason;
        }
    }
    return nullptr;
}

void logSkippedNative(MethodInfo* method, InstrumentationCounts* counts) {
    Logger::assertNotNULL(method, VDK_HERE);
    if (counts != nullptr) {
        counts->leftNatives++;
    }
    if (Options::isDebug("classes")) {
        Logger::detail(ZString("-n ") + method->getName().toString());
    }
}

// Names the rest of a descriptor from the character that is no type.
[[noreturn]] void failDescriptor(const Utf8View& descriptor, const Utf8View& at) {
    const long known = at.getBytes() - descriptor.getBytes();
    const Utf8View rest(at.getBytes(), descriptor.getLength() - static_cast<int>(known));
    Logger::error(ZString("Invalid descriptor: ") + rest.toString(), VDK_HERE);
}

// Pushes the arguments; gives the number of slots that they take.
int loadArguments(ByteCodeGenerator& generator, const MethodInfo* method) {
    int slot = 0;
    if (!method->isStatic()) {
        generator.aload(0);
        slot = 1;
    }
    for (DescriptorTypes types(method->getDescriptor()); types.next();) {
        switch (types.getType().charAt(0)) {
        case 'B':
        case 'C':
        case 'I':
        case 'S':
        case 'Z':
            generator.iload(slot);
            break;
        case 'F':
            generator.load(OPC_FLOAD_0, OPC_FLOAD, slot);
            break;
        case 'D':
            generator.load(OPC_DLOAD_0, OPC_DLOAD, slot);
            break;
        case 'J':
            generator.load(OPC_LLOAD_0, OPC_LLOAD, slot);
            break;
        case 'L':
        case '[':
            generator.aload(slot);
            break;
        default:
            failDescriptor(method->getDescriptor(), types.getType());
        }
        slot += types.getSlots();
    }
    return slot;
}

int returnOpcode(const Utf8View& descriptor) {
    switch (DescriptorTypes::returnType(descriptor).charAt(0)) {
    case 'V':
        return OPC_RETURN;
    case 'L':
    case '[':
        return OPC_ARETURN;
    case 'D':
        return OPC_DRETURN;
    case 'J':
        return OPC_LRETURN;
    case 'F':
        return OPC_FRETURN;
    default:
        return OPC_IRETURN;
    }
}

// The new native is private, so that a subclass's wrapped native of the same name can't take its
// calls, and neither reflection nor serialization sees it. The wrapper keeps the monitor.
int nativeFlags(const MethodInfo* method) {
    return (method->getAccessFlags() &
            ~(ACC_PUBLIC | ACC_PROTECTED | ACC_FINAL | ACC_SYNCHRONIZED | ACC_VARARGS)) |
           ACC_PRIVATE | ACC_SYNTHETIC;
}

// Whether the class uses a library that looks for natives by reflection.
bool namesBinder(ClassFile* classFile) {
    const ConstantPool& pool = classFile->getConstantPool();
    for (int i = 1; i < pool.getSize(); i++) {
        const ConstantPool::Content entry = pool.getContent(i);
        if (entry.tag != CONSTANT_UTF8) {
            continue;
        }
        for (const char* const binder : NATIVE_BINDERS) {
            if (entry.text.contains(binder)) {
                return true;
            }
        }
    }
    return false;
}

bool isNeverSerializable(const Utf8View& name, const NativeSelection& selection) {
    for (const char* const known : NEVER_SERIALIZABLE) {
        if (name == known) {
            return true;
        }
    }
    return selection.isNeverSerializable(name);
}

// Of those of the JDK that have natives which are not private, the ones that are serializable name
// the interface or have a version of their own.
bool isOfJdk(const Utf8View& className) {
    return className.startsWith("java/") || className.startsWith("javax/") ||
           className.startsWith("jdk/") || className.startsWith("sun/") ||
           className.startsWith("com/sun/");
}

bool maySerialize(ClassFile* classFile, const NativeSelection& selection) {
    if (classFile->hasDirectInterface("java/io/Serializable") ||
        classFile->hasDirectInterface("java/io/Externalizable")) {
        return true;
    }
    if (isOfJdk(classFile->getSignature())) {
        return false;
    }
    if (!isNeverSerializable(classFile->getSuperClassSignature(), selection)) {
        return true;
    }
    const ConstantPool& pool = classFile->getConstantPool();
    for (int i = 0; i < classFile->getInterfaceCount(); i++) {
        if (!isNeverSerializable(pool.getClassName(classFile->getInterface(i)), selection)) {
            return true;
        }
    }
    return false;
}

// Whether serialization may compute the version of the class from its methods, in which the native
// flag of every method but the private ones counts: streams between JVMs with and without the agent
// would no longer fit.
bool mayHaveDefaultSerialVersion(ClassFile* classFile, const NativeSelection& selection) {
    ArenaVector<FieldInfo*>& fields = classFile->getFields();
    for (int i = 0; i < fields.getSize(); i++) {
        if (classFile->getConstantPool().getUtf8(fields[i]->getNameIndex()) == "serialVersionUID") {
            return false;
        }
    }
    return maySerialize(classFile, selection);
}

// What the bytes of the class tell, and the classes above it.
class Rules {
public:
    Rules(ClassFile* classFile, const NativeSelection& selection)
        : left(reasonToLeaveNatives(classFile->getSignature()) != nullptr ||
               namesBinder(classFile)),
          onlyPrivate(!left && mayHaveDefaultSerialVersion(classFile, selection)) {}
    bool admit(MethodInfo* method, const char* prefix) const {
        return !left && (!onlyPrivate || method->isPrivate()) &&
               method->getName() != "registerNatives" && !method->getName().startsWith(prefix) &&
               !method->hasAnnotation(INTRINSIC_ANNOTATION);
    }

private:
    const bool left;
    const bool onlyPrivate;
};

void instrumentNativeMethod(ClassFile* classFile, MethodInfo* method, const char* prefix) {
    Logger::assertNotNULL(method, VDK_HERE);
    Logger::assertTrue(method->getCodeAttribute() == nullptr, VDK_HERE);
    const ZString newName = ZString(prefix) + method->getName().toString();
    const Utf8View name(newName.c_str(), newName.getLength());
    const Utf8View descriptor = method->getDescriptor();
    classFile->findOrCreateMethod(name, descriptor, nativeFlags(method));
    const int thisClass = classFile->findOrCreateConstantClass(
        classFile->findOrCreateUtf8(classFile->getSignature()));
    const int reference = classFile->findOrCreateMethodRef(
        thisClass, classFile->findOrCreateUtf8(name), classFile->findOrCreateUtf8(descriptor));
    ByteCodeGenerator generator;
    const int argumentSlots = loadArguments(generator, method);
    generator.push(method->isStatic() ? OPC_INVOKESTATIC : OPC_INVOKESPECIAL);
    generator.pushShortValue(reference);
    generator.push(returnOpcode(descriptor));
    const int resultSlots = DescriptorTypes::returnSlots(descriptor);
    method->makeNotNative();
    classFile->findOrCreateUtf8(CodeAttribute::NAME);
    CodeAttribute* const attribute = method->createCodeAttribute();
    attribute->incMaxStackCount(argumentSlots > resultSlots ? argumentSlots : resultSlots);
    attribute->incMaxLocalsCount(argumentSlots);
    attribute->parseStackMapTable(classFile, method);
    generator.installInto(attribute);
}

} // namespace

const char* reasonToLeaveNatives(const Utf8View& className) {
    const char* const reason = reasonIn(NATIVE_CLASSES, className);
    return reason != nullptr ? reason : reasonIn(MODERN_NATIVE_CLASSES, className);
}

bool wrapNativeMethods(ClassFile* classFile, const char* prefix, const NativeSelection& selection,
                       InstrumentationCounts* counts) {
    const int count = classFile->getMethods().getSize();
    bool anyNative = false;
    for (int i = 0; i < count && !anyNative; i++) {
        anyNative = classFile->getMethods()[i]->isNative();
    }
    if (!anyNative) {
        return false;
    }
    const Rules rules(classFile, selection);
    bool changed = false;
    for (int i = 0; i < count; i++) {
        MethodInfo* const method = classFile->getMethods()[i];
        Logger::assertNotNULL(method, VDK_HERE);
        if (!method->isNative()) {
            continue;
        }
        const bool wanted =
            selection.isRedefinition() ? selection.wasWrapped(method) : rules.admit(method, prefix);
        if (!wanted) {
            logSkippedNative(method, counts);
            continue;
        }
        if (Options::isDebug("classes")) {
            Logger::detail(ZString("N ") + method->getName().toString());
        }
        changed = true;
        if (counts != nullptr) {
            counts->wrappedNatives++;
        }
        instrumentNativeMethod(classFile, method, prefix);
    }
    return changed;
}
