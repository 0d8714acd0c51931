#include "offline/RefTable.h"

namespace {

int checkedTableSize(int rowCount) {
    Logger::assertTrue(rowCount >= 0 && rowCount <= 0x3fffffff, VDK_HERE);
    return rowCount * 2;
}

} // namespace

RefTable::RefTable(const char* tableName, int rows)
    : rowCount(rows), startsAndCounts((ZString(tableName) + "-sc").c_str(), checkedTableSize(rows)),
      references((ZString(tableName) + "-r").c_str()), nextFree(0) {}

RefTable::RefTable(const char* tableName, int rows, InOrder lists)
    : rowCount(rows), inOrder(true),
      startsAndCounts((ZString(tableName) + "-sc").c_str(), checkedTableSize(rows) / 2 + 1),
      references((ZString(tableName) + "-r").c_str()), nextFree(0) {
    reserve(lists.total);
}

RefTable::RefTable(const char* tableName, int rows, const StoredLists* lists)
    : rowCount(rows), stored(lists), startsAndCounts((ZString(tableName) + "-sc").c_str(), 0),
      references((ZString(tableName) + "-r").c_str()), nextFree(0) {}

void RefTable::createRefs(int row, int count) {
    Logger::assertTrue(row >= 0 && row < rowCount && !inOrder, VDK_HERE);
    const bool fits = count >= 0 && count <= 0x7fffffff - nextFree;
    Logger::assertTrue(fits, VDK_HERE);
    startsAndCounts.set(2 * row, nextFree);
    startsAndCounts.set(2 * row + 1, count);
    nextFree += count;
}

void RefTable::reserve(int total) {
    Logger::assertTrue(total >= 0, VDK_HERE);
    references.ensure(total);
    nextFree = total;
}

void RefTable::setList(int row, int start, int count) {
    Logger::assertTrue(row >= 0 && row < rowCount, VDK_HERE);
    const bool fits = start >= 0 && count >= 0 && start <= nextFree - count;
    Logger::assertTrue(fits, VDK_HERE);
    if (inOrder) {
        Logger::assertTrue(startsAndCounts.get(row) == start, VDK_HERE);
        startsAndCounts.set(row + 1, start + count);
        return;
    }
    startsAndCounts.set(2 * row, start);
    startsAndCounts.set(2 * row + 1, count);
}

bool RefTable::isSound(int objectCount) const {
    for (int row = 0; row < rowCount; row++) {
        const int start = getStart(row);
        const int count = getCount(row);
        if (start < 0 || count < 0 || start > 0x7fffffff - count) {
            return false;
        }
        BigIntArrayIterator64 list(references, start, start + count);
        while (list.hasNext()) {
            const int reference = list.next();
            if (reference < 0 || reference >= objectCount) {
                return false;
            }
        }
    }
    return true;
}
