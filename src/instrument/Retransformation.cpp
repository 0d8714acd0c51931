#include "instrument/Retransformation.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/ground/ZVector.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/NativeEntry.h"
#include "db/DB.h"
#include "instrument/Instrumentation.h"
#include "instrument/LoaderDelegation.h"
#include "instrument/LoaderReach.h"
#include "instrument/WantedCalls.h"
#include "probes/Filter.h"

namespace {

constexpr long WAITING_TAG = 1;
// Classes that are rewritten at once for a switch. The JVM walks over all its classes in each
// batch, and stands still for as long.
constexpr int SWITCH_BATCH = 200;

// A switch of calls is rewriting classes.
std::atomic<bool> ourIsSwitching{false};

// The dotted name of a class; empty for arrays and when the JVM does not tell.
ZString dottedNameOf(jclass type) {
    ZString name = internalNameOf(type);
    name.replaceAll('/', '.');
    return name;
}

// Not a class whose static initialiser failed: that one runs no method, and would fail the batch
// that it is in.
bool isModifiable(jclass type) {
    jboolean modifiable = JNI_FALSE;
    jint status = 0;
    return ourJVMTI->GetClassStatus(type, &status) == JVMTI_ERROR_NONE &&
           (status & JVMTI_CLASS_STATUS_ERROR) == 0 &&
           ourJVMTI->IsModifiableClass(type, &modifiable) == JVMTI_ERROR_NONE &&
           modifiable == JNI_TRUE;
}

// An interface all of whose methods are abstract. One that is not linked does not tell.
bool hasNoBodies(jclass type) {
    jboolean isInterface = JNI_FALSE;
    jint count = 0;
    JvmtiMemory<jmethodID> methods;
    if (ourJVMTI->IsInterface(type, &isInterface) != JVMTI_ERROR_NONE || isInterface == JNI_FALSE ||
        ourJVMTI->GetClassMethods(type, &count, methods.receive()) != JVMTI_ERROR_NONE) {
        return false;
    }
    for (jint i = 0; i < count; i++) {
        jint modifiers = 0;
        if (ourJVMTI->GetMethodModifiers(methods.get()[i], &modifiers) != JVMTI_ERROR_NONE ||
            (modifiers & ACC_ABSTRACT) == 0) {
            return false;
        }
    }
    return true;
}

// The JVM hands every redefined subclass of its event class to the flight recorder, which starts
// parts of it, or prints an error where a small image lacks it. Null where there is no such class.
jclass findEventClass(JNIEnv* env) {
    jclass type = env->FindClass("jdk/internal/event/Event");
    if (type == nullptr) {
        env->ExceptionClear();
    }
    return type;
}

// A class that the hook would rewrite. eventClass may be null.
bool mayRewrite(JNIEnv* env, jclass type, jclass eventClass) {
    const ZString name = internalNameOf(type);
    if (name.isEmpty() || name.startsWith("jdk/internal/event/") || isAgentClass(name)) {
        return false;
    }
    return isModifiable(type) && !hasNoBodies(type) &&
           (eventClass == nullptr || env->IsAssignableFrom(type, eventClass) == JNI_FALSE);
}

// Calls visit(class) for every loaded class and releases the references for which it gives false.
template <typename Visitor>
void eachLoadedClass(JNIEnv* env, Visitor&& visit) {
    jint count = 0;
    JvmtiMemory<jclass> classes;
    CHECK_JVMTI(ourJVMTI->GetLoadedClasses(&count, classes.receive()));
    for (jint i = 0; i < count; i++) {
        if (!visit(classes.get()[i])) {
            env->DeleteLocalRef(classes.get()[i]);
        }
    }
}

// One failing class fails a batch, and each call walks all classes of the JVM: a batch that failed
// is halved until what fails stands alone. Gives the number done.
int retransform(jclass* classes, int count) {
    if (count == 0) {
        return 0;
    }
    const jvmtiError error = ourJVMTI->RetransformClasses(count, classes);
    if (error == JVMTI_ERROR_NONE) {
        return count;
    }
    if (count == 1) {
        LockHolder lock(ourLock);
        distrustLoaderClass(internalNameOf(classes[0]));
        Logger::message(ZString("Retransforming failed: ") + dottedNameOf(classes[0]) + ": " +
                        longToString(error));
        return 0;
    }
    Logger::message(ZString("Retransforming ") + longToString(count) +
                    " classes at once failed: " + longToString(error));
    const int half = count / 2;
    const int done = retransform(classes, half);
    return done + retransform(classes + half, count - half);
}

int retransform(ZVector<jclass>& classes) {
    return retransform(classes.data(), classes.getSize());
}

void release(JNIEnv* env, ZVector<jclass>& classes) {
    for (int i = 0; i < classes.getSize(); i++) {
        env->DeleteLocalRef(classes[i]);
    }
}

void logClassesToRetransform(ZVectorSafe<ZString>& names) {
    names.sort();
    ZString text("Classes to retransform: ");
    text.appendLong(names.getSize());
    text.append(" (loaded before agent attached)");
    for (int i = 0; i < names.getSize(); i++) {
        text.append("\n  ");
        text.append(names[i]);
    }
    Logger::message(text);
}

// JVMTI memory with a class in it, given back at the end of the block.
struct RewrittenBytes {
    ~RewrittenBytes() {
        if (data != nullptr) {
            ourJVMTI->Deallocate(data);
        }
    }
    unsigned char* data = nullptr;
    jint length = 0;
};

jbyteArray retransformClassImpl(JNIEnv* env, jstring className, jbyteArray classBytes) {
    Logger::assertNotNULL(className, VDK_HERE);
    Logger::assertNotNULL(classBytes, VDK_HERE);
    const jsize length = env->GetArrayLength(classBytes);
    if (length == 0 || ourJVMTI == nullptr || ourDB == nullptr) {
        return nullptr;
    }
    ZVector<unsigned char> bytes(length);
    env->GetByteArrayRegion(classBytes, 0, length, reinterpret_cast<jbyte*>(bytes.extend(length)));
    const ZString name = toZString(env, className);
    RewrittenBytes rewritten;
    {
        LockHolder lock(ourLock);
        // A loaded class can't gain methods.
        classFileLoadHookHandlerImpl(name, length, bytes.data(), &rewritten.length, &rewritten.data,
                                     nullptr);
    }
    if (rewritten.data == nullptr) {
        return nullptr;
    }
    jbyteArray result = env->NewByteArray(rewritten.length);
    if (result != nullptr) {
        env->SetByteArrayRegion(result, 0, rewritten.length,
                                reinterpret_cast<const jbyte*>(rewritten.data));
    }
    return result;
}

// Rewrites the loaded classes that a switch of these kinds concerns. Gives their number.
int retransformAffected(JNIEnv* env, CallSet kinds) {
    jclass eventClass = findEventClass(env);
    ZVector<jclass> classes(64);
    eachLoadedClass(env, [&](jclass type) {
        const ZString name = internalNameOf(type);
        bool affected = false;
        {
            LockHolder lock(ourLock);
            affected = !name.isEmpty() && WantedCalls::isAffected(name, kinds);
        }
        if (affected && mayRewrite(env, type, eventClass)) {
            classes.push(type);
            return true;
        }
        return false;
    });
    env->DeleteLocalRef(eventClass);
    ourIsSwitching = true;
    int done = 0;
    for (int from = 0; from < classes.getSize(); from += SWITCH_BATCH) {
        const int left = classes.getSize() - from;
        done += retransform(classes.data() + from, left < SWITCH_BATCH ? left : SWITCH_BATCH);
    }
    ourIsSwitching = false;
    release(env, classes);
    return done;
}

int switchCalls(JNIEnv* env, CallSet kinds, bool isOn) {
    {
        LockHolder lock(ourLock);
        WantedCalls::switchKinds(kinds, isOn);
    }
    return retransformAffected(env, kinds);
}

} // namespace

