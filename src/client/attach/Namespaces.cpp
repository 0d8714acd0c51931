#include "client/attach/Namespaces.h"

#include "client/console/Errors.h"
#include "platform/Platform.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>

namespace vdk {

NamespaceVisit::NamespaceVisit(const char* kind, const Descriptor& target)
    : own(open((std::string("/proc/self/ns/") + kind).c_str(), O_RDONLY | O_CLOEXEC)) {
    entered = own && target && Platform::enterNamespace(target.get());
}

NamespaceVisit::~NamespaceVisit() {
    // Going on in the wrong namespace would mean working on somebody else's JVMs.
    if (entered && !Platform::enterNamespace(own.get())) {
        _exit(static_cast<int>(ExitCode::AttachRefused));
    }
}

TargetCredentials::TargetCredentials(uid_t uid, gid_t gid) {
    if (geteuid() != 0 || (uid == 0 && gid == getegid())) {
        return;
    }
    if (setegid(gid) != 0 || seteuid(uid) != 0) {
        throw ClientError(ExitCode::AttachRefused, "attach.uid",
                          std::string("cannot become the target's user: ") + strerror(errno));
    }
    switched = true;
}

TargetCredentials::~TargetCredentials() {
    if (switched && (seteuid(0) != 0 || setegid(getgid()) != 0)) {
        _exit(static_cast<int>(ExitCode::AttachRefused));
    }
}

} // namespace vdk
