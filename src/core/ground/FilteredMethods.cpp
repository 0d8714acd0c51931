#include "core/ground/FilteredMethods.h"

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<unsigned char*> ourBytes{nullptr};

} // namespace

const unsigned char* FilteredMethods::bytes() {
    if (ourBytes == nullptr) {
        ourBytes = static_cast<unsigned char*>(calloc(MOST_METHODS, 1));
    }
    return ourBytes;
}

void FilteredMethods::set(int method, bool isFiltered) {
    unsigned char* const bytes = ourBytes;
    if (bytes != nullptr && method >= 0 && method < MOST_METHODS) {
        // Read by traced methods without the lock.
        __atomic_store_n(bytes + method, isFiltered ? 1 : 0, __ATOMIC_RELAXED);
    }
}
