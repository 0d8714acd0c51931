#include "client/profile/ThreadState.h"

namespace vdk {

const char* threadStateName(int state) {
    // The most telling bit first; the values are those of the JVM Tool Interface.
    static const struct {
        int bit;
        const char* name;
    } states[] = {
        {0x2, "ended"},     {0x100000, "suspended"}, {0x400, "blocked"},      {0x200, "parked"},
        {0x40, "sleeping"}, {0x80, "waiting"},       {0x400000, "in native"}, {0x4, "running"},
    };
    for (const auto& entry : states) {
        if (state & entry.bit) {
            return entry.name;
        }
    }
    return state & 1 ? "alive" : "new";
}

} // namespace vdk
