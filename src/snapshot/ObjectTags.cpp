#include "snapshot/ObjectTags.h"

#include "core/ground/Logger.h"
#include "profiling/memory/Generations.h"
#include "profiling/memory/ObjectEnumerator.h"

int ObjectTags::getRecordedObjectIndex(int lowTag) {
    return ourObjectEnumerator.getAllocator(lowTag)->objectIndex;
}

jlong ObjectTags::updateTag(jlong tag, int* counter) {
    Logger::assertTrue(*counter > INT_MIN + 1, VDK_HERE);
    const int minusIndex = (*counter)--;
    unsigned low = static_cast<unsigned>(lowWord(tag));
    unsigned high = static_cast<unsigned>(generationOf(tag));
    if (lowWord(tag) > 0) {
        ourObjectEnumerator.setObjectIndex(lowWord(tag), -minusIndex);
    } else {
        low = static_cast<unsigned>(minusIndex);
    }
    if (high == 0) {
        high = static_cast<unsigned>(Generations::getCurrentGenerationID());
    }
    return static_cast<jlong>(static_cast<unsigned long>(high) << 32 | low);
}
