#include "client/threads/HotSpotDump.h"

#include "client/console/Text.h"
#include "client/profile/GeneratedNames.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace vdk {

namespace {

// The word behind the key, up to the next blank.
std::string valueOf(const std::string& line, const std::string& key, size_t from) {
    const size_t at = line.find(key, from);
    if (at == std::string::npos) {
        return "";
    }
    const size_t begin = at + key.size();
    return line.substr(begin, std::min(line.find(' ', begin), line.size()) - begin);
}

// `"name" #12 [34] daemon prio=5 os_prio=0 cpu=1.25ms elapsed=3.75s tid=0x... nid=0x... runnable`.
// A name may hold quotes, what is behind it does not.
bool readHead(const std::string& line, HotSpotThread& thread) {
    const size_t end = line.rfind('"');
    if (line.empty() || line[0] != '"' || end == 0 ||
        line.find(" tid=", end) == std::string::npos) {
        return false;
    }
    thread.name = line.substr(1, end - 1);
    const std::string cpu = valueOf(line, " cpu=", end), id = valueOf(line, " nid=", end);
    if (endsWith(cpu, "ms")) {
        thread.cpuNs = int64_t(strtod(cpu.c_str(), nullptr) * 1e6);
    }
    thread.nativeId = strtoll(id.c_str(), nullptr, 0); // hexadecimal up to release 20
    return true;
}

// "- locked <0x...> (a pkg.Class)"; false where no object is named.
bool readLock(const std::string& line, const char* what, HotSpotLock& lock) {
    const size_t at = line.find(what);
    const size_t begin = line.find("<0x"), end = line.find('>');
    if (at == std::string::npos || begin == std::string::npos || end == std::string::npos ||
        begin < at || end < begin) {
        return false;
    }
    lock.address = line.substr(begin + 1, end - begin - 1);
    const size_t name = line.find("(a ", end), close = line.rfind(')');
    lock.className = name != std::string::npos && close != std::string::npos && close > name
                         ? line.substr(name + 3, close - name - 3)
                         : "";
    return true;
}

// "at pkg.Class.method(module@17/File.java:12)".
std::string frameOf(const std::string& line) {
    const size_t at = line.find("at ");
    return cleanFrameName(line.substr(at + 3, std::min(line.find('('), line.size()) - at - 3));
}

class DumpReader {
public:
    std::vector<HotSpotThread> read(const std::string& text) {
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            HotSpotThread fresh;
            if (startsWith(line, "JNI global refs") || startsWith(line, "Found one Java-level")) {
                break; // behind it deadlocks are told with the stacks once more
            }
            if (readHead(line, fresh)) {
                threads.push_back(std::move(fresh));
                isInLockList = false;
            } else if (!threads.empty()) {
                add(line, threads.back());
            }
        }
        for (HotSpotThread& thread : threads) {
            dropWhatWaitGaveBack(thread);
        }
        return std::move(threads);
    }

private:
    void add(const std::string& line, HotSpotThread& thread) {
        const char State[] = "java.lang.Thread.State: ";
        const size_t state = line.find(State);
        HotSpotLock lock;
        if (startsWith(line, "\tat ")) {
            thread.topFrame = thread.topFrame.empty() ? frameOf(line) : thread.topFrame;
        } else if (state != std::string::npos && startsWith(line, "   ")) {
            const std::string rest = line.substr(state + sizeof(State) - 1);
            const size_t open = rest.find(" (");
            thread.state = rest.substr(0, open);
            thread.doing = open == std::string::npos || rest.back() != ')'
                               ? ""
                               : rest.substr(open + 2, rest.size() - open - 3);
        } else if (startsWith(line, "   Locked ownable synchronizers")) {
            isInLockList = true;
        } else if (!startsWith(line, "\t- ")) {
            isInLockList = isInLockList && !line.empty();
        } else if (readLock(line, "waiting to lock", lock) ||
                   readLock(line, "waiting to re-lock in wait()", lock) ||
                   readLock(line, "parking to wait for", lock)) {
            thread.wanted = lock;
        } else if (readLock(line, "waiting on", lock)) {
            waited.push_back({threads.size() - 1, lock.address});
        } else if (readLock(line, isInLockList ? "- " : "locked", lock)) {
            thread.held.push_back(lock);
        }
    }

    // A thread in Object.wait() has locked the object in a frame above, and holds it no more.
    void dropWhatWaitGaveBack(HotSpotThread& thread) {
        const size_t index = size_t(&thread - threads.data());
        thread.held.erase(std::remove_if(thread.held.begin(), thread.held.end(),
                                         [&](const HotSpotLock& lock) {
                                             return lock.address == thread.wanted.address ||
                                                    isWaitedFor(index, lock.address);
                                         }),
                          thread.held.end());
    }

    bool isWaitedFor(size_t index, const std::string& address) const {
        return std::any_of(waited.begin(), waited.end(), [&](const auto& each) {
            return each.first == index && each.second == address;
        });
    }

    std::vector<HotSpotThread> threads;
    std::vector<std::pair<size_t, std::string>> waited; // thread, and address
    bool isInLockList = false;
};

} // namespace

std::vector<HotSpotThread> parseHotSpotDump(const std::string& text) {
    return DumpReader().read(text);
}

} // namespace vdk
