#include "probes/Probes.h"

#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "core/ground/WildcardMatch.h"

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

void deleteDescriptor(int i) {
    ProbeDescriptor* const descriptor = Probes::ourProbeDescriptors[i];
    Probes::ourProbeDescriptors.removeRange(i, i + 1);
    delete descriptor;
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
        ourProbeDescriptors.push(added[i]);
        added.set(i, nullptr);
        if (old >= 0) {
            deleteDescriptor(old);
        }
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
        if (isNamed && descriptor->status == PROBE_ADDED) {
            deleteDescriptor(i);
            continue;
        }
        if (isNamed) {
            descriptor->status = PROBE_REMOVED;
            awaitsWeaving = true;
        }
        i++;
    }
    return awaitsWeaving;
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
