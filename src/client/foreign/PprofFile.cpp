#include "client/console/Errors.h"
#include "client/foreign/ForeignFiles.h"
#include "client/foreign/ForeignStacks.h"
#include "client/picture/ProtobufReader.h"

#include <algorithm>
#include <string_view>

namespace vdk {

namespace {

[[noreturn]] void fail(const std::string& message) {
    throw ClientError(ExitCode::BadInput, "foreign.data", message);
}

// Numbers stand one by one or packed.
void addNumbers(const MessageField& field, std::vector<int64_t>& numbers) {
    if (!field.isBytes) {
        numbers.push_back(int64_t(field.value));
        return;
    }
    for (MessageFields packed(field.bytes); !packed.isAtEnd();) {
        numbers.push_back(int64_t(packed.varint()));
    }
}

struct TimeUnit {
    const char* name;
    int64_t ns;
};
const TimeUnit TimeUnits[] = {
    {"nanoseconds", 1}, {"microseconds", 1000}, {"milliseconds", 1000000}, {"seconds", 1000000000}};

// Names and numbers of fields: profile.proto of pprof.
class PprofReader {
public:
    explicit PprofReader(std::string_view message) {
        MessageField field;
        for (MessageFields all(message); all.next(field);) {
            if (field.isBytes) {
                note(field);
            }
        }
    }

    std::unique_ptr<DB> read() {
        chooseValue();
        for (const std::string_view sample : samples) {
            add(sample);
        }
        if (stacks.isEmpty()) {
            fail("the profile has no stacks with times or samples");
        }
        return stacks.take(unit);
    }

private:
    void note(const MessageField& field) {
        switch (field.number) {
        case 1:
            valueTypes.push_back(twoOf(field.bytes, 1, 2));
            break;
        case 2:
            samples.push_back(field.bytes);
            break;
        case 4:
            noteLocation(field.bytes);
            break;
        case 5: {
            const auto [id, name] = twoOf(field.bytes, 1, 2);
            functions[id] = name;
            break;
        }
        case 6:
            strings.push_back(field.bytes);
            break;
        default:;
        }
    }

    void noteLocation(std::string_view message) {
        uint64_t id = 0;
        std::vector<uint64_t> called;
        MessageField field;
        for (MessageFields all(message); all.next(field);) {
            if (field.number == 1) {
                id = field.value;
            } else if (field.number == 4) {
                called.push_back(twoOf(field.bytes, 1, 2).first);
            }
        }
        locations[id] = std::move(called);
    }

    static std::pair<uint64_t, uint64_t> twoOf(std::string_view message, int first, int second) {
        std::pair<uint64_t, uint64_t> found = {0, 0};
        MessageField field;
        for (MessageFields all(message); all.next(field);) {
            if (field.number == first) {
                found.first = field.value;
            } else if (field.number == second) {
                found.second = field.value;
            }
        }
        return found;
    }

    std::string text(uint64_t index) const {
        return index < strings.size() ? std::string(strings[index]) : "";
    }

    // CPU times are what is asked for, then elapsed ones, then any, then numbers of samples.
    void chooseValue() {
        int best = 0;
        for (size_t i = 0; i < valueTypes.size(); i++) {
            const std::string type = text(valueTypes[i].first), in = text(valueTypes[i].second);
            const auto* known = std::find_if(std::begin(TimeUnits), std::end(TimeUnits),
                                             [&](const TimeUnit& each) { return in == each.name; });
            const bool isTime = known != std::end(TimeUnits);
            const int rank = isTime && type == "cpu"    ? 4
                             : isTime && type == "wall" ? 3
                             : isTime                   ? 2
                             : type == "samples"        ? 1
                                                        : 0;
            if (rank > best) {
                best = rank;
                value = i;
                factor = isTime ? known->ns : 1;
                unit = type == "wall" && isTime ? ForeignUnit::ElapsedNs
                       : isTime                 ? ForeignUnit::CpuNs
                                                : ForeignUnit::Samples;
            }
        }
        if (best == 0) {
            fail("the profile has neither times nor numbers of samples");
        }
    }

    void add(std::string_view message) {
        std::vector<int64_t> places, values;
        std::string thread;
        MessageField field;
        for (MessageFields all(message); all.next(field);) {
            if (field.number == 1) {
                addNumbers(field, places);
            } else if (field.number == 2) {
                addNumbers(field, values);
            } else if (field.number == 3) {
                const auto [key, name] = twoOf(field.bytes, 1, 2);
                thread = text(key) == "thread" ? text(name) : thread;
            }
        }
        std::vector<std::string> frames; // places are innermost first
        for (auto place = places.rbegin(); place != places.rend(); ++place) {
            const auto known = locations.find(uint64_t(*place));
            if (known == locations.end() || known->second.empty()) {
                frames.emplace_back("[unknown]");
                continue;
            }
            for (auto at = known->second.rbegin(); at != known->second.rend(); ++at) {
                const auto function = functions.find(*at);
                frames.push_back(function == functions.end() ? "[unknown]"
                                                             : text(function->second));
            }
        }
        int64_t amount = 0;
        if (value < values.size() && __builtin_mul_overflow(values[value], factor, &amount)) {
            fail("the profile has a value that is too large");
        }
        stacks.add(frames, thread, amount);
    }

    std::vector<std::pair<uint64_t, uint64_t>> valueTypes;
    std::vector<std::string_view> samples, strings;
    std::unordered_map<uint64_t, std::vector<uint64_t>> locations; // functions, innermost first
    std::unordered_map<uint64_t, uint64_t> functions;              // names
    size_t value = 0;                                              // index among those of a sample
    int64_t factor = 1;
    ForeignUnit unit = ForeignUnit::Samples;
    ForeignStacks stacks;
};

} // namespace

std::unique_ptr<DB> readPprof(const std::string& path, const std::string& message) {
    try {
        return PprofReader(message).read();
    } catch (const ClientError& e) {
        throw ClientError(e.code, e.word, path + ": " + e.what(), e.hint);
    }
}

} // namespace vdk
