#include "db/ZIntChunkMap2.h"

#include "core/ground/Logger.h"

ZIntChunkMap2::ZIntChunkMap2(int wantedCapacity, int defaultValue, int wantedRowLength)
    : chunks((wantedCapacity >> CHUNK_SHIFT) + 1), defaultInt(defaultValue),
      rowLength(wantedRowLength) {
    Logger::assertTrue(wantedCapacity >= 1, VDK_HERE);
    Logger::assertTrue(wantedRowLength >= 1, VDK_HERE);
}
