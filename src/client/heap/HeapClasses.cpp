#include "client/heap/HeapClasses.h"

#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapRowPass.h"
#include "client/heap/RetainedByGroup.h"

#include <algorithm>

namespace vdk {

namespace {

void addUp(const HeapSession& session, const RowGroups& groups, bool retained,
           std::vector<HeapClassSum>& sums) {
    struct Sum {
        int64_t count = 0;
        int64_t shallow = 0;
    };
    std::vector<std::vector<Sum>> parts(size_t(session.threads()), std::vector<Sum>(sums.size()));
    passOverRows(session, HeapRowBlock::Sizes, session.threads(),
                 [&](int worker, const HeapRowBlock& block) {
                     std::vector<Sum>& part = parts[size_t(worker)];
                     for (int i = 0; i < block.count; i++) {
                         const int64_t size = block.sizes[size_t(i)];
                         if (size >= 0) {
                             Sum& sum = part[groups.of(block.firstRow + i)];
                             sum.count++;
                             sum.shallow += size;
                         }
                     }
                 });
    for (const std::vector<Sum>& part : parts) {
        for (size_t i = 0; i < sums.size(); i++) {
            sums[i].count += part[i].count;
            sums[i].shallow += part[i].shallow;
        }
    }
    if (retained) {
        const std::vector<int64_t> bytes =
            RetainedByGroup(session, groups, sums.size(), totalOf(sums).shallow).sum();
        for (size_t i = 0; i < sums.size(); i++) {
            sums[i].retained += bytes[i];
        }
    }
}

std::vector<HeapClassSum> emptySums(const HeapModel& model) {
    std::vector<HeapClassSum> sums(model.classes.size() + 1);
    sums[0].name = "?";
    for (size_t i = 0; i < model.classes.size(); i++) {
        sums[i + 1].classIndex = int(i);
        sums[i + 1].name = model.classes[i].name;
    }
    return sums;
}

std::vector<HeapClassSum> withoutEmpty(std::vector<HeapClassSum> sums) {
    std::vector<HeapClassSum> result;
    for (HeapClassSum& sum : sums) {
        if (sum.count > 0) {
            result.push_back(std::move(sum));
        }
    }
    return result;
}

} // namespace

std::vector<HeapClassSum> sumByClass(const HeapSession& session, bool retained) {
    const HeapModel& model = session.model();
    std::vector<HeapClassSum> sums = emptySums(model);
    RowGroups groups{&model.classColumn, {}};
    if (!model.classColumn.isThere()) {
        groups.numbers.resize(size_t(model.rowCount()) + 1);
        passOverRows(
            session, HeapRowBlock::Classes, session.threads(), [&](int, const HeapRowBlock& block) {
                for (int i = 0; i < block.count; i++) {
                    groups.numbers[size_t(block.firstRow + i)] = block.classes[size_t(i)] + 1;
                }
            });
    }
    addUp(session, groups, retained, sums);
    return withoutEmpty(std::move(sums));
}

std::vector<HeapClassSum> sumByGroup(const HeapSession& session, size_t groups,
                                     const std::function<int(int row)>& groupOf, bool retained) {
    std::vector<HeapClassSum> sums(groups);
    // On this thread: the function may remember what it found.
    RowGroups numbers{nullptr, std::vector<int>(size_t(session.model().rowCount()) + 1)};
    for (int row = 1; row <= session.model().rowCount(); row++) {
        numbers.numbers[size_t(row)] = groupOf(row);
    }
    addUp(session, numbers, retained, sums);
    return sums;
}

std::vector<HeapClassSum> sumRowsByClass(const HeapSession& session, const std::vector<int>& rows) {
    const HeapModel& model = session.model();
    std::vector<HeapClassSum> sums = emptySums(model);
    for (int row : rows) {
        HeapClassSum& sum = sums[size_t(model.classOf(row) + 1)];
        sum.count++;
        sum.shallow += std::max<int64_t>(session.sizeOf(row), 0);
        sum.retained += session.retainedOf(row);
    }
    return withoutEmpty(std::move(sums));
}

HeapTotals totalsOf(const HeapSession& session, const std::vector<HeapClassSum>& sums) {
    HeapTotals totals;
    for (const HeapClassSum& sum : sums) {
        totals.count += sum.count;
        totals.shallow += sum.shallow;
    }
    std::vector<HeapTotals> parts(size_t(session.threads()));
    passOverRows(session, HeapRowBlock::Sizes, session.threads(),
                 [&](int worker, const HeapRowBlock& block) {
                     HeapTotals& part = parts[size_t(worker)];
                     for (int i = 0; i < block.count; i++) {
                         const int64_t size = block.sizes[size_t(i)];
                         if (size >= 0 && !session.isReached(block.firstRow + i)) {
                             part.unreachable++;
                             part.unreachableBytes += size;
                         }
                     }
                 });
    for (const HeapTotals& part : parts) {
        totals.unreachable += part.unreachable;
        totals.unreachableBytes += part.unreachableBytes;
    }
    return totals;
}

} // namespace vdk
