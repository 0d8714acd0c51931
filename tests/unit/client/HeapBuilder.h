#pragma once

#include "../heapfile/HprofWriter.h"

#include <map>
#include <string>
#include <vector>

// Builds a heap dump object by object. Classes are named as in the file: "java/util/HashMap".
class HeapBuilder {
public:
    struct Field {
        std::string name;
        char type; // letter of the Java type, 'L' for a reference
        uint64_t value = 0;
    };

    HeapBuilder() {
        body.out.clear();
        object = type("java/lang/Object", 0);
        type("java/lang/Class");
        string = type("java/lang/String", object, {{"value", 'L'}, {"coder", 'B'}});
        bytes = type("[B");
        objects = type("[Ljava/lang/Object;");
    }

    uint64_t type(const std::string& name, uint64_t super = 1,
                  const std::vector<Field>& fields = {}, const std::vector<Field>& statics = {},
                  uint64_t loader = 0) {
        const uint64_t id = next();
        super = super == 1 ? object : super;
        head.loadClass(id, name);
        classes++;
        std::vector<HprofWriter::Field> own, all;
        for (const Field& field : fields) {
            own.push_back({nameOf(field.name), code(field.type), 0});
        }
        for (const Field& field : statics) {
            all.push_back({nameOf(field.name), code(field.type), field.value});
        }
        body.classDump(id, super, loader, all, own);
        types[id] = {super, fields};
        return id;
    }
    // Values in the order of the fields, those of the class itself first.
    uint64_t make(uint64_t type, const std::vector<uint64_t>& values = {}) {
        const uint64_t id = next();
        std::vector<std::pair<uint64_t, uint32_t>> sized;
        size_t at = 0;
        for (uint64_t each = type; each != 0; each = types[each].super) {
            for (const Field& field : types[each].fields) {
                sized.emplace_back(at < values.size() ? values[at] : 0,
                                   hprofTypeSize(code(field.type), 8));
                at++;
            }
        }
        body.instance(id, type, sized);
        return id;
    }
    uint64_t array(uint64_t type, const std::vector<uint64_t>& elements) {
        const uint64_t id = next();
        body.objectArray(id, type, elements);
        return id;
    }
    uint64_t array(const std::vector<uint64_t>& elements) { return array(objects, elements); }
    uint64_t data(const std::string& content) {
        const uint64_t id = next();
        body.byteArray(id, content);
        return id;
    }
    uint64_t text(const std::string& content) { return make(string, {data(content), 0}); }
    void root(uint64_t id) { body.rootGlobal(id); }
    // A thread with frames from the top, each the name of a method of the class `type`.
    void thread(uint64_t id, uint32_t serial, const std::string& className,
                const std::vector<std::string>& methods) {
        const uint64_t owner = next();
        head.loadClass(owner, className);
        classes++;
        std::vector<uint64_t> frames;
        for (const std::string& method : methods) {
            const uint64_t frame = next();
            const uint64_t name = nameOf(method);
            head.head(HPROF_FRAME, 4 * 8 + 8);
            head.put({{frame, 8}, {name, 8}, {0, 8}, {0, 8}, {classes, 4}, {7, 4}});
            frames.push_back(frame);
        }
        head.head(HPROF_TRACE, 12 + 8 * uint32_t(frames.size()));
        head.put({{serial, 4}, {serial, 4}, {frames.size(), 4}});
        for (uint64_t frame : frames) {
            head.id(frame);
        }
        body.rootThread(id, serial, serial);
    }
    void local(uint64_t id, uint32_t serial, uint32_t frame) { body.rootFrame(id, serial, frame); }

    std::string file() {
        HprofWriter all = head;
        all.beginDump();
        all.out += body.out;
        all.endDump();
        return all.out;
    }
    static std::string id(uint64_t object) {
        char digits[32];
        snprintf(digits, sizeof(digits), "0x%llx", static_cast<unsigned long long>(object));
        return digits;
    }

    uint64_t object, string, bytes, objects;

private:
    struct Type {
        uint64_t super = 0;
        std::vector<Field> fields;
    };
    // Distances that tell nothing of sizes.
    uint64_t next() { return last += 0x100 + 8 * (++made * 7 % 13); }
    uint64_t nameOf(const std::string& text) {
        const auto added = names.try_emplace(text, 0);
        if (added.second) {
            added.first->second = 1 + names.size();
            head.string(added.first->second, text);
        }
        return added.first->second;
    }
    static uint8_t code(char type) {
        const std::string letters = "..L.ZCFDBSIJ";
        return static_cast<uint8_t>(letters.find(type));
    }

    HprofWriter head, body;
    std::map<uint64_t, Type> types;
    std::map<std::string, uint64_t> names;
    uint64_t last = 0x100000;
    uint64_t made = 0;
    uint32_t classes = 0;
};
