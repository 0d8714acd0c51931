#include "offline/OIDProcessor.h"

#include "core/ground/Logger.h"

#include <cstdlib>

namespace {

template <typename T>
int compareIds(const void* left, const void* right) {
    const T a = *static_cast<const T*>(left);
    const T b = *static_cast<const T*>(right);
    return a < b ? -1 : a > b ? 1 : 0;
}

} // namespace

OIDProcessor::OIDProcessor(bool wide, int most)
    : capacity(most), count(0), wideIds(nullptr), ids(nullptr) {
    Logger::assertTrue(most >= 0, VDK_HERE);
    if (wide) {
        wideIds = new long[static_cast<size_t>(most)];
    } else {
        ids = new int[static_cast<size_t>(most)];
    }
}

OIDProcessor::~OIDProcessor() {
    delete[] wideIds;
    delete[] ids;
}

void OIDProcessor::processOIDs(const long* oids, int added) {
    Logger::assertTrue(added >= 0 && added <= capacity - count, VDK_HERE);
    for (int i = 0; i < added; i++) {
        if (wideIds != nullptr) {
            wideIds[count] = oids[i];
        } else {
            // Ids of 32 bits may come with or without their sign.
            const int narrow = static_cast<int>(oids[i]);
            const bool fits = oids[i] == narrow || oids[i] == static_cast<unsigned>(narrow);
            Logger::assertTrue(fits, VDK_HERE);
            ids[count] = narrow;
        }
        count++;
    }
}

void OIDProcessor::convertOIDsToIndices() {
    if (wideIds != nullptr) {
        qsort(wideIds, static_cast<size_t>(count), sizeof(long), compareIds<long>);
    } else {
        qsort(ids, static_cast<size_t>(count), sizeof(int), compareIds<int>);
    }
}

int OIDProcessor::getIndex(long oid) const {
    if (wideIds == nullptr) {
        const int narrow = static_cast<int>(oid);
        if (oid != narrow && oid != static_cast<unsigned>(narrow)) {
            return 0;
        }
        oid = narrow;
    }
    int low = 0;
    int high = count - 1;
    while (low <= high) {
        const int middle = low + (high - low) / 2;
        const long found = idAt(middle);
        if (found == oid) {
            return middle + 1;
        }
        if (found < oid) {
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
    return 0;
}
