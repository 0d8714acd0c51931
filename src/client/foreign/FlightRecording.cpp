#include "client/console/Errors.h"
#include "client/foreign/ForeignFiles.h"
#include "client/foreign/ForeignStacks.h"
#include "client/foreign/JfrProgram.h"

#include <algorithm>
#include <initializer_list>
#include <rapidjson/filereadstream.h>
#include <rapidjson/reader.h>

namespace vdk {

namespace {

const char CpuTimeSample[] = "jdk.CPUTimeSample";
const char NotWalkable[] = "[not walkable]";

// Gathers the stacks while the document streams by: it may be of any size.
class EventHandler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, EventHandler> {
public:
    bool StartObject() {
        keys.emplace_back();
        if (isAt({"recording", "events", "", ""})) {
            type.clear();
            thread.clear();
            frames.clear();
        }
        if (isAt({"recording", "events", "", "values", "stackTrace", "frames", "", ""})) {
            className.clear();
            method.clear();
        }
        return true;
    }
    bool EndObject(rapidjson::SizeType) {
        keys.back().clear();
        if (isAt({"recording", "events", "", "values", "stackTrace", "frames", "", ""})) {
            std::replace(className.begin(), className.end(), '/', '.');
            frames.push_back(className.empty() ? method : className + "." + method);
        }
        if (isAt({"recording", "events", "", ""})) {
            addEvent();
        }
        keys.pop_back();
        return true;
    }
    bool StartArray() {
        keys.emplace_back();
        return true;
    }
    bool EndArray(rapidjson::SizeType) {
        keys.pop_back();
        return true;
    }
    bool Key(const char* name, rapidjson::SizeType length, bool) {
        keys.back().assign(name, length);
        return true;
    }
    bool String(const char* text, rapidjson::SizeType length, bool) {
        if (std::string* const place = placeOfText()) {
            place->assign(text, length);
        }
        return true;
    }

    std::unique_ptr<DB> take() {
        return (byCpuTime.isEmpty() ? others : byCpuTime).take(ForeignUnit::Samples);
    }
    bool isEmpty() const { return byCpuTime.isEmpty() && others.isEmpty(); }

private:
    bool isAt(std::initializer_list<const char*> path) const {
        return keys.size() == path.size() && std::equal(keys.begin(), keys.end(), path.begin());
    }

    std::string* placeOfText() {
        const auto isName = [&](const char* of) {
            return isAt({"recording", "events", "", "values", of, "javaName"});
        };
        if (isAt({"recording", "events", "", "type"})) {
            return &type;
        }
        if (isName("sampledThread") || isName("eventThread")) {
            return &thread;
        }
        if (isAt({"recording", "events", "", "values", "stackTrace", "frames", "", "method",
                  "name"})) {
            return &method;
        }
        return isAt({"recording", "events", "", "values", "stackTrace", "frames", "", "method",
                     "type", "name"})
                   ? &className
                   : nullptr;
    }

    // Frames come with the innermost one first.
    void addEvent() {
        std::reverse(frames.begin(), frames.end());
        if (frames.empty()) {
            frames.emplace_back(NotWalkable);
        }
        // Both kinds would count a thread twice: that by the CPU's clock says more.
        (type == CpuTimeSample ? byCpuTime : others).add(frames, thread, 1);
    }

    std::vector<std::string> keys; // of each open object, "" for an array
    std::string type, thread, className, method;
    std::vector<std::string> frames;
    ForeignStacks byCpuTime, others;
};

} // namespace

std::unique_ptr<DB> readFlightRecording(const std::string& path) {
    JfrProgram jfr({"print", "--json", "--stack-depth", "2048", "--events",
                    "jdk.ExecutionSample,jdk.CPUTimeSample", path});
    std::vector<char> buffer(1 << 16);
    rapidjson::FileReadStream stream(jfr.output(), buffer.data(), buffer.size());
    rapidjson::Reader reader;
    EventHandler handler;
    const bool isDocument =
        !reader.Parse<rapidjson::kParseIterativeFlag>(stream, handler).IsError();
    const int code = jfr.await();
    if (code != 0 || !isDocument) {
        throw ClientError(ExitCode::BadInput, "foreign.data",
                          path + " cannot be read by " + jfr.path() + ", which ended with " +
                              std::to_string(code),
                          "`" + jfr.path() + " summary` says more of the file");
    }
    if (handler.isEmpty()) {
        throw ClientError(ExitCode::BadInput, "foreign.data",
                          path + " has no samples of running threads",
                          "jdk.ExecutionSample and jdk.CPUTimeSample are read");
    }
    return handler.take();
}

} // namespace vdk
