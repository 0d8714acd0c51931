#pragma once

#include "classfile/ClassScan.h"
#include "core/ground/ZString.h"
#include "probes/ProbeCreationResult.h"
#include "probes/ProbeDescriptor.h"

// Probes: the list of probes, and the ways into and out of it. Everything that touches the list
// wants ourLock: classes that load are compared with it. Making descriptors touches the result
// alone.
class Probes {
public:
    // Makes the descriptor of one class file, unless the class is no probe; what is wrong with it
    // stands in the result. The slashed name goes to className if that is not null.
    static void createProbeDescriptor(const ZVector<unsigned char>* bytes, PROBE_STATUS status,
                                      ProbeCreationResult* result, ZString* className = nullptr);
    // The same for the classes of these slashed names, and those nested in them, wherever on the
    // class path they are. A name that leads to no probe is an error.
    static void createProbeDescriptors(const ZVectorSafe<ZString>& classNames, PROBE_STATUS status,
                                       ProbeCreationResult* result);

    // Where the runtime archive cannot be had as a file that nobody else may change: its bytes,
    // which are searched before the class path. They stay as they are for the life of the process.
    static void setRuntimeArchive(const unsigned char* bytes, long count);

    // Behind the elements that there are; the application's class path has it.
    static void addSystemPathElement(const ZString& path);

    // The application's class path, as the JVM has it: where probes are looked for in the end.
    static void setApplicationPath(const ZString& path);

    // Moves the descriptors of a result that is OK to the list, in the place of those of the same
    // classes. Replacing is a warning; where that counts as an error, nothing is added.
    static void addProbes(ProbeCreationResult* result);
    // Takes the probe of a slashed name and those nested in it out of the list, or marks them where
    // classes have them; their names are pushed on removed. True if classes must be woven anew.
    static bool removeProbes(const ZString& className, ZVectorSafe<ZString>& removed);
    // Whether a pattern of classes accepts this one; both dotted. A class of a protected package is
    // accepted only by a pattern that spells the package out.
    static bool isProbeApplicable(const ZString& className, const ZString& classPattern);

    // Whether there is a probe in the list. Takes no lock.
    static bool areThere();
    // Whether the class may have to be woven; internal name.
    static bool mayApply(const ZString& className);
    // Which methods of the class patterns may name: none; those of methodNames(); any.
    enum Reach { NO_METHOD, NAMED_METHODS, ANY_METHOD };
    static Reach reachOf(const ZString& className);
    // The names that patterns of methods spell out.
    static const SoughtNames& methodNames();
    // Whether it is the class of a probe; internal name.
    static bool isProbeClass(const ZString& className);
    // The rows of a probe whose class patterns accept the class; dotted name.
    static void fillApplicableRows(const ProbeDescriptor& descriptor, const ZString& className,
                                   ZVector<int>& rows);

    // Classes have followed the changes that were in the list when the serial number was drawn: the
    // removed probes go, the added ones are in force.
    static void settle(const ZVector<long>& serials);

    // Pushes the dotted names of the top classes of all probes in force, each once, behind the
    // built-in ones if those are wanted.
    static void getTopProbeClasses(ZVectorSafe<ZString>& list, bool withBuiltIn);

    // Dotted names, ended by null.
    static const char* const* const ourBuiltInProbes;
    // The live list; it owns its descriptors.
    static ZVector<ProbeDescriptor*>& ourProbeDescriptors;
    // The runtime archive first, if it is a file, then the elements of the class path options in
    // their order. Filled during the load, extended under ourLock, never destroyed.
    static ZVectorSafe<ZString>& ourProbeClassPathElements;
};