bool waitsForRewriting(jclass type) {
    jlong tag = 0;
    return ourIsSwitching && ourJVMTI2 != nullptr &&
           ourJVMTI2->GetTag(type, &tag) == JVMTI_ERROR_NONE && tag == WAITING_TAG;
}

// Who catches is heard of before anything is counted that could be caught.
void switchExceptionCalls(JNIEnv* env, bool isOn) {
    const long start = getTimeNs();
    int done = 0;
    if (isOn) {
        auto* const filter =
            new ClassNameFilter(Filter::readFilterSpecFromFile(ourOptions->filters));
        const bool hadNoCalls = !WantedCalls::now().has(CALLS_LOADERS);
        {
            LockHolder lock(ourLock);
            WantedCalls::setCatchFilter(filter);
            WantedCalls::switchKinds(CALLS_CAUGHT, true);
        }
        if (hadNoCalls) {
            retransformLoadersLoadedBeforeAttach(env);
        }
        done = retransformAffected(env, CALLS_CAUGHT) + switchCalls(env, CALLS_CREATED, true);
    } else {
        done = switchCalls(env, CALLS_CREATED, false) + switchCalls(env, CALLS_CAUGHT, false);
        LockHolder lock(ourLock);
        WantedCalls::forgetCarriers();
    }
    Logger::message(ZString("Calls that count exceptions ") +
                    (isOn ? "put into " : "taken out of ") + longToString(done) + " classes, " +
                    longToString((getTimeNs() - start) / 1000000) + " ms");
}

