#include "instrument/ClassBatches.h"

#include "core/ground/Globals.h"
#include "core/ground/UptimeProvider.h"
#include "instrument/Instrumentation.h"
#include "instrument/LoaderReach.h"
#include "probes/Probes.h"

#include <atomic>

namespace {

// With 4 500 classes loaded the JVM stood still for 9 ms of CPU time for a batch, as it walks over
// all its classes in each, and for 30 us more for each class in it, on 17 and 25. So small batches
// cost more in all and stop the application hardly less.
constexpr int LEAST_BATCH = 150;
constexpr int MOST_BATCH = 800;
constexpr long WANTED_STOP_NS = 35000000;

// When a hook was last shown a class on this thread.
thread_local long ourLastOfferNs = 0;

// Switches of calls that are rewriting classes.
std::atomic<int> ourSwitches{0};

class Switching {
public:
    Switching() { ourSwitches++; }
    ~Switching() { ourSwitches--; }
    Switching(const Switching&) = delete;
    Switching& operator=(const Switching&) = delete;
};

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

bool isProbeClass(const ZString& name) {
    LockHolder lock(ourLock);
    return Probes::isProbeClass(name);
}

int retransform(jclass* classes, int count, jvmtiError* lastError) {
    if (count == 0) {
        return 0;
    }
    const jvmtiError error = ourJVMTI->RetransformClasses(count, classes);
    if (error == JVMTI_ERROR_NONE) {
        return count;
    }
    *lastError = error;
    if (ourVMDeathCalled) {
        return 0; // what is left does not matter any more
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
    const int done = retransform(classes, half, lastError);
    return done + retransform(classes + half, count - half, lastError);
}

} // namespace

ZString dottedNameOf(jclass type) {
    ZString name = internalNameOf(type);
    name.replaceAll('/', '.');
    return name;
}

bool isModifiable(jclass type) {
    jboolean modifiable = JNI_FALSE;
    jint status = 0;
    return ourJVMTI->GetClassStatus(type, &status) == JVMTI_ERROR_NONE &&
           (status & JVMTI_CLASS_STATUS_ERROR) == 0 &&
           ourJVMTI->IsModifiableClass(type, &modifiable) == JVMTI_ERROR_NONE &&
           modifiable == JNI_TRUE;
}

// The JVM hands every redefined subclass of its event class to the flight recorder, which starts
// parts of it, or prints an error where a small image lacks it.
RewritableClasses::RewritableClasses(JNIEnv* javaEnv)
    : env(javaEnv), eventClass(javaEnv->FindClass("jdk/internal/event/Event")) {
    if (eventClass == nullptr) {
        env->ExceptionClear();
    }
}

RewritableClasses::~RewritableClasses() {
    env->DeleteLocalRef(eventClass);
}

bool RewritableClasses::has(jclass type) const {
    const ZString name = internalNameOf(type);
    if (name.isEmpty() || name.startsWith("jdk/internal/event/") ||
        (isAgentClass(name) && !isProbeClass(name))) {
        return false;
    }
    return isModifiable(type) && !hasNoBodies(type) &&
           (eventClass == nullptr || env->IsAssignableFrom(type, eventClass) == JNI_FALSE);
}

int ClassList::retransformAtOnce() {
    return retransform(classes.data(), classes.getSize(), &lastError);
}

int ClassList::retransformInBatches() {
    while (retransformSome()) {
    }
    return done;
}

bool ClassList::retransformSome() {
    const int left = classes.getSize() - place;
    if (left == 0) {
        return false;
    }
    const Switching switching;
    const int size = left < batch ? left : batch;
    const long start = getTimeNs();
    ourLastOfferNs = start;
    done += retransform(classes.data() + place, size, &lastError);
    const long stopNs = getTimeNs() - ourLastOfferNs;
    place += size;
    longestStopNs = stopNs > longestStopNs ? stopNs : longestStopNs;
    const long fitting = stopNs <= 0 ? MOST_BATCH : size * WANTED_STOP_NS / stopNs;
    const long most = fitting < 2L * batch ? fitting : 2L * batch;
    batch = static_cast<int>(most < LEAST_BATCH  ? LEAST_BATCH
                             : most > MOST_BATCH ? MOST_BATCH
                                                 : most);
    return true;
}

void noteClassOffered() {
    ourLastOfferNs = getTimeNs();
}

ZString ClassList::getFailure() const {
    if (lastError == JVMTI_ERROR_NONE) {
        return ZString();
    }
    ZString text("error=");
    text.appendLong(lastError);
    JvmtiMemory<char> name;
    if (ourJVMTI->GetErrorName(lastError, name.receive()) == JVMTI_ERROR_NONE) {
        text.append(":");
        text.append(name.get());
    }
    return text;
}

bool waitsForRewriting(jclass type) {
    jlong tag = 0;
    return ourSwitches != 0 && ourJVMTI2 != nullptr &&
           ourJVMTI2->GetTag(type, &tag) == JVMTI_ERROR_NONE && tag == WAITING_TAG;
}
