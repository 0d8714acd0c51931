#include "client/heap/HeapSession.h"

#include "client/console/Text.h"
#include "client/heap/CutFile.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapProgress.h"
#include "core/ground/Exceptions.h"
#include "db/ByteReader.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/HprofReader.h"
#include "heapfile/HprofRecords.h"
#include "heapfile/SnapshotHeapReader.h"
#include "offline/BackwardReferences.h"
#include "offline/DominatorVerifier.h"
#include "offline/HeapAnalysis.h"
#include "offline/Reachability.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <unistd.h>

namespace vdk {

void withHeapErrors(const std::string& file, const std::function<void()>& code) {
    try {
        code();
    } catch (const HeapTemporaryFileError& e) {
        throw ClientError(ExitCode::CannotWrite, "heap.temporary", e.what(),
                          "--tmp names another folder");
    } catch (const HeapIndexError& e) {
        throw ClientError(ExitCode::BadInput, "heap.read", e.what(),
                          "remove it: it is written anew when the heap is opened with --index");
    } catch (const NoHeapError& e) {
        throw ClientError(
            ExitCode::BadInput, "heap.none", file + ": " + e.what(),
            "`vdk report " + shellWord(file) +
                "` tells what is in it; `vdk heap capture` writes a running JVM's heap");
    } catch (const HeapReadError& e) {
        throw ClientError(ExitCode::BadInput, "heap.read", e.what());
    } catch (const BadInputException& e) {
        throw ClientError(ExitCode::BadInput, "heap.read",
                          file + ": " + e.message.c_str() + " at offset " +
                              std::to_string(e.offset));
    } catch (const AnalysisCancelled&) {
        throw ClientError(ExitCode::Aborted, "aborted", "interrupted");
    } catch (const std::bad_alloc&) {
        throw ClientError(ExitCode::BadInput, "heap.memory",
                          file + ": not enough memory for this heap");
    } catch (const VDKRuntimeException&) {
        throw ClientError(ExitCode::BadInput, "heap.inconsistent",
                          file + ": the heap contradicts itself");
    }
}

namespace {

// Its first text, behind the length of that.
bool isPortableHeapDump(const MappedFile& file) {
    static constexpr char Start[] = "\0\x12portable heap dump";
    return file.size() >= sizeof(Start) - 1 && memcmp(file.data(), Start, sizeof(Start) - 1) == 0;
}

} // namespace

HeapSession::Sharing* HeapSession::Sharing::current = nullptr;

HeapSession::Sharing::Sharing(const HeapOptions& options) : options(options) {
    current = this;
}

HeapSession::Sharing::~Sharing() {
    current = nullptr;
}

HeapSession::Sharing* HeapSession::sharingOf(const HeapOptions& options) {
    Sharing* const sharing = Sharing::current;
    const bool isShared = sharing != nullptr && sharing->options.file == options.file &&
                          sharing->options.dumpNumber == options.dumpNumber;
    return isShared ? sharing : nullptr;
}

HeapSession::HeapSession(Console& console, const HeapOptions& options, bool analyze)
    : console(console), options(options) {
    Sharing* const sharing = sharingOf(options);
    if (sharing != nullptr && sharing->opened) {
        opened = sharing->opened;
    } else {
        opened = std::make_shared<Opened>();
        openFile(analyze || sharing != nullptr);
        if (sharing != nullptr) {
            sharing->opened = opened;
        }
    }
    if (options.verify && analyze) {
        withHeapErrors(options.file, [&] { verify(); });
    }
}

void HeapSession::openFile(bool analyze) {
    withHeapErrors(options.file, [&] { read(analyze); });
    for (const std::string& remark : model().remarks) {
        console.warn(options.file + ": " + remark);
    }
    std::vector<int>& roots = opened->roots;
    for (const HeapRoot& root : model().roots) {
        roots.push_back(root.row);
    }
    std::sort(roots.begin(), roots.end());
    roots.erase(std::unique(roots.begin(), roots.end()), roots.end());
    if (model().resultsOnly) {
        takeResults();
    }
    if (!analyze) {
        return;
    }
    withHeapErrors(options.file, [&] {
        if (!opened->heap.analyzed) {
            compute();
        }
        sumLargeObjects();
    });
}

HeapSession::~HeapSession() = default;

void HeapSession::read(bool analyze) {
    if (access(options.file.c_str(), R_OK) != 0) {
        throw ClientError(ExitCode::Usage, "input.open",
                          "cannot open " + options.file + ": " + strerror(errno));
    }
    HeapProgress progress(console);
    endAtCutFiles();
    auto file = std::make_shared<MappedFile>(options.file, options.temporaryDir);
    if (!options.index.empty() && analyze) {
        std::string why;
        if (HeapIndexFile::read(options.index, file, options.dumpNumber, opened->heap, why)) {
            return;
        }
        if (!why.empty()) {
            console.warn(why + "; the heap is analyzed anew");
        }
        opened->heap = AnalyzedHeap();
    }
    HeapReadOptions reading;
    reading.temporaryDir = options.temporaryDir;
    reading.dumpNumber = options.dumpNumber;
    reading.threads = options.threads;
    reading.progress = &progress;
    if (HprofRecords::isHprof(file->data(), file->size())) {
        opened->heap.model = HprofReader::read(std::move(file), reading);
    } else if (SnapshotHeapReader::isSnapshot(file->data(), file->size())) {
        opened->heap.model = SnapshotHeapReader::read(std::move(file), reading);
    } else if (isPortableHeapDump(*file)) {
        throw HeapReadError(options.file + " is a portable heap dump (PHD) of an OpenJ9 JVM, which "
                                           "has neither values of fields nor names of threads and "
                                           "is not read; HPROF files are: magic of PHD",
                            0);
    } else {
        throw HeapReadError(options.file + " is neither a heap dump nor a snapshot: wrong magic",
                            0);
    }
}

// Which rows the roots reached isn't told by results; all that have a size count as reached.
void HeapSession::takeResults() {
    if (options.graphNeeded) {
        throw ClientError(ExitCode::BadInput, "heap.results",
                          options.file + " holds the results of an analysis only",
                          "open the snapshot that it was made from; `summary`, `biggest` and "
                          "`dominators` work without");
    }
    opened->heap.reachedBits.assign(size_t(bitFieldWords(model().objectCount)), 0);
    for (int row = 1; row <= model().rowCount(); row++) {
        if (storage().getSize(row) >= 0) {
            setMark(opened->heap.reachedBits.data(), row);
        }
    }
    opened->heap.analyzed = true;
}

void HeapSession::compute() {
    HeapProgress progress(console);
    opened->heap.reachedBits.assign(size_t(bitFieldWords(model().objectCount)), 0);
    analyzeHeap(storage(), opened->roots.data(), int(opened->roots.size()), nullptr,
                opened->heap.reachedBits.data(), options.threads, &progress);
    opened->heap.analyzed = true;
    if (!options.index.empty()) {
        ensureBackwardReferences(storage(), options.threads, &progress);
        try {
            HeapIndexFile::write(opened->heap, options.dumpNumber, options.index, &progress);
        } catch (const HeapReadError& e) {
            throw ClientError(ExitCode::CannotWrite, "heap.index", e.what());
        }
    }
}

void HeapSession::sumLargeObjects() {
    if (model().resultsOnly) {
        return;
    }
    for (const LargeObject& object : model().largeObjects) {
        WayToRoots way(*this);
        for (int row = object.row; row != 0; row = way.above(row)) {
            opened->beyondStored[row] += object.size - HeapModel::LARGEST_STORED;
        }
    }
}

int HeapSession::WayToRoots::above(int row) {
    if (++steps > session.model().rowCount()) {
        throw HeapIndexError("damaged index " + session.options.index +
                             ": dominators lead in a circle");
    }
    return session.storage().getDominator(row);
}

int64_t HeapSession::beyondOf(int row) const {
    const auto found = opened->beyondStored.find(row);
    return found == opened->beyondStored.end() ? 0 : found->second;
}

void HeapSession::verify() {
    HeapProgress progress(console);
    DominatorCheck check;
    if (!model().resultsOnly) {
        check = verifyDominators(storage(), opened->roots.data(), int(opened->roots.size()),
                                 nullptr, &progress);
    }
    if (check.violated) {
        throw ClientError(ExitCode::Refused, "heap.verify",
                          std::string("dominators are wrong: ") + check.violated + " at rows " +
                              std::to_string(check.row) + " and " + std::to_string(check.other));
    }
    int row = verifyRetainedSizes(storage());
    if (row != 0) {
        throw ClientError(ExitCode::Refused, "heap.verify",
                          "retained sizes are wrong at row " + std::to_string(row));
    }
    console.note(model().resultsOnly ? "retained sizes verified"
                                     : "dominators and retained sizes verified");
}

const RefTable& HeapSession::referrers() const {
    if (storage().getBackwardReferences() == nullptr) {
        withHeapErrors(options.file, [&] {
            HeapProgress progress(console);
            ensureBackwardReferences(storage(), options.threads, &progress);
        });
    }
    return *storage().getBackwardReferences();
}

int HeapSession::rowOf(const std::string& text) const {
    std::string digits = startsWith(text, "@") ? text.substr(1) : text;
    char* end = nullptr;
    errno = 0;
    unsigned long long id = strtoull(digits.c_str(), &end, 0);
    bool isNumber = !digits.empty() && isdigit(static_cast<unsigned char>(digits[0])) &&
                    *end == '\0' && errno == 0;
    if (!isNumber) {
        throw ClientError(ExitCode::Usage, "heap.id",
                          "\"" + printable(text, 100) + "\" is no object identifier",
                          "identifiers look like 0x7f0a4c18; reports print them");
    }
    int row = model().rowOfId(id);
    if (row == 0) {
        throw ClientError(ExitCode::Refused, "heap.noobject",
                          "the heap holds no object " + printable(text, 100));
    }
    return row;
}

std::vector<int> HeapSession::classesByPattern(const std::string& pattern) const {
    std::vector<int> result;
    for (size_t i = 0; i < model().classes.size(); i++) {
        if (classNameMatches(pattern, model().classes[i].name)) {
            result.push_back(int(i));
        }
    }
    return result;
}

} // namespace vdk
