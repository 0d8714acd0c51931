#include "client/picture/Pprof.h"

#include "client/console/GzipStream.h"
#include "client/picture/Protobuf.h"
#include "core/ground/Version.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

// Fields of the messages, by their numbers in profile.proto.
namespace profile {
enum {
    SampleType = 1,
    Sample,
    Mapping,
    Location,
    Function,
    StringTable,
    Time = 9,
    Comment = 13,
    DefaultSampleType
};
}
namespace valueType {
enum { Type = 1, Unit };
}
namespace sample {
enum { LocationId = 1, Value, Label };
}
namespace label {
enum { Key = 1, Text };
}
namespace location {
enum { Id = 1, MappingId, Address, Line };
}
namespace line {
enum { FunctionId = 1, Number };
}
namespace function {
enum { Id = 1, Name, SystemName };
}

class PprofWriter {
public:
    explicit PprofWriter(const Picture& picture) : picture(picture) { text(""); }

    std::string write(int64_t timeMs) {
        addSampleTypes();
        for (size_t i = 0; i < picture.trees.size(); i++) {
            addSamples(picture.trees[i], firstValue[i]);
        }
        addFunctions();
        const int64_t comment = text("vdk " VDK_VERSION ", " + picture.session);
        for (const std::string& known : strings) {
            all.bytes(profile::StringTable, known);
        }
        if (timeMs > 0) {
            all.number(profile::Time, timeMs * 1000000);
        }
        all.number(profile::Comment, comment);
        return std::move(all.data);
    }

private:
    int64_t text(const std::string& content) {
        auto [entry, added] = stringIndex.try_emplace(content, int64_t(strings.size()));
        if (added) {
            strings.push_back(content);
        }
        return entry->second;
    }

    void addType(const std::string& type, const std::string& unit) {
        Message message;
        message.number(valueType::Type, text(type)).number(valueType::Unit, text(unit));
        all.message(profile::SampleType, message);
        values++;
    }

    void addSampleTypes() {
        for (const StackTree& tree : picture.trees) {
            firstValue.push_back(values);
            for (const SampleValue& value : valuesOf(tree)) {
                addType(value.type, value.unit);
            }
        }
        if (!picture.trees.empty()) {
            all.number(profile::DefaultSampleType, text(valuesOf(picture.trees[0])[0].type));
        }
    }

    void addSamples(const StackTree& tree, int first) {
        const bool hasCounts = valuesOf(tree).size() > 1;
        for (const StackTree::Entry& entry : tree.entries) {
            std::vector<int64_t> locations, sums(size_t(values), 0);
            for (int node = entry.node; node > 0; node = tree.nodes[size_t(node)].parent) {
                locations.push_back(tree.nodes[size_t(node)].name + 1);
            }
            sums[size_t(first)] = entry.now.own;
            for (const LineTime& part : entry.lines) {
                std::vector<int64_t> inLine = locations, ofLine(size_t(values), 0);
                inLine[0] = placeOf(tree.nodes[size_t(entry.node)].name, part.line);
                ofLine[size_t(first)] = part.ownNs;
                sums[size_t(first)] -= part.ownNs;
                addSample(entry.thread, inLine, ofLine);
            }
            if (hasCounts) {
                sums[size_t(first) + 1] = entry.now.count;
            }
            if (entry.lines.empty() ||
                std::any_of(sums.begin(), sums.end(), [](int64_t sum) { return sum != 0; })) {
                addSample(entry.thread, locations, sums);
            }
        }
    }

    void addSample(int threadIndex, const std::vector<int64_t>& locations,
                   const std::vector<int64_t>& sums) {
        Message thread, message;
        thread.number(label::Key, text("thread"));
        thread.number(label::Text, text(picture.threads[size_t(threadIndex)].name));
        message.numbers(sample::LocationId, locations).numbers(sample::Value, sums);
        message.message(sample::Label, thread);
        all.message(profile::Sample, message);
    }

    // The location of a line; those of methods as such have the numbers of their names.
    int64_t placeOf(int name, int number) {
        const int64_t next = int64_t(picture.names.size() + places.size()) + 1;
        return places.try_emplace({name, number}, next).first->second;
    }

    void addLocation(int64_t id, int name, int number) {
        Message inLine, place;
        inLine.number(line::FunctionId, int64_t(name) + 1);
        if (number > 0) {
            inLine.number(line::Number, number);
        }
        place.number(location::Id, id).message(location::Line, inLine);
        all.message(profile::Location, place);
    }

    void addFunctions() {
        for (size_t i = 0; i < picture.names.size(); i++) {
            const int64_t id = int64_t(i) + 1, name = text(picture.names[i].full());
            Message method;
            method.number(function::Id, id).number(function::Name, name);
            method.number(function::SystemName, name);
            addLocation(id, int(i), 0);
            all.message(profile::Function, method);
        }
        for (const auto& [place, id] : places) {
            addLocation(id, place.first, place.second);
        }
    }

    const Picture& picture;
    Message all;
    std::vector<int> firstValue; // of each tree
    int values = 0;
    std::map<std::pair<int, int>, int64_t> places; // by name and line
    std::vector<std::string> strings;
    std::unordered_map<std::string, int64_t> stringIndex;
};

} // namespace

std::vector<SampleValue> valuesOf(const StackTree& tree) {
    if (tree.id == "allocations") {
        return {{"alloc_space", "bytes"}, {"alloc_objects", "count"}};
    }
    const std::string type = tree.id != "cpu"               ? tree.id
                             : tree.unit == "count"         ? "samples"
                             : tree.title == "Elapsed time" ? "wall"
                                                            : "cpu";
    std::vector<SampleValue> values = {{type, tree.unit == "ns" ? "nanoseconds" : tree.unit}};
    if (!tree.countTitle.empty()) {
        values.push_back({tree.id + "_" + tree.countTitle, "count"});
    }
    return values;
}

void writePprof(std::ostream& out, const Picture& picture, int64_t timeMs) {
    GzipStream packed(out);
    packed.stream() << PprofWriter(picture).write(timeMs);
    packed.finish();
}

} // namespace vdk
