#pragma once

// PrimeFinder: the capacities that hash tables may have. Neighbours stand a few percent apart, so
// that doubling lands close to the wanted size. The next prime at or above a request is taken.
class PrimeFinder {
public:
    static constexpr int PRIME_CAPACITIES_COUNT = 245;
    static constexpr int LARGEST_PRIME = 2147483647;
    static const int PRIME_CAPACITIES[PRIME_CAPACITIES_COUNT];

    // Index of n in PRIME_CAPACITIES, or the complement of the index at which n would go.
    static int binary_search(int n);

    // The smallest prime of the table at or above n.
    static int nextPrime(int n);
};
