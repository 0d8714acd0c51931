// Entering the namespaces of other processes, which the kernel allows to root only.
#pragma once

#include "client/console/Descriptor.h"

namespace vdk {

// While it lives, the calling thread is in the namespace that the descriptor (an opened
// /proc/<pid>/ns/<kind>) stands for. What was made there, a socket for one, stays there.
class NamespaceVisit {
public:
    NamespaceVisit(const char* kind, const Descriptor& target);
    ~NamespaceVisit();
    NamespaceVisit(const NamespaceVisit&) = delete;
    NamespaceVisit& operator=(const NamespaceVisit&) = delete;

    bool succeeded() const { return entered; }

private:
    Descriptor own;
    bool entered = false;
};

} // namespace vdk
