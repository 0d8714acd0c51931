// Where the agent library is, and how a target that sees other files gets it.
#pragma once

#include "client/attach/Attach.h"
#include "client/attach/ProcFs.h"
#include "client/console/Descriptor.h"
#include "client/console/Errors.h"

#include <string>
#include <vector>

namespace vdk {

// The library's absolute path: `given` (the option --agent), the environment variable VDK_AGENT,
// or libvdkagent.so beside this program, in ../lib or in ../lib/vdk. Throws ClientError (with
// `code`) "agent.missing".
std::string findAgentLibrary(const std::string& given, ExitCode code);

// The path that --agent or VDK_AGENT names, as it was given; "" if neither does.
std::string namedAgentLibrary(const std::string& given);

// The folder for a program of this user: "vdk-<uid>" of mode 0700 below XDG_RUNTIME_DIR, else below
// /tmp. Where somebody else has that name, or could write into it, one with a name of its own:
// another local user could change what the agent loads otherwise. Throws ClientError CannotWrite
// "tmpdir" if there can be none.
std::string ownPrivateDirectory();

// The last reason for not starting in the log of the agent in that process; "" if there is none.
std::string refusalInLog(const ProcFs& processes, const ProcessStatus& target);

// Files that the target needs for the time of the attach, in private folders; removed at the end.
// Paths are those that the target sees.
class AttachFiles {
public:
    // `userFolder` is where the user wants such files; "" leaves the choice to this object. Throws
    // ClientError AttachRefused "attach.file" if no folder of the target can be written.
    AttachFiles(const ProcFs& processes, const ProcessStatus& target,
                const std::string& userFolder = {});
    ~AttachFiles();
    AttachFiles(const AttachFiles&) = delete;
    AttachFiles& operator=(const AttachFiles&) = delete;

    // The private folder of the target's user.
    const std::string& directory() const { return places.front().path; }

    // The library at `named` if the target has one there itself.
    bool hasOwnLibrary(const std::string& named) const;

    // The library itself if the target can open it, else a copy. Throws ClientError AttachRefused
    // "agent.noexec" if the target has no folder that is writable and allows programs.
    std::string provideLibrary(const std::string& path);

    // A name in the private folder for a file that the target makes itself.
    std::string reserve(const std::string& name);

    // What the target has made there, for reading; invalid if that is nothing.
    Descriptor openReserved(const std::string& path) const;

    // A file of mode 0600 with this text.
    std::string provideText(const std::string& name, const std::string& text);

private:
    struct Place {
        Descriptor folder;
        std::string path;
        bool executable;
    };
    struct Created {
        const Place* place;
        std::string name;
    };
    bool addPlace(const std::string& base);
    std::string create(const Place& place, const std::string& name, const std::string& bytes);

    ProcessStatus target;
    bool shared;
    Descriptor root;
    std::vector<Place> places; // the first for data; never changed once made
    std::vector<Created> created;
};

} // namespace vdk
