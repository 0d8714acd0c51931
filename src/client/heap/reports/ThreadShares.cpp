#include "client/heap/reports/ThreadShares.h"

#include "client/heap/reports/OwnerWalk.h"

namespace vdk {

std::vector<HeapThreadShare> threadShares(const HeapSession& session) {
    const HeapModel& model = session.model();
    OwnerWalk walk(session);
    for (size_t i = 0; i < model.threads.size(); i++) {
        walk.fix(model.threads[i].row, int(i) + 1);
    }
    for (const bool ofThreads : {false, true}) {
        for (const HeapRoot& root : model.roots) {
            if ((root.thread >= 0) == ofThreads) {
                walk.reach(root.row, ofThreads ? root.thread + 1 : OwnerWalk::Shared);
            }
        }
    }
    std::vector<HeapThreadShare> shares(model.threads.size());
    walk.eachOwned([&](int owner, int64_t size) {
        shares[size_t(owner) - 1].count++;
        shares[size_t(owner) - 1].bytes += size;
    });
    return shares;
}

} // namespace vdk
