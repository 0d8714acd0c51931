#include "instrument/ProbeChanges.h"

#include "core/ground/Exceptions.h"
#include "core/ground/Globals.h"
#include "core/ground/Logger.h"
#include "core/ground/UptimeProvider.h"
#include "core/ground/WildcardMatch.h"
#include "core/jvm/JNIUtils.h"
#include "instrument/ClassBatches.h"
#include "instrument/LoaderReach.h"
#include "instrument/ProbeGuard.h"
#include "instrument/ProbeReach.h"
#include "instrument/Retransformation.h"
#include "probes/Probes.h"

namespace {

const char TREE_CLASS[] = "com/vandrik/runtime/ClassTree";
const char READY_CLASS[] = "com/vandrik/probes/builtin/ReadyClasses";
const char BUILT_IN_PREFIX[] = "com/vandrik/probes/builtin/";

// Changes that classes follow at this moment, and what was loaded since the first of them began:
// such classes were woven with the list as it is. ourLock.
int ourChangesUnderWay = 0;
NameBits<1U << 17>& ourLoadedMeanwhile = *new NameBits<1U << 17>();

// The names of the methods of a loaded class, asked of the JVM when somebody wants to know.
class MethodNames {
public:
    explicit MethodNames(jclass loaded) : type(loaded) {}

    // True if the JVM does not tell.
    bool hasMatch(const ZString& pattern) {
        if (!isRead) {
            read();
        }
        for (int i = 0; i < names.getSize() && isKnown; i++) {
            if (wildcardMatch(pattern.c_str(), names[i].c_str())) {
                return true;
            }
        }
        return !isKnown;
    }

private:
    void read() {
        isRead = true;
        jint count = 0;
        JvmtiMemory<jmethodID> methods;
        isKnown = ourJVMTI->GetClassMethods(type, &count, methods.receive()) == JVMTI_ERROR_NONE;
        for (jint i = 0; i < count && isKnown; i++) {
            JvmtiMemory<char> name;
            isKnown = ourJVMTI->GetMethodName(methods.get()[i], name.receive(), nullptr, nullptr) ==
                      JVMTI_ERROR_NONE;
            if (isKnown) {
                names.push(name.get());
            }
        }
    }

    jclass type;
    bool isRead = false;
    bool isKnown = true;
    ZVectorSafe<ZString> names;
};

// What has to be known of a probe that was added, replaced or removed, while others may change it
// further.
struct ChangedProbe {
    explicit ChangedProbe(const ProbeDescriptor& descriptor)
        : serial(descriptor.serial), isAdded(descriptor.status == PROBE_ADDED),
          probeClass(descriptor.probeClass), instanceOfClass(descriptor.instanceOfClass),
          woven(descriptor.woven), isWoven(!woven.isEmpty()) {
        for (int i = 0; i < descriptor.getPatternCount(); i++) {
            classPatterns.push(descriptor.classPatterns[i]);
            methodPatterns.push(descriptor.methodPatterns[i]);
        }
        instanceOfClass.replaceAll('/', '.');
    }

    bool accepts(const ZString& dotted, MethodNames& methods) const {
        for (int i = 0; i < classPatterns.getSize(); i++) {
            if (Probes::isProbeApplicable(dotted, classPatterns[i]) &&
                methods.hasMatch(methodPatterns[i])) {
                return true;
            }
        }
        return false;
    }

