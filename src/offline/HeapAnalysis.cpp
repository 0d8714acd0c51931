#include "offline/HeapAnalysis.h"

#include "offline/BackwardReferences.h"
#include "offline/MemAllocator.h"
#include "offline/Reachability.h"
#include "offline/SearchOrderDominators.h"
#include "offline/ThreadPair.h"
#include "platform/Platform.h"

#include <atomic>

namespace {

// A zeroed array of ints, released at the end of the block.
class ScratchInts {
public:
    explicit ScratchInts(int count)
        : bytes(static_cast<size_t>(count) * sizeof(int)),
          ints(static_cast<int*>(MemAllocator::allocateZeroed(bytes))) {}
    ~ScratchInts() { MemAllocator::release(ints, bytes); }
    ScratchInts(const ScratchInts&) = delete;
    ScratchInts& operator=(const ScratchInts&) = delete;
    int* get() const { return ints; }
    void drop() {
        MemAllocator::release(ints, bytes);
        ints = nullptr;
    }

private:
    size_t bytes;
    int* ints;
};

// Ends the building of backward references when the flag is raised.
class StopWhen : public AnalysisProgress {
public:
    explicit StopWhen(const std::atomic<bool>& flag) : stop(flag) {}
    bool proceed(const char*, long, long) override { return !stop; }

private:
    const std::atomic<bool>& stop;
};

// Builds the backward references on a second thread and waits for them when the search has ended.
class BackwardBuilder : public AfterSearch {
public:
    BackwardBuilder(ObjectStorage& filled, const int* reachableBits, HeapAnalysisResult& timed)
        : storage(filled), bits(reachableBits), result(timed), counts(filled.getObjectCount()),
          stop(false), stopWhen(stop), code{*this}, helper(code, &stop) {}
    ~BackwardBuilder() override { stop = true; }

    void searchEnded() override {
        const long searched = Platform::monotonicTimeNs();
        result.searchNs = searched - started;
        rethrowOutcome(helper.join());
        counts.drop();
        ended = Platform::monotonicTimeNs();
        result.backwardNs = ended - searched;
    }
    long endedNs() const { return ended; }

private:
    struct Code {
        BackwardBuilder& builder;
        void operator()() {
            computeBackwardReferences(builder.storage, builder.bits, builder.counts.get(), 1,
                                      &builder.stopWhen);
        }
    };

    ObjectStorage& storage;
    const int* bits;
    HeapAnalysisResult& result;
    ScratchInts counts;
    std::atomic<bool> stop;
    StopWhen stopWhen;
    const long started = Platform::monotonicTimeNs();
    long ended = 0;
    Code code;
    HelperThread<Code> helper;
};

// Notes when the search ended; the backward references are there already.
class SearchTimer : public AfterSearch {
public:
    explicit SearchTimer(HeapAnalysisResult& timed)
        : result(timed), started(Platform::monotonicTimeNs()) {}
    void searchEnded() override {
        ended = Platform::monotonicTimeNs();
        result.searchNs = ended - started;
    }
    long endedNs() const { return ended; }

private:
    HeapAnalysisResult& result;
    long started;
    long ended = 0;
};

class Analysis {
public:
    Analysis(ObjectStorage& filled, const int* rootRows, int roots, const int* bits, int* reached,
             AnalysisProgress* told)
        : storage(filled), rootList(rootRows), rootCount(roots), reachableBits(bits),
          reachedBits(reached), progress(told) {}

    HeapAnalysisResult run(int threads) {
        if (storage.getBackwardReferences() != nullptr) {
            dominators<SearchTimer>(result);
        } else if (threads < 2) {
            const long before = Platform::monotonicTimeNs();
            ScratchInts counts(storage.getObjectCount());
            computeBackwardReferences(storage, reachableBits, counts.get(), 1, progress);
            counts.drop();
            result.backwardNs = Platform::monotonicTimeNs() - before;
            dominators<SearchTimer>(result);
        } else {
            dominators<BackwardBuilder>(storage, reachableBits, result);
        }
        const long before = Platform::monotonicTimeNs();
        reportProgress(progress, "retained sizes", 0, 1);
        storage.calculateRetainedSizes();
        result.retainedNs = Platform::monotonicTimeNs() - before;
        return result;
    }

private:
    template <typename Observer, typename... Arguments>
    void dominators(Arguments&&... arguments) {
        Observer observer(arguments...);
        SearchOrderDominators computer(storage, rootList, rootCount, reachableBits, progress,
                                       &observer);
        result.dominatorsNs = Platform::monotonicTimeNs() - observer.endedNs();
        result.reachedRows = computer.getReachedCount();
        if (reachedBits != nullptr) {
            for (int row = 1; row < storage.getObjectCount(); row++) {
                if (computer.isReached(row)) {
                    setMark(reachedBits, row);
                }
            }
        }
    }

    ObjectStorage& storage;
    const int* rootList;
    int rootCount;
    const int* reachableBits;
    int* reachedBits;
    AnalysisProgress* progress;
    HeapAnalysisResult result;
};

} // namespace

HeapAnalysisResult analyzeHeap(ObjectStorage& storage, const int* roots, int rootCount,
                               const int* reachableBits, int* reachedBits, int threads,
                               AnalysisProgress* progress) {
    if (reachedBits != nullptr) {
        for (int i = 0; i < bitFieldWords(storage.getObjectCount()); i++) {
            reachedBits[i] = 0;
        }
    }
    if (reachableBits != nullptr) {
        return Analysis(storage, roots, rootCount, reachableBits, reachedBits, progress)
            .run(threads);
    }
    ScratchInts all(bitFieldWords(storage.getObjectCount()));
    for (int i = 0; i < bitFieldWords(storage.getObjectCount()); i++) {
        all.get()[i] = -1;
    }
    return Analysis(storage, roots, rootCount, all.get(), reachedBits, progress).run(threads);
}
