// Acting as another process would, in its namespaces and as its user; the kernel allows that to
// root only.
#pragma once

#include "client/console/Descriptor.h"

#include <sys/types.h>

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

// While it lives, file and socket operations of this process happen as the target's user. Does
// nothing unless this process is root. Not for programs with several threads.
class TargetCredentials {
public:
    TargetCredentials(uid_t uid, gid_t gid);
    ~TargetCredentials();
    TargetCredentials(const TargetCredentials&) = delete;
    TargetCredentials& operator=(const TargetCredentials&) = delete;

private:
    bool switched = false;
};

} // namespace vdk