    const long serial;
    const bool isAdded;
    const ZString probeClass;
    ZString instanceOfClass; // dotted
    // What it is about the instances of is loaded. Otherwise no loaded class is one.
    bool hasInstances = false;
    ZVectorSafe<ZString> classPatterns;
    ZVectorSafe<ZString> methodPatterns;
    const NameBits<1U << 14> woven;
    const bool isWoven; // into any class
};

// The Java object that knows which classes are below which. A Java exception in it is an internal
// error.
class Tree {
public:
    explicit Tree(JNIEnv* javaEnv) : env(javaEnv) {
        type = env->FindClass(TREE_CLASS);
        check();
        jmethodID constructor = env->GetMethodID(type, "<init>", "()V");
        check();
        addClass = env->GetMethodID(type, "addClass", "(Ljava/lang/Class;)V");
        check();
        isInstanceOf =
            env->GetMethodID(type, "isInstanceOf", "(Ljava/lang/Class;Ljava/lang/String;)Z");
        check();
        tree = env->NewObject(type, constructor);
        check();
        eachLoadedClass(env, [&](jclass loaded) {
            jint status = 0;
            // The JVM does not tell what is above a class that is not prepared.
            if (ourJVMTI->GetClassStatus(loaded, &status) == JVMTI_ERROR_NONE &&
                (status & JVMTI_CLASS_STATUS_PREPARED) != 0) {
                env->CallVoidMethod(tree, addClass, loaded);
                check();
            }
            return false;
        });
    }
    ~Tree() {
        env->DeleteLocalRef(tree);
        env->DeleteLocalRef(type);
    }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    bool isInstance(jclass loaded, const ZString& name) {
        jstring javaName = toJavaString(env, name);
        check();
        const jboolean answer = env->CallBooleanMethod(tree, isInstanceOf, loaded, javaName);
        check();
        env->DeleteLocalRef(javaName);
        return answer == JNI_TRUE;
    }

private:
    void check() const {
        if (logPendingException(env, TREE_CLASS)) {
            throw VDKRuntimeException();
        }
    }

    JNIEnv* env;
    jclass type = nullptr;
    jobject tree = nullptr;
    jmethodID addClass = nullptr;
    jmethodID isInstanceOf = nullptr;
};

// Ahead of the first callback of the agent's own probes: what they keep may need more stack to be
// made than is left where that comes.
void initializeBuiltInProbes(JNIEnv* env) {
    ZVectorSafe<ZString> names;
    {
        LockHolder lock(ourLock);
        Probes::getTopProbeClasses(names, false);
    }
    if (names.isEmpty()) {
        return;
    }
    jclass type = env->FindClass(READY_CLASS);
    const jmethodID method =
        type == nullptr ? nullptr
                        : env->GetStaticMethodID(type, "initialize", "(Ljava/lang/String;)V");
    for (int i = 0; i < names.getSize() && method != nullptr; i++) {
        jstring name = toJavaString(env, names[i]);
        env->CallStaticVoidMethod(type, method, name);
        logPendingException(env, READY_CLASS);
        env->DeleteLocalRef(name);
    }
    logPendingException(env, READY_CLASS);
    env->DeleteLocalRef(type);
}

class ProbeChanges {
public:
    explicit ProbeChanges(JNIEnv* javaEnv) : env(javaEnv) {
        LockHolder lock(ourLock);
        if (ourChangesUnderWay == 0) {
            ourLoadedMeanwhile.clear();
        }
        ourChangesUnderWay++;
        for (int i = 0; i < Probes::ourProbeDescriptors.getSize(); i++) {
            const ProbeDescriptor& descriptor = *Probes::ourProbeDescriptors[i];
            if (descriptor.status != PROBE_IN_FORCE) {
                changed.push(new ChangedProbe(descriptor));
                serials.push(descriptor.serial);
            }
        }
    }
    ~ProbeChanges() {
        {
            LockHolder lock(ourLock);
            ourChangesUnderWay--;
        }
        delete tree;
        for (int i = 0; i < changed.getSize(); i++) {
            delete changed[i];
        }
    }
    ProbeChanges(const ProbeChanges&) = delete;
    ProbeChanges& operator=(const ProbeChanges&) = delete;

    bool isEmpty() const { return changed.isEmpty(); }

    // A class whose definition was under way while the list changed may show up only when the
    // others are done.
    void follow(const char* reason) {
        const long start = getTimeNs();
        needTree();
        ClassList classes(env);
        const ZString lines = collect(classes, false);
        log(classes.getSize(), reason, lines);
        {
            LockHolder lock(ourLock);
            Probes::settle(serials);
        }
        initializeBuiltInProbes(env);
        retransform(classes);
        ClassList late(env);
        const ZString lateLines = collect(late, true);
        if (late.getSize() > 0) {
            log(late.getSize(), reason, lateLines);
            retransform(late);
        }
        Logger::detail(ZString("probes: classes followed in ") +
                       longToString((getTimeNs() - start) / 1000000) + " ms");
    }

private:
    // At the start of a JVM nothing is loaded yet that most probes are about.
    void needTree() {
        eachLoadedClass(env, [&](jclass type) {
            const ZString name = dottedNameOf(type);
            for (int i = 0; i < changed.getSize(); i++) {
                ChangedProbe& probe = *changed[i];
                if (probe.isAdded && !name.isEmpty() && probe.instanceOfClass == name) {
                    probe.hasInstances = true;
                }
            }
            return false;
        });
        for (int i = 0; i < changed.getSize() && tree == nullptr; i++) {
            if (changed[i]->hasInstances) {
                rememberLoadedClasses(env);
                tree = new Tree(env);
            }
        }
    }

