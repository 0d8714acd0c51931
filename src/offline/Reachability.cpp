#include "offline/Reachability.h"

namespace {

void push(const ObjectStorage& storage, ZVector<int>& stack, int* bits, int row) {
    const bool isRow = row >= 0 && row < storage.getObjectCount();
    Logger::assertTrue(isRow, VDK_HERE);
    if (row != 0 && !isMarked(bits, row)) {
        setMark(bits, row);
        stack.push(row);
    }
}

// Marks a row and what it reaches. The stack is empty before and after.
void markFrom(const ObjectStorage& storage, ZVector<int>& stack, int* bits, int object) {
    push(storage, stack, bits, object);
    while (!stack.isEmpty()) {
        BigIntArrayIterator64 list = storage.getReferences().initReferenceIterator(stack.pop());
        while (list.hasNext()) {
            push(storage, stack, bits, list.next());
        }
    }
}

void assertRow(const ObjectStorage& storage, int object) {
    const bool isRow = object >= 0 && object < storage.getObjectCount();
    Logger::assertTrue(isRow, VDK_HERE);
}

} // namespace

bool markReachable(RowErrors* rowErrors, const ObjectStorage& storage, const int* objects,
                   int objectCount, int* bits) {
    ZVector<int> stack;
    for (int i = 0; i < objectCount; i++) {
        assertRow(storage, objects[i]);
        if (isMarked(bits, objects[i])) {
            continue;
        }
        if (objects[i] == 0) {
            if (rowErrors != nullptr) {
                rowErrors->violated("object != 0", 0, 0);
            }
            return false;
        }
        markFrom(storage, stack, bits, objects[i]);
    }
    return true;
}

bool markAllButRetained(RowErrors* rowErrors, const ObjectStorage& storage, const int* groupBits,
                        const int* groupList, int groupSize, const int* roots, int rootCount,
                        const int* reachableBits, int* resultBits) {
    const int words = bitFieldWords(storage.getObjectCount());
    for (int i = 0; i < words; i++) {
        resultBits[i] = ~reachableBits[i] | (groupBits == nullptr || i == 0 ? 0 : groupBits[i]);
    }
    resultBits[0] &= ~1;
    if (groupBits != nullptr) {
        resultBits[0] |= groupBits[0];
    } else {
        for (int i = 0; i < groupSize; i++) {
            assertRow(storage, groupList[i]);
            setMark(resultBits, groupList[i]);
        }
    }
    return markReachable(rowErrors, storage, roots, rootCount, resultBits);
}

long sumOfMarkedSizes(const ObjectStorage& storage, const int* bits) {
    const int objectCount = storage.getObjectCount();
    long sum = 0;
    for (int word = 0; word < bitFieldWords(objectCount); word++) {
        unsigned left = static_cast<unsigned>(bits[word]);
        for (; left != 0; left &= left - 1) {
            const int row = word * 32 + __builtin_ctz(left);
            sum += row > 0 && row < objectCount ? storage.getSize(row) : 0;
        }
    }
    return sum;
}
