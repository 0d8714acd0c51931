#include "instrument/WantedCalls.h"

#include "core/ground/Globals.h"
#include "core/ground/NameBits.h"
#include "core/ground/Options.h"
#include "instrument/Instrumentation.h"
#include "probes/Filter.h"
#include "probes/Probes.h"

namespace {

// Wanted beside what is wanted from the start on. Read without ourLock.
std::atomic<unsigned> ourSwitchedKinds{0};
ClassNameFilter* ourCatchFilter = nullptr;
NameBits<1U << 17> ourCatching;
NameBits<1U << 17> ourCarriers;

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
    return (ourCapabilities & parsing) != 0 && (ourCapabilities & CAPABILITY_ATTACHED_AGENT) == 0;
}

} // namespace

CallSet WantedCalls::now() {
    const long capabilities = ourCapabilities;
    CallSet wanted(ourSwitchedKinds);
    if ((capabilities & CAPABILITY_CAN_TRACE) != 0) {
        wanted = wanted.with(TRACING_CALLS);
    }
    if ((capabilities & CAPABILITY_CAN_RECORD_ALLOCATIONS) != 0) {
        wanted = wanted.with(ALLOCATION_CALLS);
    }
    if (Probes::areThere()) {
        wanted = wanted.with(CALLS_PROBES).with(CALLS_GUARDS);
    }
    // Classes outside the JDK have to find what is called.
    if (wanted.has(BODY_CALLS.without(CALLS_CREATED).with(CALLS_PROBES))) {
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
    if (unasked) {
        wanted = wanted.without(TRACING_CALLS.with(ALLOCATION_CALLS));
    }
    return callsOfClass(wanted, classFile.getSignature(), classFile.getSuperClassSignature());
}

void WantedCalls::onRewritten(const ZString& name, CallSet calls, bool hasCatches) {
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
