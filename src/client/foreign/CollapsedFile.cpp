#include "client/console/Errors.h"
#include "client/console/Text.h"
#include "client/foreign/ForeignFiles.h"
#include "client/foreign/ForeignStacks.h"

#include <algorithm>
#include <cstdlib>

namespace vdk {

namespace {

[[noreturn]] void failAt(const std::string& path, size_t line, const std::string& message) {
    throw ClientError(ExitCode::BadInput, "foreign.data",
                      path + ", line " + std::to_string(line) + ": " + message);
}

// "java/lang/Thread.run_[j]" as "java.lang.Thread.run".
std::string frameOf(std::string text) {
    const size_t size = text.size();
    if (size > 4 && text[size - 1] == ']' && text[size - 3] == '[' && text[size - 4] == '_') {
        text.resize(size - 4);
    }
    const size_t dot = text.rfind('.');
    if (dot != std::string::npos && text.find(' ') == std::string::npos) {
        std::replace(text.begin(), text.begin() + std::ptrdiff_t(dot), '/', '.');
    }
    return text;
}

// "[http-1 tid=4711]" ahead of the frames names a thread; this program writes " trn=".
std::string threadName(const std::string& frame) {
    const size_t mark = std::min(frame.rfind(" tid="), frame.rfind(" trn="));
    return frame.front() == '[' && mark != std::string::npos ? frame.substr(1, mark - 1) : "";
}

} // namespace

std::unique_ptr<DB> readCollapsed(const std::string& path, std::istream& in) {
    ForeignStacks stacks;
    std::string line;
    for (size_t number = 1; std::getline(in, line); number++) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const size_t cut = line.rfind(' ');
        char* end = nullptr;
        const char* const digits = line.c_str() + (cut == std::string::npos ? 0 : cut + 1);
        const double value = strtod(digits, &end);
        while (*end == '\r') {
            end++;
        }
        // What a double holds exactly, which NaN is not below either.
        if (cut == std::string::npos || end == digits || *end != 0 || !(value < 9e15)) {
            failAt(path, number, "no frames with a number behind them");
        }
        std::vector<std::string> frames;
        std::string thread;
        for (size_t at = 0; at < cut;) {
            const size_t next = std::min(line.find(';', at), cut);
            const std::string frame = line.substr(at, next - at);
            if (at == 0 && !frame.empty()) {
                thread = threadName(frame);
            }
            if (!frame.empty() && (at > 0 || thread.empty())) {
                frames.push_back(frameOf(frame));
            }
            at = next + 1;
        }
        stacks.add(frames, thread, int64_t(value));
    }
    if (in.bad() || stacks.isEmpty()) {
        throw ClientError(ExitCode::BadInput, "foreign.data",
                          path + (in.bad() ? " cannot be read" : " has no stacks"));
    }
    return stacks.take(ForeignUnit::Samples);
}

} // namespace vdk
