#include "instrument/WantedCalls.h"

#include "core/ground/Globals.h"
#include "core/ground/NameBits.h"
#include "core/ground/Options.h"
#include "core/ground/WildcardMatch.h"
#include "instrument/Instrumentation.h"
#include "probes/Filter.h"
#include "probes/Probes.h"

namespace {

// Wanted beside what is wanted from the start on. Read without ourLock.
std::atomic<unsigned> ourSwitchedKinds{0};
ClassNameFilter* ourCatchFilter = nullptr;
NameBits<1U << 17> ourCatching;
NameBits<1U << 17> ourCarriers;
NameBits<1U << 17> ourRecordingCarriers;
ZVectorSafe<ZString>& ourTracedOnly = *new ZVectorSafe<ZString>(); // dotted

// Calls that are wanted wherever they may ever run, as they are switched by the class Callback.
CallSet recordingCalls() {
    const long capabilities = ourCapabilities;
    CallSet calls;
    if ((capabilities & CAPABILITY_CAN_TRACE) != 0) {
        calls = calls.with(TRACING_CALLS);
    }
    if ((capabilities & CAPABILITY_CAN_RECORD_ALLOCATIONS) != 0) {
        calls = calls.with(ALLOCATION_CALLS);
    }
    return calls;
}

bool passesCatchFilter(const ZString& name) {
    if (ourCatchFilter == nullptr) {
        return true;
    }
    ZString dotted = name;
    dotted.replaceAll('/', '.');
    return !ourCatchFilter->isFilteredClassName(dotted);
}

// Whether the hook has parsed every class that this JVM has.
bool sawAllClasses() {
    const long parsing = CAPABILITY_CAN_TRACE | CAPABILITY_CAN_RECORD_ALLOCATIONS;
    return (ourCapabilities & parsing) != 0 && (ourCapabilities & CAPABILITY_ATTACHED_AGENT) == 0 &&
           !ourOptions->onDemand;
}

} // namespace

CallSet WantedCalls::now() {
    if (ourIsAway) {
        return CallSet(CALLS_LOADERS);
    }
    CallSet wanted(ourSwitchedKinds);
    const CallSet ofRecordings = recordingCalls();
    if (!ourOptions->onDemand) {
        wanted = wanted.with(ofRecordings);
    }
    if (Probes::areThere()) {
        wanted = wanted.with(CALLS_PROBES).with(CALLS_GUARDS);
    }
    // Classes outside the JDK have to find what is called.
    if (wanted.has(BODY_CALLS.without(CALLS_CREATED).with(CALLS_PROBES)) ||
        !ofRecordings.isEmpty()) {
        wanted = wanted.with(CALLS_LOADERS);
    }
    return ourOptions->disableNatives ? wanted : wanted.with(CALLS_NATIVES);
}

ClassCalls WantedCalls::ofClass(ClassFile& classFile, bool unasked) {
    const ZString name = classFile.getSignature().toString();
    CallSet wanted = now();
    if (wanted.has(CALLS_GUARDS) && !Probes::isProbeClass(name)) {
        wanted = wanted.without(CALLS_GUARDS);
    }
    if (isAgentClass(name)) {
        ClassCalls own;
        own.calls = wanted.only(CALLS_GUARDS);
        return own;
    }
    if (wanted.has(CALLS_CAUGHT) && !passesCatchFilter(name)) {
        wanted = wanted.without(CALLS_CAUGHT);
    }
    if (wanted.has(CALLS_PROBES) && !Probes::mayApply(name)) {
        wanted = wanted.without(CALLS_PROBES);
    }
    if (wanted.has(TRACING_CALLS) && !isTraced(name)) {
        wanted = wanted.without(TRACING_CALLS);
    }
    if (unasked) {
        wanted = wanted.without(TRACING_CALLS.with(ALLOCATION_CALLS));
    }
    return callsOfClass(wanted, classFile.getSignature(), classFile.getSuperClassSignature());
}

void WantedCalls::onRewritten(const ZString& name, CallSet calls, bool hasCatches) {
    if (calls.has(TRACING_CALLS.with(ALLOCATION_CALLS))) {
        ourRecordingCarriers.add(name);
    }
    if (!hasCatches) {
        return;
    }
    ourCatching.add(name);
    if (calls.has(CALLS_CAUGHT)) {
        ourCarriers.add(name);
    }
}

void WantedCalls::switchKinds(CallSet kinds, bool isOn) {
    const CallSet before(ourSwitchedKinds);
    ourSwitchedKinds = (isOn ? before.with(kinds) : before.without(kinds)).toBits();
}

void WantedCalls::setCatchFilter(ClassNameFilter* filter) {
    delete ourCatchFilter;
    ourCatchFilter = filter;
}

bool WantedCalls::isAffected(const ZString& name, CallSet kinds) {
    if (isAgentClass(name)) {
        return false;
    }
    if (kinds.has(CALLS_CREATED) && isRootOfExceptions(Utf8View(name.c_str(), name.getLength()))) {
        return true;
    }
    if (!kinds.has(CALLS_CAUGHT)) {
        return false;
    }
    if (!now().has(CALLS_CAUGHT)) {
        return ourCarriers.mayHave(name);
    }
    return (!sawAllClasses() || ourCatching.mayHave(name)) && passesCatchFilter(name);
}

void WantedCalls::forgetCarriers() {
    ourCarriers.clear();
}

void WantedCalls::setTracedOnly(const ZString& patterns) {
    ourTracedOnly.clear();
    ZVectorSafe<ZString> pieces;
    patterns.split(";", pieces);
    for (int i = 0; i < pieces.getSize(); i++) {
        if (!pieces[i].isEmpty()) {
            ourTracedOnly.push(pieces[i]);
        }
    }
}

bool WantedCalls::isTraced(const ZString& name) {
    if (ourTracedOnly.isEmpty()) {
        return true;
    }
    ZString dotted = name;
    dotted.replaceAll('/', '.');
    for (int i = 0; i < ourTracedOnly.getSize(); i++) {
        if (wildcardMatch(ourTracedOnly[i].c_str(), dotted.c_str())) {
            return true;
        }
    }
    return false;
}

bool WantedCalls::mayCarryRecording(const ZString& name) {
    return ourRecordingCarriers.mayHave(name);
}

void WantedCalls::forgetRecording() {
    ourRecordingCarriers.clear();
}
