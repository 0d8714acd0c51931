#include "client/heap/reports/ThreadShares.h"

#include <algorithm>

namespace vdk {

namespace {

const int Nobody = 0;
const int Shared = -1;

class Walk {
public:
    explicit Walk(const HeapSession& session)
        : session(session), model(session.model()), owners(size_t(model.rowCount()) + 1, Nobody) {
        for (size_t i = 0; i < model.threads.size(); i++) {
            const int row = model.threads[i].row;
            if (row > 0 && threadOf.get(row) < 0) {
                threadOf.put(row, int(i));
            }
        }
    }

    std::vector<HeapThreadShare> run() {
        for (const HeapRoot& root : model.roots) {
            if (root.thread < 0) {
                take(root.row, Shared);
                drain();
            }
        }
        for (const HeapRoot& root : model.roots) {
            if (root.thread >= 0) {
                take(root.row, root.thread + 1);
                drain();
            }
        }
        std::vector<HeapThreadShare> shares(model.threads.size());
        for (int row = 1; row <= model.rowCount(); row++) {
            const int owner = owners[size_t(row)];
            if (owner > 0) {
                shares[size_t(owner) - 1].count++;
                shares[size_t(owner) - 1].bytes += std::max<int64_t>(session.sizeOf(row), 0);
            }
        }
        return shares;
    }

private:
    // An owner changes twice at most: to a thread, and to all.
    void take(int row, int owner) {
        const int thread = row == 0 ? -1 : threadOf.get(row);
        owner = thread >= 0 ? thread + 1 : owner;
        int& known = owners[size_t(row)];
        if (row == 0 || known == owner || known == Shared) {
            return;
        }
        known = known == Nobody ? owner : Shared;
        open.push_back(row);
    }
    void drain() {
        while (!open.empty()) {
            const int row = open.back();
            open.pop_back();
            const int owner = owners[size_t(row)];
            BigIntArrayIterator64 list =
                session.storage().getReferences().initReferenceIterator(row);
            while (list.hasNext()) {
                take(list.next(), owner);
            }
        }
    }

    const HeapSession& session;
    const HeapModel& model;
    RowTable threadOf;
    std::vector<int> owners; // by row: a thread's index + 1
    std::vector<int> open;
};

} // namespace

std::vector<HeapThreadShare> threadShares(const HeapSession& session) {
    return Walk(session).run();
}

} // namespace vdk
