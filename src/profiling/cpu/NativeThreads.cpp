#include "profiling/cpu/NativeThreads.h"

#include "core/ground/ZSet.h"
#include "core/jvm/JvmGlobals.h"
#include "platform/Platform.h"
#include "platform/ThreadTimers.h"

namespace {

struct Candidate {
    long nativeID;
    long before; // its clock before the JVM was asked for any thread
    long after;
    int claims;
};

struct Candidates {
    ZSet<long> known{ZVECTOR_DEFAULT_CAPACITY};
    ZVector<Candidate> all;

    static void visit(long nativeID, void* context) {
        Candidates& candidates = *static_cast<Candidates*>(context);
        if (!candidates.known.contains(nativeID)) {
            candidates.all.push({nativeID, Platform::threadCPUTimeNs(nativeID), 0, 0});
        }
    }
};

// The one candidate whose clock agrees; null if there are none or several.
Candidate* findOnly(ZVector<Candidate>& candidates, long cpuNs) {
    Candidate* found = nullptr;
    for (int i = 0; i < candidates.getSize(); i++) {
        Candidate& candidate = candidates[i];
        if (candidate.before < 0 || cpuNs < candidate.before || cpuNs > candidate.after) {
            continue;
        }
        if (found != nullptr) {
            return nullptr;
        }
        found = &candidate;
    }
    return found;
}

} // namespace

bool NativeThreads::prepare() {
    jvmtiCapabilities wanted = {};
    wanted.can_get_thread_cpu_time = 1;
    return ourJVMTI->AddCapabilities(&wanted) == JVMTI_ERROR_NONE;
}

void NativeThreads::find(ZVector<Search>* threads, const ZVector<long>& known) {
    Candidates candidates;
    for (int i = 0; i < known.getSize(); i++) {
        candidates.known.add(known[i]);
    }
    ZVector<jlong> times;
    if (!ThreadTimers::listThreads(Candidates::visit, &candidates)) {
        return;
    }
    for (int i = 0; i < threads->getSize(); i++) {
        jlong time = -1;
        const jvmtiError error = ourJVMTI->GetThreadCpuTime((*threads)[i].thread, &time);
        times.push(error == JVMTI_ERROR_NONE ? time : -1);
    }
    for (int i = 0; i < candidates.all.getSize(); i++) {
        candidates.all[i].after = Platform::threadCPUTimeNs(candidates.all[i].nativeID);
    }
    ZVector<Candidate*> found;
    for (int i = 0; i < threads->getSize(); i++) {
        found.push(findOnly(candidates.all, times[i]));
        if (found[i] != nullptr) {
            found[i]->claims++;
        }
    }
    for (int i = 0; i < threads->getSize(); i++) {
        (*threads)[i].nativeID =
            found[i] != nullptr && found[i]->claims == 1 ? found[i]->nativeID : 0;
    }
}
