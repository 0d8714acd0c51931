// `vdk record`: attach or start, record for a while, write a file, and leave the JVM as it was.
#include "client/attach/AgentLibraryFile.h"
#include "client/attach/Launch.h"
#include "client/commands/Commands.h"
#include "client/commands/DataFile.h"
#include "client/commands/SelectionArguments.h"
#include "client/commands/Sources.h"
#include "client/console/Errors.h"
#include "client/console/OutputFile.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/record/RecordProgram.h"
#include "client/record/RecordSummary.h"
#include "client/record/RecordedTime.h"
#include "client/record/Recorder.h"
#include "db/SnapshotCommon.h"
#include "platform/Platform.h"

#include <algorithm>

namespace vdk {

namespace {

constexpr int DefaultSeconds = 30;
constexpr int DefaultInterval = 512 << 10;
constexpr int64_t RefreshNs = 3000000000; // so much is lost of a JVM that is killed

[[noreturn]] void failUsage(const std::string& message, const std::string& hint = "") {
    throw ClientError(ExitCode::Usage, "usage", message, hint);
}

RecordWish wishOf(const Arguments& arguments, Form form) {
    RecordWish wish;
    const bool sample = arguments.has("--sample"), wall = arguments.has("--wall"),
               trace = arguments.has("--trace");
    if (sample + wall + trace > 1) {
        failUsage("--sample, --wall and --trace measure one time in three ways: name one of them");
    }
    wish.locks = arguments.has("--locks");
    wish.exceptions = arguments.has("--exceptions");
    if (arguments.has("--alloc")) {
        wish.allocInterval = arguments.size("--alloc", DefaultInterval);
    }
    const bool others = wish.locks || wish.exceptions || wish.allocInterval;
    wish.cpu = wall                ? CpuRecording::Wall
               : trace             ? CpuRecording::Trace
               : sample || !others ? CpuRecording::Sample
                                   : CpuRecording::None;
    wish.sampler = arguments.has("--sampler") ? arguments.text("--sampler") : "";
    if (!wish.sampler.empty() && wish.cpu != CpuRecording::Sample) {
        failUsage("--sampler goes with sampled CPU times");
    }
    wish.only = arguments.all("--only");
    if (!wish.only.empty() && !trace) {
        failUsage("--only goes with --trace");
    }
    if (arguments.has("--thread")) {
        if (!wall) {
            failUsage("--thread goes with --wall; the page and `vdk report` choose threads of all "
                      "else");
        }
        wish.threads = arguments.text("--thread");
    }
    wish.wholeTables = infoOf(form).needs == FormNeeds::Everything;
    // The lines at the end tell of all that was recorded, whatever the file has.
    wish.tables = tablesOf(form) | tablesOf(Form::Html);
    return wish;
}

// The table of a CSV file: of what was asked for the first that there is.
const char* tableOf(const RecordWish& wish) {
    return wish.cpu != CpuRecording::None ? "methods"
           : wish.allocInterval           ? "allocations_by_class"
           : wish.locks                   ? "waits_by_class"
                                          : "exceptions_by_class";
}

bool isOfCpuOnly(Form form) {
    return infoOf(form).needs == FormNeeds::CpuTimes;
}

// "app-4711.html": the name with a word ahead of its ending, or where it says so.
std::string nameWith(const std::string& out, const std::string& word, bool isOne) {
    const size_t mark = out.find("%p");
    if (mark != std::string::npos) {
        return out.substr(0, mark) + word + out.substr(mark + 2);
    }
    if (isOne) {
        return out;
    }
    const std::string ending = longEnding(out);
    const size_t cut = ending.empty() ? out.rfind('.') : out.size() - ending.size();
    return out.substr(0, cut) + "-" + word + out.substr(cut);
}

class RecordCommand {
public:
    RecordCommand(Console& console, const Arguments& arguments)
        : console(console), arguments(arguments), out(arguments.text("--out")),
          form(checkedForm(out)), wish(wishOf(arguments, form)) {
        checkArguments();
    }

    int run() { return arguments.command.empty() ? recordTargets() : recordProgram(); }

private:
    static Form checkedForm(const std::string& out) {
        const std::optional<Form> form = formOf(out);
        if (!form) {
            failUsage("the name for --out tells the form: " + listOfEndings(Endings::All));
        }
        return *form;
    }