    // The probe for whose sake the class is to be retransformed, or null. What carries calls of a
    // probe follows its change in any case; for an added one all follow that it may apply to, and
    // its own class, whose callbacks are guarded.
    const ChangedProbe* causeFor(jclass type, const ZString& internal, const ZString& dotted) {
        MethodNames methods(type);
        for (int i = 0; i < changed.getSize(); i++) {
            const ChangedProbe& probe = *changed[i];
            const bool isItself = probe.probeClass == internal;
            if ((probe.isWoven && probe.woven.mayHave(internal)) || (probe.isAdded && isItself)) {
                return &probe;
            }
            const bool isForAll = probe.instanceOfClass.isEmpty();
            if (probe.isAdded && (isForAll || probe.hasInstances) &&
                probe.accepts(dotted, methods) &&
                (isForAll || tree->isInstance(type, probe.instanceOfClass))) {
                return &probe;
            }
        }
        return nullptr;
    }

    // Gives the lines for the log.
    ZString collect(ClassList& classes, bool isLate) {
        ZString lines;
        const RewritableClasses rewritable(env);
        eachLoadedClass(env, [&](jclass type) {
            const ZString internal = internalNameOf(type);
            if (internal.isEmpty() || (isLate && isDone(internal))) {
                return false;
            }
            ZString dotted = internal;
            dotted.replaceAll('/', '.');
            const ChangedProbe* const cause = causeFor(type, internal, dotted);
            if (cause == nullptr || !rewritable.has(type)) {
                return false;
            }
            classes.push(type);
            if (!isLate) {
                collected.add(internal);
            }
            addLine(lines, dotted, *cause);
            return true;
        });
        return lines;
    }

    bool isDone(const ZString& internal) const {
        LockHolder lock(ourLock);
        return collected.mayHave(internal) || ourLoadedMeanwhile.mayHave(internal);
    }

    static void addLine(ZString& lines, const ZString& dotted, const ChangedProbe& cause) {
        ZString probe = cause.probeClass;
        if (probe.startsWith(BUILT_IN_PREFIX)) {
            probe = probe.substring(static_cast<int>(sizeof BUILT_IN_PREFIX) - 1);
        }
        probe.replaceAll('/', '.');
        lines.append("\n  ");
        lines.append(dotted);
        lines.append(" <<< ");
        lines.append(probe);
    }

    static void log(int count, const char* reason, const ZString& lines) {
        Logger::message(ZString("Classes to retransform: ") + longToString(count) + " (" + reason +
                        ")" + lines);
    }

    static void retransform(ClassList& classes) {
        if (classes.getSize() == 0) {
            return;
        }
        classes.retransformInBatches();
        const ZString failure = classes.getFailure();
        Logger::message(failure.isEmpty() ? ZString("Class retransform completed")
                                          : ZString("Class retransform failed: ") + failure);
    }

    JNIEnv* env;
    ZVector<ChangedProbe*> changed;
    ZVector<long> serials;
    Tree* tree = nullptr;
    NameBits<1U << 17> collected;
};

} // namespace

void noteLoadedWhileProbesChange(const ZString& name) {
    if (ourChangesUnderWay > 0) {
        ourLoadedMeanwhile.add(name);
    }
}

void prepareProbes(JNIEnv* env) {
    prepareProbeGuard(env);
    rememberSystemLoader(env);
    if (Probes::areThere()) {
        rememberLoadedClasses(env);
    }
}

void retransformClassesForChangedProbes(JNIEnv* env, const char* reason) {
    ProbeChanges changes(env);
    if (changes.isEmpty()) {
        initializeBuiltInProbes(env); // those of the start are in force already
    } else {
        changes.follow(reason);
    }
}
