#pragma once

#include <cstdint>
#include <string>

// How the sizes of a heap's objects were found, and how well that is founded.
struct HeapSizing {
    // The JVM reported them when the snapshot was taken; nothing below is known then.
    bool fromJvm = false;
    // The layout that they are computed with, in bytes.
    uint32_t reference = 0;
    uint32_t header = 0;
    uint32_t arrayHeader = 0;
    uint32_t alignment = 0;
    // Sampled arrays, and those that end exactly where the next object begins.
    uint64_t arrays = 0;
    uint64_t exactArrays = 0;
    // Classes with instances, and those whose size agrees with the distances between objects.
    uint64_t classes = 0;
    uint64_t agreeingClasses = 0;

    // Too little in the dump speaks for the layout: sizes are estimates.
    bool isAssumed() const { return !fromJvm && (arrays == 0 || exactArrays * 2 < arrays); }
    // The same in words.
    std::string text() const;
};
