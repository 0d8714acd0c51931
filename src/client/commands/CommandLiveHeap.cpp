// The heap of a running JVM by the JVM's own attach protocol: no agent is needed, or loaded.
#include "client/attach/AgentLibraryFile.h"
#include "client/attach/Attach.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/OutputFile.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapReport.h"
#include "client/heap/LiveHistogram.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

namespace {

constexpr size_t ClassesShown = 50;

// The JVM stands still for seconds or, with a large heap, minutes.
constexpr long PatienceMs = 3600000;

const char* whichObjects(const Arguments& arguments) {
    return arguments.has("--all") ? "-all" : "-live";
}

[[noreturn]] void refused(const std::string& what, const AttachReply& reply) {
    std::string text = printableLines(reply.text, 1000);
    throw ClientError(ExitCode::AttachRefused, "attach.command",
                      "the JVM did not " + what + (text.empty() ? "" : ": " + text));
}

std::vector<HeapClassSum> histogramOf(const Jvm& jvm, Machine& machine,
                                      const Arguments& arguments) {
    Attacher attacher(machine.processes, jvm, int(arguments.durationMs("--timeout", 10000)));
    attacher.open();
    AttachReply reply = attacher.execute("inspectheap", {whichObjects(arguments)},
                                         int(arguments.durationMs("--timeout", PatienceMs)));
    std::vector<HeapClassSum> sums = parseLiveHistogram(reply.text);
    if (!reply.complete || reply.result != 0 || sums.empty()) {
        refused("list its classes", reply);
    }
    return sums;
}

// Where the JVM writes: a name that nothing has, and that its user can make.
class DumpPlace {
public:
    virtual ~DumpPlace() = default;
    // As the JVM sees it.
    virtual std::string path() const = 0;
    // Makes the JVM's file the one that was asked for; its bytes.
    virtual int64_t deliver(Console& console) = 0;
};

void checkDump(const Descriptor& file, const ProcessStatus& target, struct stat& info) {
    char head[12];
    bool whole = file && fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode) &&
                 info.st_uid == target.euid &&
                 pread(file.get(), head, sizeof(head), 0) == ssize_t(sizeof(head)) &&
                 memcmp(head, "JAVA PROFILE", sizeof(head)) == 0;
    if (!whole) {
        throw ClientError(ExitCode::BadInput, "heap.capture",
                          "what the JVM wrote is no heap dump of its user");
    }
}

// Beside the file that was asked for, where JVM and client are the same user and see the same
// files: nothing is copied.
class DumpBeside : public DumpPlace {
public:
    DumpBeside(const std::string& out, const ProcessStatus& target, bool overwrite)
        : out(out), target(target), overwrite(overwrite),
          temporary(out + "." + std::to_string(getpid()) + "." +
                    std::to_string(std::random_device{}()) + ".tmp") {}
    ~DumpBeside() override { unlink(temporary.c_str()); }

    std::string path() const override { return temporary; }

