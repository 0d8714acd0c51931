#include "client/attach/Namespaces.h"

#include "client/console/Errors.h"
#include "platform/Platform.h"

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

} // namespace vdk
