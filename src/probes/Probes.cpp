#include "probes/Probes.h"

#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "core/ground/WildcardMatch.h"

#include <atomic>

const char* const* const Probes::ourBuiltInProbes = ::ourBuiltInProbes;
ZVector<ProbeDescriptor*>& Probes::ourProbeDescriptors = *new ZVector<ProbeDescriptor*>();
ZVectorSafe<ZString>& Probes::ourProbeClassPathElements = *new ZVectorSafe<ZString>();

namespace {

const char* const PROTECTED_PREFIXES[] = {"java.security.AccessController",
                                          "java.util.ResourceBundle",
                                          "sun.misc.",
                                          "sun.util.",
                                          "sun.nio.cs.",
                                          "java.lang.",
                                          "sun.reflect.",
                                          "java.util.",
                                          "java.security.",
                                          "com.ibm.",
                                          "com.vandrik.Constants",
                                          "com.vandrik.probes.",
                                          "com.vandrik.runtime.",
                                          "com.vandrik.util.Asserts",
                                          "com.vandrik.util.Strings",
                                          "com.vandrik.util.ThreadUtil",
                                          "org.apache.tools.ant.taskdefs",
                                          "org.netbeans.TopSecurityManager"};

ZString dotted(const ZString& className) {
    ZString name = className;
    name.replaceAll('/', '.');
    return name;
}

// Position of the probe class in the first `count` descriptors of the list, or -1.
int findDescriptor(const ZString& probeClass, int count) {
    for (int i = 0; i < count; i++) {
        if (Probes::ourProbeDescriptors[i]->probeClass == probeClass) {
            return i;
        }
    }
    return -1;
}

// The size of the list, for those who do not hold ourLock.
std::atomic<int> ourCount{0};
long ourLastSerial = 0;
// The patterns of classes in the list, each once, with the most that one of its rows reaches, and
// the names of methods. Most probes are about any class and a few methods. ourLock.
ZVectorSafe<ZString>& ourClassPatterns = *new ZVectorSafe<ZString>();
ZVector<Probes::Reach>& ourReaches = *new ZVector<Probes::Reach>();
SoughtNames& ourMethodNames = *new SoughtNames();
bool ourReachesAreOld = true;

void addReach(const ZString& classPattern, const ZString& methodPattern) {
    // A class that is spelled out is rare, and its names need not be looked for in others.
    const bool isNamed = classPattern.contains("*") && !methodPattern.contains("*");
    const Probes::Reach reach = isNamed ? Probes::NAMED_METHODS : Probes::ANY_METHOD;
    if (isNamed) {
        ourMethodNames.add(methodPattern);
    }
    int place = 0;
    while (place < ourClassPatterns.getSize() && ourClassPatterns[place] != classPattern) {
        place++;
    }
    if (place == ourClassPatterns.getSize()) {
        ourClassPatterns.push(classPattern);
        ourReaches.push(reach);
    } else if (reach > ourReaches[place]) {
        ourReaches.set(place, reach);
    }
}

void updateReaches() {
    if (!ourReachesAreOld) {
        return;
    }
    ourMethodNames.clear();
    ourClassPatterns.clear();
    ourReaches.clear();
    for (int i = 0; i < Probes::ourProbeDescriptors.getSize(); i++) {
        const ProbeDescriptor& descriptor = *Probes::ourProbeDescriptors[i];
        const int count = descriptor.status == PROBE_REMOVED ? 0 : descriptor.getPatternCount();
        for (int row = 0; row < count; row++) {
            addReach(descriptor.classPatterns[row], descriptor.methodPatterns[row]);
        }
    }
    ourReachesAreOld = false;
}

void deleteDescriptor(int i) {
    ProbeDescriptor* const descriptor = Probes::ourProbeDescriptors[i];
    Probes::ourProbeDescriptors.removeRange(i, i + 1);
    ourCount = Probes::ourProbeDescriptors.getSize();
    ourReachesAreOld = true;
    delete descriptor;
}

bool contains(const ZVector<long>& list, long value) {
    for (int i = 0; i < list.getSize(); i++) {
        if (list[i] == value) {
            return true;
        }
    }
    return false;
}

void pushOnce(ZVectorSafe<ZString>& list, const ZString& name) {
    for (int i = 0; i < list.getSize(); i++) {
        if (list[i] == name) {
            return;
        }
    }
    list.push(name);
}

} // namespace

