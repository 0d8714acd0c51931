// Where the agent library is, and how a target that sees other files gets it.
#pragma once

#include "client/attach/Attach.h"
#include "client/attach/ProcFs.h"
#include "client/console/Errors.h"

#include <string>

namespace vdk {

// The library's absolute path: `given` (the option --agent), the environment variable VDK_AGENT,
// or libvdkagent.so beside this program, in ../lib or in ../lib/vdk. Throws ClientError (with
// `code`) "agent.missing".
std::string findAgentLibrary(const std::string& given, ExitCode code);

// A folder "vdk-<uid>" of mode 0700 below `base`, made where it is missing. Throws ClientError
// CannotWrite "tmpdir" if something else has that name, or others could write into it: another
// local user could change what the agent loads.
std::string makePrivateDirectory(const std::string& base, uid_t uid);

// The folder for a program of this user: below XDG_RUNTIME_DIR, else below /tmp.
std::string ownPrivateDirectory();

// Files that the target needs for the time of the attach, in its private folder; removed at the
// end. Paths are those that the target sees.
class AttachFiles {
public:
    AttachFiles(const ProcFs& processes, const ProcessStatus& target);
    ~AttachFiles();
    AttachFiles(const AttachFiles&) = delete;
    AttachFiles& operator=(const AttachFiles&) = delete;

    // The private folder of the target's user.
    const std::string& directory() const { return folder; }

    // The library itself if the target can open it, else a copy.
    std::string provideLibrary(const std::string& path);

    // A file of mode 0600 with this text.
    std::string provideText(const std::string& name, const std::string& text);

private:
    std::string create(const std::string& name, const std::string& bytes);

    ProcessStatus target;
    bool shared;
    std::string folder;
    std::string prefix; // in front of `folder`, for this process
    std::vector<std::string> created;
};

} // namespace vdk
