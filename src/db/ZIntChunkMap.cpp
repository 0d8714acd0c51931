#include "db/ZIntChunkMap.h"

void ZIntChunkMap<int>::put(int key, int value) {
    int* values = chunks.find(key);
    if (values == nullptr) {
        const int chunk = key >> CHUNK_SHIFT;
        if (chunk >= chunks.getCount()) {
            if (value == defaultInt) {
                return;
            }
            // Unsigned, since three times a large key leaves the range of int; such a key gets
            // exactly the chunks that it needs.
            const int tripled = static_cast<int>(static_cast<unsigned>(key) * 3u);
            const int generous = ((tripled / 2) >> CHUNK_SHIFT) + 1;
            chunks.growTo(generous > chunk ? generous : chunk + 1);
        }
        values = chunks.create(key, CHUNK_SIZE, defaultInt);
    }
    values[key & CHUNK_MASK] = value;
}
