// Loading a library into a running HotSpot JVM by the JVM's own attach protocol on Linux.
//
// The JVM listens on a socket file in its folder of temporary files. Where it does not yet, a
// trigger file and SIGQUIT make it. Everything is looked at through the target's procfs folder, so
// that a JVM in a container is reached too, with the credentials of the target when the client is
// root: the JVM accepts its own user and, on newer builds, root.
#pragma once

#include "client/attach/AttachProtocol.h"
#include "client/attach/JvmList.h"
#include "client/attach/Namespaces.h"
#include "client/attach/ProcFs.h"
#include "client/console/Descriptor.h"

#include <string>
#include <vector>

namespace vdk {

// Major Java release of a version text ("1.8.0_292", "17.0.15", "25"); 0 if there is none.
int javaMajor(const std::string& version);

class Attacher {
public:
    // Throws ClientError AttachRefused when the JVM cannot be attached to for certain:
    // "attach.gone", "attach.stopped", "attach.openj9", "attach.uid", "attach.disabled", "jvm.old".
    Attacher(const ProcFs& processes, const Jvm& jvm, int timeoutMs = 10000);

    const ProcessStatus& target() const { return status; }

    // Makes the JVM listen where it does not. Throws "attach.quit" (it does not catch SIGQUIT),
    // "attach.file", "attach.socket" (no socket came in time).
    void open();

    // One request; the answer up to its end. Uses version 2 where the JVM speaks it and an argument
    // is too long for version 1. `limitMs` is for the JVM's work; 0 is for what takes a moment.
    AttachReply execute(const std::string& command, const std::vector<std::string>& arguments,
                        int limitMs = 0);

    // 1 or 2; asks the JVM at the first call.
    int version();

private:
    struct Trigger {
        Descriptor folder;
        std::string name;
    };
    std::string socketName() const;
    bool socketExists() const;
    void checkCanListen() const;
    Trigger createTrigger() const;
    void throwIfEnded() const;
    void waitForSocket();
    void waitUntilQuitIsCaught();
    Descriptor connectToSocket() const;
    std::string exchange(const std::string& request, int limitMs);

    const ProcFs& processes;
    Jvm jvm;
    ProcessStatus status;
    Descriptor temporary; // the JVM's folder of temporary files
    int timeoutMs;
    int knownVersion = 0;
};

} // namespace vdk
