#include "client/picture/OtlpProfiles.h"

#include "client/console/GzipStream.h"
#include "client/picture/Pprof.h"
#include "client/picture/Protobuf.h"
#include "core/ground/Version.h"

#include <random>
#include <sstream>
#include <unordered_map>

namespace vdk {

namespace {

// Fields of the messages, by their numbers in profiles_service.proto, profiles.proto, common.proto
// and resource.proto.
namespace request {
enum { ResourceProfiles = 1, Dictionary };
}
namespace resourceProfiles {
enum { Resource = 1, ScopeProfiles };
}
namespace resource {
enum { Attributes = 1 };
}
namespace scopeProfiles {
enum { Scope = 1, Profiles };
}
namespace scope {
enum { Name = 1, Version };
}
namespace dictionary {
enum { Mappings = 1, Locations, Functions, Links, Strings, Attributes, Stacks };
}
namespace profile {
enum { SampleType = 1, Samples, Time, Duration, Id = 7 };
}
namespace valueType {
enum { Type = 1, Unit };
}
namespace sample {
enum { Stack = 1, Attributes, Values = 4 };
}
namespace stack {
enum { Locations = 1 };
}
namespace location {
enum { Lines = 3, Attributes };
}
namespace line {
enum { Function = 1 };
}
namespace function {
enum { Name = 1, SystemName };
}
namespace keyValue { // of the dictionary the key is an index, of a resource a text
enum { Key = 1, Value };
}
namespace anyValue {
enum { Text = 1, Number = 3 };
}

constexpr int IdBytes = 16;

std::string randomId() {
    std::random_device random;
    std::string id;
    while (id.size() < IdBytes) {
        id += char(random() & 255);
    }
    return id;
}

Message textValue(const std::string& text) {
    Message value;
    value.bytes(anyValue::Text, text);
    return value;
}

class OtlpWriter {
public:
    explicit OtlpWriter(const Picture& picture) : picture(picture) {
        // The first entry of each table stands for none.
        const Message none;
        text("");
        for (int table : {dictionary::Mappings, dictionary::Locations, dictionary::Functions,
                          dictionary::Links, dictionary::Attributes, dictionary::Stacks}) {
            shared.message(table, none);
        }
        frameType = addAttribute("profile.frame.type", "jvm");
        for (const auto& thread : picture.threads) {
            threads.push_back(addAttribute("thread.name", thread.name));
        }
        addFunctions();
    }

    std::string write(const OtlpResource& source, int64_t fromMs, int64_t untilMs) {
        Message scoped, origin;
        origin.bytes(scope::Name, "vdk").bytes(scope::Version, VDK_VERSION);
        scoped.message(scopeProfiles::Scope, origin);
        for (const StackTree& tree : picture.trees) {
            const std::unordered_map<int, int> stacks = addStacks(tree);
            bool isCount = false;
            for (const SampleValue& value : valuesOf(tree)) {
                Message type, profile;
                type.number(valueType::Type, text(value.type));
                type.number(valueType::Unit, text(value.unit));
                profile.message(profile::SampleType, type);
                addSamples(profile, tree, stacks, isCount);
                profile.fixed(profile::Time, uint64_t(fromMs) * 1000000);
                profile.number(profile::Duration, (untilMs - fromMs) * 1000000);
                profile.bytes(profile::Id, randomId());
                scoped.message(scopeProfiles::Profiles, profile);
                isCount = true;
            }
        }
        for (const std::string& known : strings) {
            shared.bytes(dictionary::Strings, known);
        }
        Message ofResource, all;
        ofResource.message(resourceProfiles::Resource, resourceOf(source));
        ofResource.message(resourceProfiles::ScopeProfiles, scoped);
        all.message(request::ResourceProfiles, ofResource);
        all.message(request::Dictionary, shared);
        return std::move(all.data);
    }

private:
    static Message resourceOf(const OtlpResource& source) {
        Message result;
        const auto add = [&](const std::string& key, const Message& value) {
            Message attribute;
            attribute.bytes(keyValue::Key, key).message(keyValue::Value, value);
            result.message(resource::Attributes, attribute);
        };
        for (const auto& [key, value] : source.texts) {
            add(key, textValue(value));
        }
        Message pid;
        add("process.pid", pid.number(anyValue::Number, source.pid));
        return result;
    }

    int64_t text(const std::string& content) {
        auto [entry, added] = stringIndex.try_emplace(content, int64_t(strings.size()));
        if (added) {
            strings.push_back(content);
        }
        return entry->second;
    }

    int64_t addAttribute(const std::string& key, const std::string& value) {
        Message attribute;
        attribute.number(keyValue::Key, text(key)).message(keyValue::Value, textValue(value));
        shared.message(dictionary::Attributes, attribute);
        return ++attributes;
    }

    // A function and a location for each name, in the order of these.
    void addFunctions() {
        for (size_t i = 0; i < picture.names.size(); i++) {
            const int64_t name = text(picture.names[i].full());
            Message inLine, place, method;
            inLine.number(line::Function, int64_t(i) + 1);
            place.message(location::Lines, inLine).numbers(location::Attributes, {frameType});
            method.number(function::Name, name).number(function::SystemName, name);
            shared.message(dictionary::Locations, place);
            shared.message(dictionary::Functions, method);
        }
    }

    // The stack of each node that has a sample.
    std::unordered_map<int, int> addStacks(const StackTree& tree) {
        std::unordered_map<int, int> stacks;
        for (const StackTree::Entry& entry : tree.entries) {
            if (!stacks.try_emplace(entry.node, stackCount + 1).second) {
                continue;
            }
            stackCount++;
            std::vector<int64_t> locations; // the innermost first
            for (int node = entry.node; node > 0; node = tree.nodes[size_t(node)].parent) {
                locations.push_back(tree.nodes[size_t(node)].name + 1);
            }
            Message known;
            shared.message(dictionary::Stacks, known.numbers(stack::Locations, locations));
        }
        return stacks;
    }

    void addSamples(Message& profile, const StackTree& tree,
                    const std::unordered_map<int, int>& stacks, bool isCount) const {
        for (const StackTree::Entry& entry : tree.entries) {
            const int64_t value = isCount ? entry.now.count : entry.now.own;
            if (value == 0) {
                continue;
            }
            Message one;
            one.number(sample::Stack, stacks.at(entry.node));
            one.numbers(sample::Attributes, {threads[size_t(entry.thread)]});
            profile.message(profile::Samples, one.numbers(sample::Values, {value}));
        }
    }

    const Picture& picture;
    Message shared; // the dictionary, but for its strings
    std::vector<std::string> strings;
    std::unordered_map<std::string, int64_t> stringIndex;
    std::vector<int64_t> threads; // attribute of each
    int64_t frameType = 0, attributes = 0;
    int stackCount = 0;
};

} // namespace

std::string otlpProfiles(const Picture& picture, const OtlpResource& resource, int64_t fromMs,
                         int64_t untilMs) {
    std::ostringstream out;
    GzipStream packed(out);
    packed.stream() << OtlpWriter(picture).write(resource, fromMs, untilMs);
    packed.finish();
    return out.str();
}

} // namespace vdk
