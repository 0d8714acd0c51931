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
    std::string path;
    {
        ProgressBar bar(console, "capturing");
        path = agent.client.captureSnapshot(withHeap ? SNAPSHOT_WITH_HEAP : 0,
                                            arguments.text("--dir"), arguments.text("--pattern"),
                                            [&](int percent) { bar.update(percent); });
    }
    int64_t size = -1;
    bool kept = true;
    if (file && !isSameFile(path, out)) {
        ProgressBar bar(console, "fetching");
        size = agent.client.downloadSnapshot(path, arguments.has("--compressed"), *file,
                                             [&](int percent) { bar.update(percent); });
        file->commit();
        kept = arguments.has("--keep") || !removeOriginal(agent, path, size);
        if (kept && !arguments.has("--keep")) {
            console.note("the JVM's own copy stays: " + printable(path));
        }
    }
    if (console.json) {
        JsonWriter json(console.out, true);
        beginDocument(json, "vdk.snapshot/1").field("pid", agent.info.pid);
        json.field("session", agent.info.sessionName)
            .field("path", path)
            .field("heap", withHeap)
            .field("kept", kept)
            .key("file");
        out.empty() ? json.nullValue() : json.value(out);
        json.key("bytes");
        size < 0 ? json.nullValue() : json.value(size);
        json.endObject();
        console.out << "\n";
    } else if (out.empty()) {
        console.out << path << "\n";
    } else if (out != "-") {
        console.note(out + (size < 0 ? std::string() : ": " + formatBytes(size)));
    }
    return 0;
}

} // namespace vdk