void Probes::addProbes(ProbeCreationResult* result) {
    Logger::assertNotNULL(result, VDK_HERE);
    ZVector<ProbeDescriptor*>& added = result->descriptors;
    for (int i = 0; i < added.getSize(); i++) {
        if (findDescriptor(added[i]->probeClass, ourProbeDescriptors.getSize()) >= 0) {
            result->addWarning(
                dotted(added[i]->probeClass),
                "probe class with such name already registered and will be replaced");
        }
    }
    if (!result->isOK()) {
        return;
    }
    for (int i = 0; i < added.getSize(); i++) {
        result->registeredClasses.push(dotted(added[i]->probeClass));
        const int old = findDescriptor(added[i]->probeClass, ourProbeDescriptors.getSize());
        added[i]->serial = ++ourLastSerial;
        ourProbeDescriptors.push(added[i]);
        ourReachesAreOld = true;
        ourCount = ourProbeDescriptors.getSize();
        if (old >= 0) {
            // Its patterns may have been others: what it was woven into is woven anew.
            added[i]->woven.addAll(ourProbeDescriptors[old]->woven);
            deleteDescriptor(old);
        }
        added.set(i, nullptr);
    }
    added.clear();
}

bool Probes::removeProbes(const ZString& className, ZVectorSafe<ZString>& removed) {
    const ZString nestedPrefix = className + "$";
    bool awaitsWeaving = false;
    for (int i = 0; i < ourProbeDescriptors.getSize();) {
        ProbeDescriptor* const descriptor = ourProbeDescriptors[i];
        const bool isNamed = descriptor->probeClass == className ||
                             descriptor->probeClass.startsWith(nestedPrefix.c_str());
        if (isNamed) {
            removed.push(descriptor->probeClass);
        }
        // A class may have been loaded since it was added.
        if (isNamed && descriptor->status == PROBE_ADDED && descriptor->woven.isEmpty()) {
            deleteDescriptor(i);
            continue;
        }
        if (isNamed) {
            descriptor->status = PROBE_REMOVED;
            ourReachesAreOld = true;
            awaitsWeaving = true;
        }
        i++;
    }
    return awaitsWeaving;
}

bool Probes::areThere() {
    return ourCount != 0;
}

bool Probes::mayApply(const ZString& className) {
    return reachOf(className) != NO_METHOD;
}

const SoughtNames& Probes::methodNames() {
    updateReaches();
    return ourMethodNames;
}

Probes::Reach Probes::reachOf(const ZString& className) {
    updateReaches();
    const ZString name = dotted(className);
    Reach reach = NO_METHOD;
    for (int i = 0; i < ourClassPatterns.getSize() && reach != ANY_METHOD; i++) {
        const Reach ofPattern = ourReaches[i];
        if (ofPattern > reach && isProbeApplicable(name, ourClassPatterns[i])) {
            reach = ofPattern;
        }
    }
    return reach;
}

bool Probes::isProbeClass(const ZString& className) {
    return findDescriptor(className, ourProbeDescriptors.getSize()) >= 0;
}

void Probes::fillApplicableRows(const ProbeDescriptor& descriptor, const ZString& className,
                                ZVector<int>& rows) {
    for (int row = 0; row < descriptor.getPatternCount(); row++) {
        if (isProbeApplicable(className, descriptor.classPatterns[row])) {
            rows.push(row);
        }
    }
}

void Probes::settle(const ZVector<long>& serials) {
    for (int i = 0; i < ourProbeDescriptors.getSize();) {
        ProbeDescriptor* const descriptor = ourProbeDescriptors[i];
        const bool isMeant = contains(serials, descriptor->serial);
        if (isMeant && descriptor->status == PROBE_REMOVED) {
            deleteDescriptor(i);
            continue;
        }
        if (isMeant) {
            descriptor->status = PROBE_IN_FORCE;
        }
        i++;
    }
}

void Probes::getTopProbeClasses(ZVectorSafe<ZString>& list, bool withBuiltIn) {
    for (const char* const* name = ourBuiltInProbes; withBuiltIn && *name != nullptr; name++) {
        list.push(*name);
    }
    for (int i = 0; i < ourProbeDescriptors.getSize(); i++) {
        if (ourProbeDescriptors[i]->status == PROBE_IN_FORCE) {
            const ZString name = dotted(ourProbeDescriptors[i]->probeClass);
            const int nested = name.indexOf('$');
            pushOnce(list, nested < 0 ? name : name.substring(0, nested));
        }
    }
}

bool Probes::isProbeApplicable(const ZString& className, const ZString& classPattern) {
    if (!wildcardMatch(classPattern.c_str(), className.c_str())) {
        return false;
    }
    for (const char* const prefix : PROTECTED_PREFIXES) {
        if (className.startsWith(prefix) && !classPattern.startsWith(prefix)) {
            return false;
        }
    }
    return true;
}
