// From the names of probe classes to their class files.

#include "core/ground/ConfigFile.h"
#include "core/ground/Globals.h"
#include "core/ground/Logger.h"
#include "probes/FileSearch.h"
#include "probes/Probes.h"
#include "probes/ZipArchive.h"

#include <cstring>

namespace {

const unsigned char* ourArchiveBytes = nullptr;
long ourArchiveByteCount = 0;
// Those elements of the class path that the loader of the application has. ourLock.
ZVectorSafe<ZString>& ourSystemElements = *new ZVectorSafe<ZString>();
// The class path that the application was started with: searched last. ourLock.
ZVectorSafe<ZString>& ourApplicationPath = *new ZVectorSafe<ZString>();

bool isClassOrNested(const Utf8View& entry, const ZString& className) {
    if (entry == className + ".class") {
        return true;
    }
    const ZString prefix = className + "$";
    return entry.startsWith(prefix.c_str()) && entry.endsWith(".class");
}

// Looks for classes in one element of the class path after the other.
class ProbeSearch {
public:
    ProbeSearch(const ZVectorSafe<ZString>& classNames, PROBE_STATUS newStatus,
                ProbeCreationResult* target)
        : status(newStatus), result(target) {
        for (int i = 0; i < classNames.getSize(); i++) {
            pending.push(classNames[i]);
        }
    }

    bool isDone() const { return pending.isEmpty(); }

    void searchElement(const ZString& element, ProbeHome home) {
        const int before = result->descriptors.getSize();
        if (FileSearch::isDirectory(element)) {
            searchDirectory(element);
        } else {
            searchArchive(ZipArchive(element), element);
        }
        for (int i = before; i < result->descriptors.getSize(); i++) {
            result->descriptors[i]->home = home;
        }
    }

    void searchDirectory(const ZString& directory) {
        for (int i = 0; i < pending.getSize();) {
            ZVectorSafe<ZString> files;
            FileSearch::findClasses(directory, pending[i], &files);
            for (int k = 0; k < files.getSize(); k++) {
                readClass(files[k]);
            }
            if (files.isEmpty()) {
                i++;
            } else {
                pending.removeRange(i, i + 1);
            }
        }
    }

    // path: for messages.
    void searchArchive(const ZipArchive& zip, const ZString& path) {
        if (!zip.isOpen()) {
            Logger::detail(ZString("No folder and no archive for probes: ") + path);
            return;
        }
        ZVector<bool> matched;
        for (int i = 0; i < pending.getSize(); i++) {
            matched.push(false);
        }
        for (int entry = 0; entry < zip.getEntryCount(); entry++) {
            if (noteMatches(zip.getName(entry), matched)) {
                readEntry(zip, entry, path);
            }
        }
        for (int i = pending.getSize() - 1; i >= 0; i--) {
            if (matched[i]) {
                pending.removeRange(i, i + 1);
            }
        }
    }

    void reportMissing() const {
        for (int i = 0; i < pending.getSize(); i++) {
            result->addError(pending[i], "class not found");
        }
    }

private:
    bool noteMatches(const Utf8View& entry, ZVector<bool>& matched) const {
        bool any = false;
        for (int i = 0; i < pending.getSize(); i++) {
            if (isClassOrNested(entry, pending[i])) {
                matched.set(i, true);
                any = true;
            }
        }
        return any;
    }

    void readClass(const ZString& path) {
        ZString content;
        if (!readFile(path, &content)) {
            result->addError(ZString("failed to read ") + path);
            return;
        }
        ZVector<unsigned char> bytes(content.getLength() + 1);
        memcpy(bytes.extend(content.getLength()), content.c_str(),
               static_cast<size_t>(content.getLength()));
        Probes::createProbeDescriptor(&bytes, status, result);
    }

    void readEntry(const ZipArchive& zip, int entry, const ZString& path) {
        ZVector<unsigned char> bytes;
        if (unzipEntryToVector(zip, zip.getSize(entry), entry, bytes)) {
            Probes::createProbeDescriptor(&bytes, status, result);
        } else {
            result->addError(ZString("unzip failed: ") + zip.getName(entry).toString() + " in " +
                             path);
        }
    }

    const PROBE_STATUS status;
    ProbeCreationResult* const result;
    ZVectorSafe<ZString> pending;
};

// The class path as it is now: other threads may extend it while classes are read.
struct ClassPath {
    ClassPath() {
        LockHolder lock(ourLock);
        for (int i = 0; i < Probes::ourProbeClassPathElements.getSize(); i++) {
            const ZString& element = Probes::ourProbeClassPathElements[i];
            elements.push(element);
            homes.push(isOfSystem(element) ? PROBE_HOME_SYSTEM : PROBE_HOME_BOOT);
        }
        for (int i = 0; i < ourApplicationPath.getSize(); i++) {
            elements.push(ourApplicationPath[i]);
            homes.push(PROBE_HOME_SYSTEM);
        }
    }

    ZVectorSafe<ZString> elements;
    ZVector<ProbeHome> homes;

private:
    static bool isOfSystem(const ZString& element) {
        for (int i = 0; i < ourSystemElements.getSize(); i++) {
            if (ourSystemElements[i] == element) {
                return true;
            }
        }
        return false;
    }
};

bool isProbeAmong(const ZVector<ProbeDescriptor*>& descriptors, const ZString& className) {
    const ZString nestedPrefix = className + "$";
    for (int i = 0; i < descriptors.getSize(); i++) {
        const ZString& probeClass = descriptors[i]->probeClass;
        if (probeClass == className || probeClass.startsWith(nestedPrefix.c_str())) {
            return true;
        }
    }
    return false;
}

} // namespace

void Probes::setRuntimeArchive(const unsigned char* bytes, long count) {
    ourArchiveBytes = bytes;
    ourArchiveByteCount = count;
}

void Probes::addSystemPathElement(const ZString& path) {
    LockHolder lock(ourLock);
    ourSystemElements.push(path);
    ourProbeClassPathElements.push(path);
}

void Probes::setApplicationPath(const ZString& path) {
    LockHolder lock(ourLock);
    ourApplicationPath.clear();
    path.split(":", ourApplicationPath);
}

void Probes::createProbeDescriptors(const ZVectorSafe<ZString>& classNames, PROBE_STATUS status,
                                    ProbeCreationResult* result) {
    Logger::assertNotNULL(result, VDK_HERE);
    ProbeSearch search(classNames, status, result);
    if (ourArchiveBytes != nullptr) {
        search.searchArchive(ZipArchive(ourArchiveBytes, ourArchiveByteCount),
                             "the agent's library");
    }
    const ClassPath path;
    for (int i = 0; i < path.elements.getSize() && !search.isDone(); i++) {
        search.searchElement(path.elements[i], path.homes[i]);
    }
    search.reportMissing();
    if (!result->isOK()) {
        return;
    }
    ZString withoutProbe;
    for (int i = 0; i < classNames.getSize(); i++) {
        if (!isProbeAmong(result->descriptors, classNames[i])) {
            withoutProbe.append(withoutProbe.isEmpty() ? "" : ", ");
            withoutProbe.append(classNames[i]);
        }
    }
    if (!withoutProbe.isEmpty()) {
        result->addError(ZString("no probes found among these classes: ") + withoutProbe);
    }
}
