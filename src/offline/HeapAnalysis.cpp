#include "offline/HeapAnalysis.h"

#include "offline/Reachability.h"
#include "offline/ScratchColumn.h"
#include "offline/SearchOrderDominators.h"

namespace {

int analyze(ObjectStorage& storage, const int* roots, int rootCount, const int* reachableBits,
            int* reachedBits, int threads, AnalysisProgress* progress) {
    int reached = 0;
    {
        const SearchOrderDominators computer(storage, roots, rootCount, reachableBits, threads,
                                             progress);
        reached = computer.getReachedCount();
        if (reachedBits != nullptr) {
            computer.copyReached(reachedBits);
        }
    }
    reportProgress(progress, "retained sizes", 0, 1);
    storage.calculateRetainedSizes();
    return reached;
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