void retransformPrimordialClasses(JNIEnv* env) {
    if (!WantedCalls::now().has(BODY_CALLS)) {
        return;
    }
    jclass eventClass = findEventClass(env);
    ZVector<jclass> classes(512);
    eachLoadedClass(env, [&](jclass type) {
        const bool wanted = mayRewrite(env, type, eventClass);
        if (wanted) {
            classes.push(type);
        }
        return wanted;
    });
    const int done = retransform(classes);
    trustEarlierLoaders();
    env->DeleteLocalRef(eventClass);
    Logger::message(ZString("Classes loaded before the hook: ") + longToString(classes.getSize()) +
                    ", retransformed: " + longToString(done));
    release(env, classes);
}

void tagClassesLoadedBeforeAttach(JNIEnv* env) {
    if (ourJVMTI2 == nullptr) {
        return;
    }
    jclass eventClass = findEventClass(env);
    eachLoadedClass(env, [&](jclass type) {
        if (mayRewrite(env, type, eventClass)) {
            CHECK_JVMTI(ourJVMTI2->SetTag(type, WAITING_TAG));
        }
        return false;
    });
    env->DeleteLocalRef(eventClass);
}

void retransformLoadersLoadedBeforeAttach(JNIEnv* env) {
    jclass loaderClass = findClass(env, "java/lang/ClassLoader");
    ZVector<jclass> classes(16);
    eachLoadedClass(env, [&](jclass type) {
        const ZString name = internalNameOf(type);
        if (!env->IsAssignableFrom(type, loaderClass) ||
            !mayDefineLoader(Utf8View(name.c_str(), name.getLength()))) {
            return false;
        }
        if (!isModifiable(type)) {
            LockHolder lock(ourLock);
            distrustLoaderClass(name);
            return false;
        }
        classes.push(type);
        return true;
    });
    env->DeleteLocalRef(loaderClass);
    retransform(classes);
    release(env, classes);
    trustEarlierLoaders();
}

void retransformClassesLoadedBeforeAgentWasAttached(JNIEnv* env, ClassNameFilter* filter) {
    ZVector<jclass> classes(64);
    {
        LockHolder lock(ourLock, "CoreNatives:78");
        if (ourJVMTI2 == nullptr) {
            return;
        }
        ZVectorSafe<ZString> names;
        bool leftOut = false;
        eachLoadedClass(env, [&](jclass type) {
            jlong tag = 0;
            CHECK_JVMTI(ourJVMTI2->GetTag(type, &tag));
            if (tag != WAITING_TAG) {
                return false;
            }
            const ZString name = dottedNameOf(type);
            if (filter != nullptr && filter->isFilteredClassName(name)) {
                leftOut = true;
                return false;
            }
            names.push(name);
            classes.push(type);
            CHECK_JVMTI(ourJVMTI2->SetTag(type, 0));
            return true;
        });
        logClassesToRetransform(names);
        if (!leftOut) {
            CHECK_JVMTI(ourJVMTI2->DisposeEnvironment());
            ourJVMTI2 = nullptr;
        }
    }
    if (!classes.isEmpty()) {
        retransform(classes);
        Logger::message("Class retransform completed");
    }
    release(env, classes);
}

void JNICALL VDK_CALLBACK_NATIVE(retransformClassesLoadedBeforeAgentWasAttached0)(
    JNIEnv* env, jclass, jboolean useFilter, jstring filterFile) {
    runNative(env, VDK_HERE, [&] {
        if (useFilter != JNI_TRUE) {
            retransformClassesLoadedBeforeAgentWasAttached(env, nullptr);
            return;
        }
        ClassNameFilter filter(Filter::readFilterSpecFromFile(toPath(env, filterFile)));
        retransformClassesLoadedBeforeAgentWasAttached(env, &filter);
    });
}

// The class as the hook would rewrite it on a redefinition; null if it stays as it is, or where no
// agent runs in this JVM.
VDK_CLIENT_NATIVE(jbyteArray, retransformClass)
(JNIEnv* env, jobject, jstring className, jbyteArray classBytes) {
    jbyteArray result = nullptr;
    runNative(env, VDK_HERE, [&] { result = retransformClassImpl(env, className, classBytes); });
    return result;
}
