#pragma once

#include "core/ground/Logger.h"
#include "core/ground/ZVector.h"
#include "db/ZIntChunkMap.h"

class DB;

// ThreadFrameIndex gives each pair (thread, frame) a stable number, the TFI: a row of threadframe
// and at the same time the index of the pair's rows in cpuprofiling and allocinfo. It runs at every
// sample and every traced call: a known pair takes two array reads and a chunk read. Derived data:
// fillIndexFromTable rebuilds it. The database's owner locks.
class ThreadFrameIndex {
public:
    explicit ThreadFrameIndex(DB* database) : db(database) {}
    ~ThreadFrameIndex() { clearThreadFrameIndex(); }
    ThreadFrameIndex(const ThreadFrameIndex&) = delete;
    ThreadFrameIndex& operator=(const ThreadFrameIndex&) = delete;

    // TFI of the pair; -1 if there is none and create is false. Both numbers must not be negative.
    int getTFI(int threadIndex, int frame, bool create) {
        Logger::assertTrue(frame >= 0, VDK_HERE);
        if (threadIndex < maps.getSize()) {
            const ZIntChunkMap<int>* map = maps[threadIndex];
            if (map != nullptr) {
                const int tfi = map->get(frame);
                if (tfi != NO_TFI) {
                    return tfi;
                }
            }
        }
        return create ? createTFI(threadIndex, frame) : NO_TFI;
    }
    // Moves all rows of a thread to the database's oldestFinishedThreads and frees its TFIs.
    // Nothing to do for a thread without rows.
    void changeThread(int threadIndex);
    // Deletes the rows of cpuprofiling of a thread. Its TFIs stay: allocinfo shares them.
    void deleteTimes(int threadIndex);
    // Frees the pairs without data: those whose rows of cpuprofiling and allocinfo were cleared, or
    // never stored.
    void freeUnused();
    // Rebuilds the index from threadframe, and sets the index pool of that table to its capacity.
    void fillIndexFromTable();
    void clearThreadFrameIndex();
    long getAllocatedBytes() const;

private:
    static constexpr int NO_TFI = -1;
    static constexpr int MAP_CHUNKS = 8; // chunk pointers of a new thread's map

    // The thread's map of frame to TFI, made if need be.
    ZIntChunkMap<int>* mapOf(int threadIndex);
    int createTFI(int threadIndex, int frame);
    void changeFrame(int tfi, int frame);
    bool isUsed(int tfi);
    void deletePair(int tfi);
    // Calls visit(tfi, frame) for every pair of a thread.
    template <typename Visitor>
    void eachPair(int threadIndex, Visitor&& visit);

    ZVector<ZIntChunkMap<int>*> maps; // by tfiThreadIndex, null for a thread without rows
    DB* db;
};
