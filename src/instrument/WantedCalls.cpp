#include "instrument/WantedCalls.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "instrument/Instrumentation.h"
#include "probes/Filter.h"

namespace {

// Names of classes, by one bit each.
class NameBits {
public:
    void add(const ZString& name) {
        const unsigned hash = hashOf(name);
        words[hash / WORD_BITS] |= 1UL << hash % WORD_BITS;
    }
    bool mayHave(const ZString& name) const {
        const unsigned hash = hashOf(name);
        return (words[hash / WORD_BITS] >> hash % WORD_BITS & 1) != 0;
    }
    void clear() { memset(words, 0, sizeof words); }

private:
    static constexpr unsigned BITS = 1U << 17;
    static constexpr unsigned WORD_BITS = 64;

    static unsigned hashOf(const ZString& name) {
        unsigned hash = 2166136261U;
        for (int i = 0; i < name.getLength(); i++) {
            hash = (hash ^ static_cast<unsigned char>(name.c_str()[i])) * 16777619U;
        }
        return (hash ^ hash >> 15) % BITS;
    }

    unsigned long words[BITS / WORD_BITS] = {};
};

// Wanted beside what is wanted from the start on. Read without ourLock.
std::atomic<unsigned> ourSwitchedKinds{0};
ClassNameFilter* ourCatchFilter = nullptr;
NameBits ourCatching;
NameBits ourCarriers;

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
    // Classes outside the JDK have to find what is called.
    if (wanted.has(BODY_CALLS.without(CALLS_CREATED))) {
        wanted = wanted.with(CALLS_LOADERS);
    }
    return ourOptions->disableNatives ? wanted : wanted.with(CALLS_NATIVES);
}

ClassCalls WantedCalls::ofClass(ClassFile& classFile, bool unasked) {
    const ZString name = classFile.getSignature().toString();
    if (isAgentClass(name)) {
        return ClassCalls();
    }
    CallSet wanted = now();
    if (wanted.has(CALLS_CAUGHT) && !passesCatchFilter(name)) {
        wanted = wanted.without(CALLS_CAUGHT);
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
