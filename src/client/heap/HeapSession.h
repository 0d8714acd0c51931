// An opened heap for the commands of `vdk heap`: file, index and analysis, with progress, and all
// failures as ClientError.
#pragma once

#include "client/console/Console.h"
#include "heapfile/HeapIndexFile.h"
#include "heapfile/HeapModel.h"
#include "offline/Reachability.h"

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace vdk {

struct HeapOptions {
    std::string file;
    std::string index;        // path of the index file, empty for none
    std::string temporaryDir; // for inflating, empty for the default
    int dumpNumber = 1;
    int threads = 2;
    bool graphNeeded = true; // the report needs classes, roots or references
    bool verify = false;     // check dominators and retained sizes after computing or loading them
};

// Runs code that reads a heap or its index; what their libraries throw becomes a ClientError.
void withHeapErrors(const std::string& file, const std::function<void()>& code);

class HeapSession {
    struct Opened {
        AnalyzedHeap heap;
        std::vector<int> roots;
        // Bytes that the stored retained sizes lack for objects larger than their column can hold.
        std::unordered_map<int, int64_t> beyondStored;
    };

public:
    // While one lives, the sessions of its file and dump share what the first of them opened, with
    // the analysis. One at a time.
    class Sharing {
    public:
        explicit Sharing(const HeapOptions& options);
        ~Sharing();
        Sharing(const Sharing&) = delete;
        Sharing& operator=(const Sharing&) = delete;

    private:
        friend class HeapSession;
        static Sharing* current;
        const HeapOptions options;
        std::shared_ptr<Opened> opened;
    };

    // Opens the file. With `analyze` dominators and retained sizes are there afterwards, from the
    // index if there is a good one, and the index is written if it was asked for. Remarks about the
    // file go to the console. Throws ClientError.
    HeapSession(Console& console, const HeapOptions& options, bool analyze);
    ~HeapSession();

    const HeapModel& model() const { return *opened->heap.model; }
    ObjectStorage& storage() const { return *opened->heap.model->storage; }
    // How many may work on a report at once, 1 at least.
    int threads() const { return options.threads < 1 ? 1 : options.threads; }
    // Whether further questions about the heap are likely: what they all need is worth its price.
    bool isShared() const { return sharingOf(options) != nullptr; }
    bool isReached(int row) const {
        const std::vector<int>& bits = opened->heap.reachedBits;
        return !bits.empty() && isMarked(bits.data(), row);
    }
    // The rows that refer to each row, of an analyzed heap. Made when first asked for.
    const RefTable& referrers() const;
    const std::vector<int>& reachedBits() const { return opened->heap.reachedBits; }
    // Rows of all roots, each once, ascending.
    const std::vector<int>& rootRows() const { return opened->roots; }
    // Bytes of an object itself, -1 for a row never made.
    int64_t sizeOf(int row) const { return model().sizeOf(row); }
    // Bytes of all that goes when the object goes.
    int64_t retainedOf(int row) const {
        const int64_t stored = storage().getRetainedSize(row);
        return opened->beyondStored.empty() ? stored : stored + beyondOf(row);
    }

    // Whether retainedOf is more than the storage's column tells, of any row.
    bool hasLargeRetained() const { return !opened->beyondStored.empty(); }

    // From dominator to dominator, one way after another no longer than there are rows. Throws
    // HeapIndexError where a damaged index leads in a circle.
    class WayToRoots {
    public:
        explicit WayToRoots(const HeapSession& of) : session(of) {}
        int above(int row); // 0: the roots
        void restart() { steps = 0; }

    private:
        const HeapSession& session;
        int steps = 0;
    };

    // Row of an identifier as people write it: "0x7f.." of a JVM's dump, a decimal row number of a
    // snapshot. Throws ClientError if there is no such object.
    int rowOf(const std::string& text) const;
    // Classes whose name is `pattern`, where "*" is any run of characters. Indices in
    // model().classes.
    std::vector<int> classesByPattern(const std::string& pattern) const;

private:
    static Sharing* sharingOf(const HeapOptions& options);
    void openFile(bool analyze);
    void read(bool analyze);
    void takeResults();
    void compute();
    void sumLargeObjects();
    int64_t beyondOf(int row) const;
    void verify();

    Console& console;
    HeapOptions options;
    std::shared_ptr<Opened> opened;
};

} // namespace vdk