    void checkArguments() const {
        const std::vector<std::string>& targets = arguments.all("TARGET");
        const bool startsProgram = !arguments.command.empty();
        if (targets.empty() != startsProgram) {
            failUsage(startsProgram ? "name targets, or a program behind --, not both"
                                    : "name a target, or a program behind --",
                      "vdk record app.jar --out app.html");
        }
        if (isOfCpuOnly(form) && wish.cpu == CpuRecording::None) {
            failUsage(std::string("the form ") + infoOf(form).name +
                          " has CPU and elapsed times alone",
                      "name a file that ends in " + listOfEndings(Endings::OfMoreThanCpuTimes));
        }
        if (startsProgram && !isJavaLauncher(arguments.command.front()) &&
            (arguments.has("--for") || wish.cpu == CpuRecording::Wall || wish.exceptions)) {
            failUsage("--for, --wall and --exceptions need `java` itself behind --: other programs "
                      "may start several JVMs");
        }
        // What cannot be written need not be recorded.
        OutputFile(nameWith(out, "0", targets.size() < 2));
    }

    // Until the time is over, Ctrl-C, or all have ended.
    void wait(const std::vector<std::unique_ptr<Recorder>>& recorders,
              const std::function<bool()>& isOver, int64_t limitNs) {
        ProgressBar bar(console, "recording");
        const int64_t begin = Platform::monotonicTimeNs();
        int64_t next = begin + RefreshNs;
        while (!isOver() && sleepUnlessInterrupted(100)) {
            const int64_t now = Platform::monotonicTimeNs();
            if (limitNs > 0) {
                bar.show(int(std::min<int64_t>((now - begin) * 100 / limitNs, 100)),
                         formatLimit(int((limitNs - (now - begin)) / 1000000000 * 1000)) +
                             " left, Ctrl-C ends it");
            }
            if (limitNs > 0 && now - begin >= limitNs) {
                return;
            }
            if (now < next) {
                continue;
            }
            bool anyGoesOn = recorders.empty();
            for (const auto& recorder : recorders) {
                anyGoesOn |= recorder->refresh();
            }
            if (!anyGoesOn) {
                return;
            }
            // Of much data no more than a tenth of the time is spent on bringing it.
            const int64_t after = Platform::monotonicTimeNs();
            next = after + std::max(RefreshNs, (after - now) * 10);
        }
    }

    int recordTargets() {
        const std::vector<std::string>& targets = arguments.all("TARGET");
        std::vector<std::unique_ptr<Recorder>> recorders;
        try {
            for (const std::string& target : targets) {
                recorders.push_back(std::make_unique<Recorder>(connect(target), wish));
                recorders.back()->start(console);
                noteFoundOn(*recorders.back());
            }
            const auto areAllGone = [&] {
                return std::all_of(recorders.begin(), recorders.end(),
                                   [](const auto& recorder) { return recorder->isGone(); });
            };
            wait(recorders, areAllGone,
                 arguments.durationMs("--for", DefaultSeconds * 1000) * 1000000);
        } catch (const ClientError&) {
            forgetInterrupt();
            for (const auto& recorder : recorders) {
                recorder->stop(console);
            }
            throw;
        }
        forgetInterrupt();
        for (const auto& recorder : recorders) {
            recorder->stop(console);
        }
        for (const auto& recorder : recorders) {
            write(*recorder, recorders.size() == 1);
        }
        return tell();
    }

    LiveAgent connect(const std::string& target) {
        Endpoint endpoint;
        if (parseEndpoint(target, endpoint)) {
            return connectAgent(target, arguments);
        }
        Machine machine;
        return attachedAgent(machine, target, arguments);
    }

    void noteFoundOn(const Recorder& recorder) {
        if (!recorder.foundOn().empty()) {
            console.note(join(recorder.foundOn(), ", ") + " was on in process " +
                         std::to_string(recorder.info().pid) + " and goes on behind this");
        }
    }

    void write(Recorder& recorder, bool isOne) {
        RecordSummary summary;
        summary.pid = recorder.info().pid;
        summary.seconds = recorder.seconds();
        summary.ended = recorder.hasEnded();
        DataSource source = recorder.takeData();
        summary.lostSeconds = recorder.secondsLost();
        write(summary, source, nameWith(out, std::to_string(summary.pid), isOne));
    }

    void write(RecordSummary& summary, DataSource& source, const std::string& file) {
        summary.session = source.session;
        summary.file = file;
        summary.form = form;
        summarize(summary, source);
        FormChoices choices;
        choices.notes = notesOf(summary);
        choices.table = tableOf(wish);
        summary.bytes = writeForm(console, source, form, file, choices).bytes;
        summaries.push_back(summary);
    }

    // The agent's options that record from the start of the JVM on.
    std::vector<std::string> startOptions() const {
        std::vector<std::string> options;
        if (wish.cpu == CpuRecording::Sample || wish.cpu == CpuRecording::Trace) {
            options.emplace_back(wish.cpu == CpuRecording::Trace ? "tracing" : "sampling");
        }
        if (!wish.sampler.empty()) {
            options.push_back("sampler=" + wish.sampler);
        }
        if (wish.allocInterval) {
            options.push_back("allocsampled=" + std::to_string(*wish.allocInterval));
        }
        if (wish.locks) {
            options.emplace_back("monitors");
        }
        return options;
    }