    int64_t deliver(Console&) override {
        Descriptor file(open(temporary.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat info;
        checkDump(file, target, info);
        bool done = fchmod(file.get(), 0600) == 0 &&
                    (fsync(file.get()) == 0 || errno == EINVAL || errno == EROFS) && place();
        if (!done) {
            throw ClientError(ExitCode::CannotWrite, "output.write",
                              "cannot write " + out + ": " + strerror(errno));
        }
        return info.st_size;
    }

private:
    // A file that has come there meanwhile stays, unless it may be replaced.
    bool place() const {
        if (overwrite) {
            return rename(temporary.c_str(), out.c_str()) == 0;
        }
        if (link(temporary.c_str(), out.c_str()) == 0) {
            return true;
        }
        // Some file systems have no second names.
        return errno != EEXIST && access(out.c_str(), F_OK) != 0 &&
               rename(temporary.c_str(), out.c_str()) == 0;
    }

    const std::string out;
    const ProcessStatus target;
    const bool overwrite;
    const std::string temporary;
};

// In the private folder of the JVM's user, and copied from there.
class DumpInTarget : public DumpPlace {
public:
    DumpInTarget(const std::string& out, const ProcFs& processes, const ProcessStatus& target,
                 const std::string& folder)
        : target(target), files(processes, target, folder), file(out),
          own(files.reserve("heap-" + std::to_string(getpid()) + ".hprof")) {
        if (!folder.empty() && !startsWith(own, folder)) {
            throw ClientError(ExitCode::CannotWrite, "output.open",
                              "the JVM's user cannot make a folder of its own in " + folder);
        }
    }

    std::string path() const override { return own; }

    int64_t deliver(Console& console) override {
        Descriptor dump = files.openReserved(own);
        struct stat info;
        checkDump(dump, target, info);
        file.expectSize(info.st_size);
        ProgressBar bar(console, "copying the dump");
        std::string piece(1 << 20, '\0');
        int64_t done = 0;
        while (ssize_t count = read(dump.get(), &piece[0], piece.size())) {
            throwIfInterrupted();
            if (count < 0 && errno != EINTR) {
                throw ClientError(ExitCode::BadInput, "heap.capture",
                                  "cannot read " + own + ": " + strerror(errno));
            }
            file.write(piece.data(), size_t(std::max<ssize_t>(count, 0)));
            done += std::max<ssize_t>(count, 0);
            bar.update(int(done * 100 / std::max<int64_t>(info.st_size, 1)));
        }
        file.commit();
        return done;
    }

private:
    const ProcessStatus target;
    AttachFiles files;
    OutputFile file;
    const std::string own;
};
std::string absolute(const std::string& path) {
    size_t slash = path.rfind('/');
    std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    char resolved[PATH_MAX];
    if (!realpath(folder.c_str(), resolved)) {
        throw ClientError(ExitCode::CannotWrite, "output.open",
                          "cannot create " + path + ": " + strerror(errno));
    }
    std::string base = strcmp(resolved, "/") == 0 ? "" : resolved;
    return base + "/" + path.substr(slash == std::string::npos ? 0 : slash + 1);
}

std::unique_ptr<DumpPlace> placeFor(const std::string& out, const Machine& machine,
                                    const ProcessStatus& target, const Arguments& arguments) {
    struct stat info;
    bool exists = out != "-" && lstat(out.c_str(), &info) == 0;
    if (exists && S_ISREG(info.st_mode) && !arguments.has("--overwrite")) {
        throw ClientError(ExitCode::CannotWrite, "output.exists", out + " exists",
                          "name another file, or give --overwrite");
    }
    bool plain = out != "-" && (!exists || S_ISREG(info.st_mode));
    std::string folder = arguments.text("--dir");
    if (plain && folder.empty() && target.euid == geteuid() &&
        machine.processes.sharesFiles(target.pid)) {
        return std::make_unique<DumpBeside>(absolute(out), target, arguments.has("--overwrite"));
    }
    return std::make_unique<DumpInTarget>(out, machine.processes, target, folder);
}

// The JVM says what it did in words only.
void checkCaptured(const AttachReply& reply, const std::string& path) {
    auto says = [&](const char* part) { return reply.text.find(part) != std::string::npos; };
    if (reply.complete && reply.result == 0 && says("Heap dump file created")) {
        return;
    }
    std::string text = printableLines(reply.text, 1000);
    if (says("No space left")) {
        throw ClientError(ExitCode::CannotWrite, "output.space",
                          "the JVM had no room for the dump in " + path + ": " + text,
                          "--dir names another folder of the JVM's");
    }
    if (says("Permission denied") || says("Read-only file system") || says("No such file")) {
        throw ClientError(ExitCode::CannotWrite, "output.open",
                          "the JVM cannot write " + path + ": " + text,
                          "--dir names a folder where its user can write");
    }
    refused("write a dump", reply);
}

} // namespace

int runHeapLive(Console& console, const Arguments& arguments) {
    Machine machine;
    Jvm jvm = machine.finder.find(arguments.text("TARGET"));
    std::vector<HeapClassSum> sums = histogramOf(jvm, machine, arguments);
    HeapClassSum totals = totalOf(sums);
    std::string pattern = arguments.text("CLASSES");
    if (!pattern.empty()) {
        sums.erase(std::remove_if(sums.begin(), sums.end(),
                                  [&](const HeapClassSum& sum) {
                                      return !classNameMatches(pattern, sum.name);
                                  }),
                   sums.end());
    }
    sortSums(sums, sortKey(arguments, false));
    const bool isCsv = isCsvAsked(console, arguments);
    const bool isForPeople = !console.json && !isCsv;
    const auto top =
        size_t(arguments.number("--top", long(isForPeople ? ClassesShown : sums.size())));
    if (isCsv) {
        sumTable(sums, top, false).writeCsv(console);
        return 0;
    }
    if (console.json) {
        JsonDocument json(console, "vdk.heap.live/1");
        json.field("pid", jvm.pid);
        json.field("name", jvm.shortName()).field("liveOnly", !arguments.has("--all"));
        json.field("count", totals.count).field("shallow", totals.shallow);
        json.key("classes");
        sumTable(sums, top, false).write(json);
        json.end();
        return 0;
    }
    if (sums.empty()) {
        console.note("no class matches " + printable(pattern, 200) + "; " + HeapClassNameHint);
    }
    sumTable(sums, top, false).print(console);
    console.out << totalsText(sums, totals, !pattern.empty()) << "\n";
    return 0;
}

int runHeapCapture(Console& console, const Arguments& arguments) {
    if (arguments.has("--sites")) {
        return captureWithSites(console, arguments);
    }
    Machine machine;
    Jvm jvm = machine.finder.find(arguments.text("TARGET"));
    Attacher attacher(machine.processes, jvm, int(arguments.durationMs("--timeout", 10000)));
    std::unique_ptr<DumpPlace> place =
        placeFor(arguments.text("--out"), machine, attacher.target(), arguments);
    attacher.open();
    console.note("process " + std::to_string(jvm.pid) + " stands still while it writes its heap");
    AttachReply reply = attacher.execute("dumpheap", {place->path(), whichObjects(arguments)},
                                         int(arguments.durationMs("--timeout", PatienceMs)));
    checkCaptured(reply, place->path());
    int64_t size = place->deliver(console);
    if (console.json) {
        JsonDocument json(console, "vdk.heap.capture/1");
        json.field("pid", jvm.pid);
        json.field("name", jvm.shortName()).field("liveOnly", !arguments.has("--all"));
        json.field("file", arguments.text("--out")).field("bytes", size);
        json.end();
        return 0;
    }
    console.note(arguments.text("--out") + ": " + formatBytes(size));
    return 0;
}

} // namespace vdk
