#include "heapfile/HeapSizing.h"

std::string HeapSizing::text() const {
    if (fromJvm) {
        return "as the JVM reported them when the snapshot was taken";
    }
    std::string result = "references of " + std::to_string(reference) + " bytes, object header " +
                         std::to_string(header) + ", array header " + std::to_string(arrayHeader) +
                         ", alignment " + std::to_string(alignment);
    const std::string share = std::to_string(exactArrays) + " of " + std::to_string(arrays);
    if (arrays == 0) {
        result += " (assumed, the dump has nothing to judge by)";
    } else if (isAssumed()) {
        result += " (assumed: " + share +
                  " sampled arrays end where the next object begins, so sizes are estimates)";
    } else {
        result += " (" + share + " sampled arrays end exactly where the next object begins)";
    }
    return result + "; instance sizes of " + std::to_string(agreeingClasses) + " of " +
           std::to_string(classes) +
           " classes with instances agree with the distances between objects, the others are "
           "computed from their fields";
}
