#include "offline/HeapAnalysis.h"

#include "offline/Reachability.h"
#include "offline/ScratchColumn.h"
#include "offline/SearchOrderDominators.h"

namespace {

int analyze(ObjectStorage& storage, const int* roots, int rootCount, const int* reachableBits,
            int* reachedBits, int threads, AnalysisProgress* progress) {
    const SearchOrderDominators computer(storage, roots, rootCount, reachableBits, threads,
                                         progress);
    if (reachedBits != nullptr) {
        computer.copyReached(reachedBits);
    }
    return computer.getReachedCount();
}

} // namespace

int analyzeHeap(ObjectStorage& storage, const int* roots, int rootCount, const int* reachableBits,
                int* reachedBits, int threads, AnalysisProgress* progress) {
    if (reachableBits != nullptr) {
        return analyze(storage, roots, rootCount, reachableBits, reachedBits, threads, progress);
    }
    const int words = bitFieldWords(storage.getObjectCount());
    const ScratchColumn all(words);
    for (int i = 0; i < words; i++) {
        all.get()[i] = -1;
    }
    return analyze(storage, roots, rootCount, all.get(), reachedBits, threads, progress);
}
