#include "client/agent/ThreadDumpText.h"

#include "client/console/Text.h"

#include <climits>

namespace vdk {

namespace {

const char DumpHead[] = "Full thread dump ";
const char DeadlockHead[] = "Found a deadlock of ";
const size_t LongestHead = 65536;
const char OwnedHead[] = "\tLocked synchronizers:";

// Behind `mark` in the text; "" where it is not there.
std::string behind(const std::string& text, const std::string& mark) {
    return startsWith(text, mark) ? text.substr(mark.size()) : "";
}

// "\"name\" daemon prio=5 id=17 RUNNABLE": names may hold anything, so it is read from its end.
bool parseHead(const std::string& line, DumpedThread& thread) {
    size_t nameEnd = line.rfind('"');
    if (line[0] != '"' || nameEnd == 0) {
        return false;
    }
    thread.name = line.substr(1, nameEnd - 1);
    for (const std::string& word : split(line.substr(nameEnd + 1), ' ')) {
        std::string priority = behind(word, "prio="), id = behind(word, "id=");
        if (word == "daemon") {
            thread.daemon = true;
        } else if (!priority.empty()) {
            thread.priority = int(parseNumber(priority, 0, INT_MAX).value_or(0));
        } else if (!id.empty()) {
            thread.id = parseNumber(id, 0, LONG_MAX).value_or(0);
        } else {
            thread.state = word;
        }
    }
    return thread.id != 0 && !thread.state.empty();
}

// "java.lang.Object.wait(Object.java:338)"
DumpedFrame parseFrame(const std::string& text) {
    size_t open = text.rfind('(');
    if (open == std::string::npos || text.back() != ')') {
        return {text, "", {}};
    }
    return {text.substr(0, open), text.substr(open + 1, text.size() - open - 2), {}};
}

// "\t\"name\" id=17"; what it waits for stands below, further in.
void addDeadlocked(const std::string& line, ThreadDump& dump) {
    size_t at = startsWith(line, "\t\t") ? std::string::npos : line.rfind(" id=");
    auto id =
        at == std::string::npos ? std::nullopt : parseNumber(line.substr(at + 4), 0, LONG_MAX);
    if (id) {
        dump.deadlocked.push_back(*id);
    }
}

} // namespace

ThreadDump parseThreadDump(const std::string& text) {
    ThreadDump dump;
    bool ownedFollow = false, deadlockFollows = false;
    std::string begun; // a head whose name has line ends
    for (const std::string& line : split(text, '\n')) {
        DumpedThread thread;
        if (!begun.empty() || startsWith(line, "\"")) {
            begun += (begun.empty() ? "" : "\n") + line;
            bool complete = parseHead(begun, thread);
            if (complete) {
                dump.threads.push_back(thread);
                ownedFollow = false;
            }
            if (complete || begun.size() > LongestHead) {
                begun.clear();
            }
            continue;
        }
        std::string frame = behind(line, "\tat "), note = behind(line, "\t- ");
        if (startsWith(line, DumpHead)) {
            dump.jvm = line.substr(sizeof(DumpHead) - 1, line.rfind(':') - sizeof(DumpHead) + 1);
        } else if (startsWith(line, DeadlockHead)) {
            deadlockFollows = true;
        } else if (deadlockFollows) {
            addDeadlocked(line, dump);
        } else if (dump.threads.empty()) {
            continue;
        } else if (!frame.empty()) {
            dump.threads.back().frames.push_back(parseFrame(frame));
        } else if (line == OwnedHead) {
            ownedFollow = true;
        } else if (!note.empty() && ownedFollow) {
            dump.threads.back().ownedLocks.push_back(note);
        } else if (!note.empty() && !dump.threads.back().frames.empty()) {
            dump.threads.back().frames.back().locks.push_back(note);
        }
    }
    return dump;
}

} // namespace vdk
