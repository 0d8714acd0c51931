#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/OutputFile.h"
#include "client/console/Text.h"

#include <optional>
#include <sys/stat.h>

namespace vdk {

// True when both names are one file of this machine: nothing has to be fetched then.
static bool isSameFile(const std::string& a, const std::string& b) {
    struct stat first, second;
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
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
    std::string path;
    {
        ProgressBar bar(console, "capturing");
        path = agent.client.captureSnapshot(0, arguments.text("--dir"), arguments.text("--pattern"),
                                            [&](int percent) { bar.update(percent); });
    }
    int64_t size = -1;
    if (file && !isSameFile(path, out)) {
        ProgressBar bar(console, "fetching");
        size = agent.client.downloadSnapshot(path, arguments.has("--compressed"), *file,
                                             [&](int percent) { bar.update(percent); });
        file->commit();
    }
    if (console.json) {
        JsonWriter json(console.out, true);
        beginDocument(json, "vdk.snapshot/1").field("pid", agent.info.pid);
        json.field("session", agent.info.sessionName).field("path", path).key("file");
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