    int recordProgram() {
        AgentOptionChoices choices;
        choices.only = wish.only;
        choices.requireAgent = isJavaLauncher(arguments.command.front());
        RecordedProgram program(arguments.command, startOptions(), choices,
                                findAgentLibrary(arguments.text("--agent"), ExitCode::CannotRun));
        const int64_t begin = Platform::monotonicTimeNs();
        std::unique_ptr<Recorder> recorder;
        if (isJavaLauncher(arguments.command.front())) {
            recorder = recordRunning(program);
        }
        program.await();
        if (summaries.empty() && program.snapshots().empty() && recorder) {
            recorder->stop(console);
            write(*recorder, true); // it was killed
        } else if (summaries.empty()) {
            writeSnapshots(program, double(Platform::monotonicTimeNs() - begin) / 1e9);
        }
        const int code = tell();
        return code != 0 ? code : program.exitCode();
    }

    // The JVM of `java` itself, while it runs: what no option starts, a time that may be over
    // before it ends, and what is there if it is killed. Null where it ended too soon for that.
    std::unique_ptr<Recorder> recordRunning(RecordedProgram& program) {
        Machine machine;
        std::optional<Jvm> jvm;
        while (!program.hasEnded() && !(jvm && jvm->isProfiled())) {
            if (!sleepUnlessInterrupted(50)) {
                return nullptr;
            }
            jvm = machine.finder.look(program.pid());
        }
        if (program.hasEnded()) {
            return nullptr;
        }
        RecordWish others = wish;
        others.allocInterval.reset();
        others.locks = false;
        others.cpu = wish.cpu == CpuRecording::Wall ? wish.cpu : CpuRecording::None;
        std::vector<std::unique_ptr<Recorder>> recorders;
        try {
            recorders.push_back(std::make_unique<Recorder>(
                connectAgent(machine, *jvm, int(arguments.durationMs("--timeout", 15000))),
                others));
            recorders.back()->startBeside(console, wish);
        } catch (const ClientError&) {
            // It was short, and its snapshot has all.
            if (program.hasEnded() || program.endsSoon()) {
                return nullptr;
            }
            throw;
        }
        Recorder& recorder = *recorders.back();
        wait(
            recorders, [&] { return program.hasEnded(); },
            arguments.durationMs("--for", 0) * 1000000);
        if (!program.hasEnded() && !isInterrupted()) {
            recorder.stop(console);
            if (!recorder.hasEnded()) {
                write(recorder, true);
                console.note("the recording is over, the program goes on");
            }
        }
        return std::move(recorders.back());
    }

    void writeSnapshots(const RecordedProgram& program, double seconds) {
        const std::vector<std::string> snapshots = program.snapshots();
        if (snapshots.empty()) {
            throw ClientError(ExitCode::AgentFailed, "record.nothing",
                              "the program has left no data: it started no JVM, or that was killed",
                              "`vdk run --print` shows how the agent is given to it");
        }
        int number = 0;
        for (const std::string& snapshot : snapshots) {
            DataSource source = openData(snapshot, arguments, 0);
            source.name = join(arguments.command, " ");
            RecordSummary summary;
            summary.pid = program.pid();
            summary.seconds = snapshots.size() == 1 ? seconds : -1;
            summary.ended = true;
            if (summary.seconds >= 0) {
                noteRecordedTime(source.database(), int64_t(seconds * 1000));
            }
            const std::string word = number == 0 ? "" : std::to_string(number);
            number++;
            write(summary, source,
                  out.find("%p") != std::string::npos
                      ? nameWith(out,
                                 std::to_string(program.pid()) + (word.empty() ? "" : "-" + word),
                                 true)
                      : nameWith(out, word, word.empty()));
        }
    }

    int tell() {
        if (console.json) {
            JsonDocument json(console, "vdk.record/1");
            json.key("recordings").beginArray();
            for (const RecordSummary& summary : summaries) {
                writeSummary(json, summary);
            }
            json.endArray();
            json.end();
            return 0;
        }
        // Standard output is the program's.
        std::ostream& stream = arguments.command.empty() ? console.out : console.err;
        bool isFirst = true;
        for (const RecordSummary& summary : summaries) {
            stream << (isFirst ? "" : "\n");
            isFirst = false;
            printSummary(stream, summary);
        }
        return 0;
    }

    Console& console;
    const Arguments& arguments;
    const std::string out;
    const Form form;
    const RecordWish wish;
    std::vector<RecordSummary> summaries;
};

} // namespace

int runRecord(Console& console, const Arguments& arguments) {
    return RecordCommand(console, arguments).run();
}

} // namespace vdk
