#include "client/attach/Attach.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/OutputFile.h"
#include "client/console/Text.h"
#include "db/SnapshotCommon.h"

#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

// True when both names are one file of this machine: nothing has to be fetched then.
static bool isSameFile(const std::string& a, const std::string& b) {
    struct stat first, second;
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// Takes the JVM's own copy away once the file was fetched. The agent told the path: it is followed
// with no more rights than the JVM has, and only what looks like that snapshot goes.
static bool removeOriginal(const LiveAgent& agent, const std::string& path, int64_t size) {
    std::string host = agent.client.address().host;
    ProcFs processes;
    auto status = processes.status(agent.info.pid);
    if ((host != "127.0.0.1" && host != "localhost" && host != "::1") || !status) {
        return false;
    }
    TargetCredentials credentials(status->euid, status->egid);
    std::string visible = processes.inTarget(agent.info.pid, path);
    struct stat info;
    return endsWith(path, ".snapshot") && lstat(visible.c_str(), &info) == 0 &&
           S_ISREG(info.st_mode) && info.st_uid == status->euid && info.st_size == size &&
           unlink(visible.c_str()) == 0;
}

namespace {

struct Capture {
    std::string path;  // the JVM's own
    int64_t size = -1; // of what was fetched
    bool kept = true;  // the JVM's own is still there
};

// Captures, and fetches where a file is given. `out` is its name.
Capture capture(Console& console, LiveAgent& agent, const Arguments& arguments, int64_t flags,
                std::optional<OutputFile>& file, const std::string& out) {
    Capture result;
    {
        ProgressBar bar(console, "capturing");
        result.path = agent.client.captureSnapshot(flags, arguments.text("--dir"),
                                                   arguments.text("--pattern"),
                                                   [&](int percent) { bar.update(percent); });
    }
    if (!file || isSameFile(result.path, out)) {
        return result;
    }
    ProgressBar bar(console, "fetching");
    result.size = agent.client.downloadSnapshot(result.path, arguments.has("--compressed"), *file,
                                                [&](int percent) { bar.update(percent); });
    file->commit();
    result.kept = arguments.has("--keep") || !removeOriginal(agent, result.path, result.size);
    if (result.kept && !arguments.has("--keep")) {
        console.note("the JVM's own copy stays: " + printable(result.path));
    }
    return result;
}

void noteFile(Console& console, const std::string& out, const Capture& captured) {
    console.note(out + (captured.size < 0 ? std::string() : ": " + formatBytes(captured.size)));
}

} // namespace

int captureWithSites(Console& console, const Arguments& arguments) {
    const std::string out = arguments.text("--out");
    struct stat info;
    if (out != "-" && lstat(out.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
        !arguments.has("--overwrite")) {
        throw ClientError(ExitCode::CannotWrite, "output.exists", out + " exists",
                          "name another file, or give --overwrite");
    }
    std::optional<OutputFile> file(out);
    Machine machine;
    LiveAgent agent = attachedAgent(machine, arguments.text("TARGET"), arguments);
    if (!arguments.has("--all")) {
        agent.client.forceGc();
    }
    console.note("process " + std::to_string(agent.info.pid) +
                 " stands still while it writes its heap");
    const Capture captured = capture(console, agent, arguments, SNAPSHOT_WITH_HEAP, file, out);
    if (console.json) {
        JsonDocument json(console, "vdk.heap.capture/1");
        json.field("pid", agent.info.pid);
        json.field("name", agent.info.sessionName).field("liveOnly", !arguments.has("--all"));
        json.field("sites", true).field("file", out).field("bytes", captured.size);
        json.end();
        return 0;
    }
    noteFile(console, out, captured);
    return 0;
}

int runSnapshot(Console& console, const Arguments& arguments) {
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    std::string out = arguments.text("--out");
    if (out == "-" && console.json) {
        throw ClientError(ExitCode::Usage, "usage", "--json and --out - both want standard output");
    }
    std::optional<OutputFile> file;
    if (!out.empty()) {
        file.emplace(out); // first: what cannot be written need not be captured
    }
    const bool withHeap = arguments.has("--heap");
    if (arguments.has("--gc")) {
        agent.client.forceGc();
    }
    const Capture captured =
        capture(console, agent, arguments, withHeap ? SNAPSHOT_WITH_HEAP : 0, file, out);
    if (console.json) {
        JsonDocument json(console, "vdk.snapshot/1");
        json.field("pid", agent.info.pid);
        json.field("session", agent.info.sessionName)
            .field("path", captured.path)
            .field("heap", withHeap)
            .field("kept", captured.kept)
            .key("file");
        out.empty() ? json.nullValue() : json.value(out);
        json.key("bytes");
        captured.size < 0 ? json.nullValue() : json.value(captured.size);
        json.end();
    } else if (out.empty()) {
        console.out << captured.path << "\n";
    } else if (out != "-") {
        noteFile(console, out, captured);
    }
    return 0;
}

} // namespace vdk
