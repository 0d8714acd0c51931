#include "client/heap/HeapRowPass.h"

namespace vdk {

void HeapRowBlock::load(const HeapSession& session, unsigned wanted, int from, int end) {
    const HeapModel& model = session.model();
    ObjectStorage& storage = session.storage();
    firstRow = from;
    count = std::min(end - from, MostRows);
    const bool isStored = storage.getStored() != nullptr;
    if ((wanted & Classes) != 0) {
        for (int i = 0; i < count; i++) {
            classes[size_t(i)] = model.classOf(from + i);
        }
    }
    if ((wanted & Sizes) != 0) {
        if (isStored || !model.largeObjects.empty()) {
            for (int i = 0; i < count; i++) {
                sizes[size_t(i)] = session.sizeOf(from + i);
            }
        } else {
            storage.arrayOfKind(READ_SIZES)->copyTo(raw.data(), from, count);
            std::copy(raw.begin(), raw.begin() + count, sizes.begin());
        }
        // A row that nothing but a reference tells of has no size, and classes that the file only
        // mentions are no objects of it.
        for (int i = std::max(model.lastRowWithId + 1 - from, 0); i < count; i++) {
            sizes[size_t(i)] = -1;
        }
    }
    if ((wanted & Retained) != 0) {
        if (isStored || session.hasLargeRetained()) {
            for (int i = 0; i < count; i++) {
                retained[size_t(i)] = session.retainedOf(from + i);
            }
        } else {
            storage.arrayOfKind(READ_RETAINED_SIZES)->copyTo(raw.data(), 2 * from, 2 * count);
            for (size_t i = 0; i < size_t(count); i++) {
                retained[i] =
                    int64_t(uint64_t(uint32_t(raw[2 * i])) << 32 | uint32_t(raw[2 * i + 1]));
            }
        }
    }
    if ((wanted & Dominators) != 0) {
        if (isStored) {
            for (int i = 0; i < count; i++) {
                dominators[size_t(i)] = storage.getDominator(from + i);
            }
        } else {
            storage.arrayOfKind(READ_DOMINATORS)->copyTo(dominators.data(), from, count);
        }
    }
}

} // namespace vdk
