#include "db/ThreadFrameIndex.h"

#include "db/DB.h"

#include <cstdlib>

namespace {

int highestFirst(const void* left, const void* right) {
    const int a = *static_cast<const int*>(left);
    const int b = *static_cast<const int*>(right);
    return a < b ? 1 : a > b ? -1 : 0;
}

} // namespace

ZIntChunkMap<int>* ThreadFrameIndex::mapOf(int threadIndex) {
    while (maps.getSize() <= threadIndex) {
        maps.push(nullptr);
    }
    ZIntChunkMap<int>*& map = maps[threadIndex];
    if (map == nullptr) {
        map = new ZIntChunkMap<int>(MAP_CHUNKS, NO_TFI);
    }
    return map;
}

int ThreadFrameIndex::createTFI(int threadIndex, int frame) {
    ZIntChunkMap<int>* map = mapOf(threadIndex);
    const int tfi = db->threadFrameTable->nextIndex();
    ThreadFrameRecord* record = db->threadFrameTable->getRecord(tfi, true);
    record->tfiThreadIndex = threadIndex;
    record->frame = frame;
    record->stamp = db->currentStamp;
    map->put(frame, tfi);
    return tfi;
}

template <typename Visitor>
void ThreadFrameIndex::eachPair(int threadIndex, Visitor&& visit) {
    const ZIntChunkMap<int>* map = maps[threadIndex];
    for (int chunk = 0; chunk < map->getChunkCount(); chunk++) {
        const int* tfis = map->chunkAt(chunk);
        if (tfis == nullptr) {
            continue;
        }
        for (int slot = 0; slot < ZIntChunkMap<int>::CHUNK_SIZE; slot++) {
            if (tfis[slot] != NO_TFI) {
                visit(tfis[slot], (chunk << ZIntChunkMap<int>::CHUNK_SHIFT) + slot);
            }
        }
    }
}

void ThreadFrameIndex::changeThread(int threadIndex) {
    if (threadIndex >= maps.getSize() || maps[threadIndex] == nullptr) {
        return;
    }
    Logger::assertNotNULL(db->oldestFinishedThreads, VDK_HERE);
    db->oldestFinishedThreads->needsWallTimeCorrection = true;
    eachPair(threadIndex, [this](int tfi, int frame) { changeFrame(tfi, frame); });
    delete maps[threadIndex];
    maps[threadIndex] = nullptr;
}

void ThreadFrameIndex::deleteTimes(int threadIndex) {
    if (threadIndex >= maps.getSize() || maps[threadIndex] == nullptr) {
        return;
    }
    eachPair(threadIndex, [this](int tfi, int) {
        CPUProfilingRecord* record = db->cpuProfilingTable->getRecord(tfi, false);
        if (record != nullptr) {
            record->timeNs = 0;
            record->count = 0;
            record->stamp = -db->currentStamp;
        }
    });
}

void ThreadFrameIndex::deletePair(int tfi) {
    ThreadFrameRecord* pair = db->threadFrameTable->getRecord(tfi, true);
    pair->tfiThreadIndex = 0;
    pair->frame = 0;
    pair->stamp = -db->currentStamp;
}

bool ThreadFrameIndex::isUsed(int tfi) {
    return db->cpuProfilingTable->getRecordModificationStamp(tfi) > 0 ||
           db->allocInfoTable->getRecordModificationStamp(tfi) > 0;
}

void ThreadFrameIndex::freeUnused() {
    ZVector<int> unused;
    for (int thread = 0; thread < maps.getSize(); thread++) {
        if (maps[thread] == nullptr) {
            continue;
        }
        int used = 0;
        eachPair(thread, [&](int tfi, int frame) {
            if (isUsed(tfi)) {
                used++;
                return;
            }
            deletePair(tfi);
            maps[thread]->put(frame, NO_TFI);
            unused.push(tfi);
        });
        if (used == 0) {
            delete maps[thread];
            maps[thread] = nullptr;
        }
    }
    // The last released comes back first: low numbers keep the tables dense.
    qsort(unused.data(), static_cast<size_t>(unused.getSize()), sizeof(int), highestFirst);
    for (int i = 0; i < unused.getSize(); i++) {
        db->threadFrameTable->releaseIndex(unused[i]);
    }
}

void ThreadFrameIndex::changeFrame(int tfi, int frame) {
    const int stamp = db->currentStamp;
    deletePair(tfi);
    const int oldest = db->oldestFinishedThreads->tfiThreadIndex;
    // A row that was never stored, or deleted since, has nothing to add.
    CPUProfilingRecord* time = db->cpuProfilingTable->getRecord(tfi, false);
    if (time != nullptr && time->stamp > 0) {
        const int merged = getTFI(oldest, frame, true);
        CPUProfilingRecord* to = db->cpuProfilingTable->getRecord(merged, true);
        to->timeNs += time->timeNs;
        to->count += time->count;
        to->stamp = stamp;
        *time = CPUProfilingRecord();
        time->stamp = -stamp;
    }
    AllocInfoRecord* objects = db->allocInfoTable->getRecord(tfi, false);
    if (objects != nullptr && objects->stamp > 0) {
        const int merged = getTFI(oldest, frame, true);
        AllocInfoRecord* to = db->allocInfoTable->getRecord(merged, true);
        to->objectCount += objects->objectCount;
        to->objectBytes += objects->objectBytes;
        to->stamp = stamp;
        *objects = AllocInfoRecord();
        objects->stamp = -stamp;
    }
    // Not before the row of the merged pair was made, or that pair would get this very row.
    db->threadFrameTable->releaseIndex(tfi);
}

void ThreadFrameIndex::fillIndexFromTable() {
    clearThreadFrameIndex();
    DBTable<ThreadFrameRecord>* table = db->threadFrameTable;
    table->clearIndexPool();
    for (int i = 0; i < table->getCapacity(); i++) {
        const int tfi = table->nextIndex();
        // Keys far apart must not make chunks for what lies between.
        const ThreadFrameRecord* record = table->getRecordUnlocked(tfi);
        if (record != nullptr && (record->tfiThreadIndex != 0 || record->frame != 0)) {
            Logger::assertTrue(record->frame >= 0, VDK_HERE);
            mapOf(record->tfiThreadIndex)->put(record->frame, tfi);
        }
    }
}

void ThreadFrameIndex::clearThreadFrameIndex() {
    for (int i = 0; i < maps.getSize(); i++) {
        delete maps[i];
    }
    maps.clear();
}

long ThreadFrameIndex::getAllocatedBytes() const {
    long bytes = static_cast<long>(maps.getCapacity()) * 8 + 8;
    for (int i = 0; i < maps.getSize(); i++) {
        if (maps[i] != nullptr) {
            bytes += maps[i]->getAllocatedBytes();
        }
    }
    return bytes;
}
