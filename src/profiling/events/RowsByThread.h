#pragma once

#include "core/ground/ZMap.h"
#include "core/ground/ZSet.h"
#include "core/ground/ZVector.h"

// For maps from a key, whose field a is the number of a thread, to a row of a table: takes the keys
// of these threads out and calls merge(key, row) for each. The set must not be null; merge may
// insert into the map.
template <typename Key, typename Merge>
void takeRowsOfThreads(ZMap<Key, int>& rows, ZSet<int>* trns, Merge&& merge) {
    Logger::assertNotNULL(trns, VDK_HERE);
    // What is merged goes into the same map, which may move its slots: keys are collected first.
    ZVector<Key> keys;
    const int slots = rows.getSize() == 0 ? 0 : rows.getCapacity();
    for (int slot = 0; slot < slots; slot++) {
        if (rows.isFull(slot) && trns->contains(rows.keyAt(slot).a)) {
            keys.push(rows.keyAt(slot));
        }
    }
    for (int i = 0; i < keys.getSize(); i++) {
        merge(keys[i], rows.remove(keys[i]));
    }
    rows.compact();
}
