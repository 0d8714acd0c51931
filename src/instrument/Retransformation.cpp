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
#include "instrument/ClassBatches.h"
#include "instrument/Instrumentation.h"
#include "instrument/LoaderDelegation.h"
#include "instrument/LoaderReach.h"
#include "instrument/WantedCalls.h"
#include "probes/Filter.h"

namespace {

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
    const RewritableClasses rewritable(env);
    ClassList classes(env);
    eachLoadedClass(env, [&](jclass type) {
        const ZString name = internalNameOf(type);
        bool affected = false;
        {
            LockHolder lock(ourLock);
            affected = !name.isEmpty() && WantedCalls::isAffected(name, kinds);
        }
        if (affected && rewritable.has(type)) {
            classes.push(type);
            return true;
        }
        return false;
    });
    return classes.retransformInBatches();
}

int switchCalls(JNIEnv* env, CallSet kinds, bool isOn) {
    {
        LockHolder lock(ourLock);
        WantedCalls::switchKinds(kinds, isOn);
    }
    return retransformAffected(env, kinds);
}

int putCallsAtCatch(JNIEnv* env) {
    auto* const filter = new ClassNameFilter(Filter::readFilterSpecFromFile(ourOptions->filters));
    const bool hadNoCalls = !WantedCalls::now().has(CALLS_LOADERS);
    {
        LockHolder lock(ourLock);
        WantedCalls::setCatchFilter(filter);
        WantedCalls::switchKinds(CALLS_CAUGHT, true);
    }
    if (hadNoCalls) {
        retransformLoadersLoadedBeforeAttach(env);
    }
    return retransformAffected(env, CALLS_CAUGHT);
}

} // namespace

void switchExceptionCalls(JNIEnv* env, bool created, bool caught) {
    const CallSet before = WantedCalls::now();
    const long start = getTimeNs();
    int done = 0;
    // Who catches is heard of before anything is counted that could be caught.
    if (caught && !before.has(CALLS_CAUGHT)) {
        done += putCallsAtCatch(env);
    }
    if (created != before.has(CALLS_CREATED)) {
        done += switchCalls(env, CALLS_CREATED, created);
    }
    if (!caught && before.has(CALLS_CAUGHT)) {
        done += switchCalls(env, CALLS_CAUGHT, false);
        LockHolder lock(ourLock);
        WantedCalls::forgetCarriers();
    }
    if (done != 0) {
        Logger::message(
            ZString("Calls that count exceptions ") +
            (caught || (created && !before.has(CALLS_CREATED)) ? "put into " : "taken out of ") +
            longToString(done) + " classes, " + longToString((getTimeNs() - start) / 1000000) +
            " ms");
    }
}

void retransformPrimordialClasses(JNIEnv* env) {
    if (!WantedCalls::now().has(BODY_CALLS)) {
        if (WantedCalls::now().has(CALLS_LOADERS)) {
            retransformLoadersLoadedBeforeAttach(env);
        }
        return;
    }
    const RewritableClasses rewritable(env);
    ClassList classes(env);
    eachLoadedClass(env, [&](jclass type) {
        const bool wanted = rewritable.has(type);
        if (wanted) {
            classes.push(type);
        }
        return wanted;
    });
    const int done = classes.retransformAtOnce();
    trustEarlierLoaders();
    Logger::message(ZString("Classes loaded before the hook: ") + longToString(classes.getSize()) +
                    ", retransformed: " + longToString(done));
}

void tagClassesLoadedBeforeAttach(JNIEnv* env) {
    if (ourJVMTI2 == nullptr) {
        return;
    }
    const RewritableClasses rewritable(env);
    eachLoadedClass(env, [&](jclass type) {
        if (rewritable.has(type)) {
            CHECK_JVMTI(ourJVMTI2->SetTag(type, WAITING_TAG));
        }
        return false;
    });
}

void retransformLoadersLoadedBeforeAttach(JNIEnv* env) {
    jclass loaderClass = findClass(env, "java/lang/ClassLoader");
    ClassList classes(env);
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
    classes.retransformAtOnce();
    trustEarlierLoaders();
}

void retransformClassesLoadedBeforeAgentWasAttached(JNIEnv* env, ClassNameFilter* filter) {
    ClassList classes(env);
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
    // Otherwise they get their calls when somebody records.
    const bool isWanted = WantedCalls::now().has(TRACING_CALLS.with(ALLOCATION_CALLS));
    if (classes.getSize() > 0 && isWanted) {
        classes.retransformAtOnce();
        Logger::message("Class retransform completed");
    }
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
