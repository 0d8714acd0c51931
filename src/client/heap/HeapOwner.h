// Who uses an array or collection: the object or static field of the program behind it.
#pragma once

#include "client/heap/HeapSession.h"

#include <string>
#include <tuple>

namespace vdk {

class HeapOwner {
public:
    // Goes up from referrer to referrer, past arrays and what java.util puts around its data.
    static HeapOwner of(const HeapSession& session, int row);

    // "demo.Cache.map", "static demo.Cache.MAP", "(no referrer)".
    std::string text(const HeapModel& model) const;

    // Equal for the same field of the same class.
    bool operator<(const HeapOwner& other) const {
        return std::tie(type, place) < std::tie(other.type, other.place);
    }

private:
    int row = 0;
    int position = 0;
    int type = -1;  // class of the owner, for a static field -2 - the class that has it
    int place = -1; // the position, -1 for any element
};

} // namespace vdk
