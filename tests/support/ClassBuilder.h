#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

// Writes small class files by hand, for methods that no compiler would emit.
class ClassBuilder {
public:
    using Attributes = std::vector<std::pair<std::string, std::string>>;
    struct Handler {
        int start;
        int end;
        int handler;
        int type;
    };

    explicit ClassBuilder(int majorVersion, const std::string& className = "Built",
                          const std::string& superName = "java/lang/Object")
        : major(majorVersion), thisClass(classRef(className)), superClass(classRef(superName)) {}

    static std::string u1(int value) { return std::string(1, static_cast<char>(value)); }
    static std::string u2(int value) { return u1(value >> 8) + u1(value); }
    static std::string u4(int value) { return u2(value >> 16) + u2(value); }
    static std::string code(std::initializer_list<int> bytes) {
        std::string text;
        for (int byte : bytes) {
            text += u1(byte);
        }
        return text;
    }

    int raw(const std::string& entry, int indices = 1) {
        const auto found = known.find(entry);
        if (found != known.end()) {
            return found->second;
        }
        pool += entry;
        known[entry] = count;
        count += indices;
        return count - indices;
    }
    int utf8(const std::string& text) {
        return raw(u1(1) + u2(static_cast<int>(text.size())) + text);
    }
    int classRef(const std::string& name) { return raw(u1(7) + u2(utf8(name))); }
    int methodRef(const std::string& owner, const std::string& name,
                  const std::string& descriptor) {
        const int nameAndType = raw(u1(12) + u2(utf8(name)) + u2(utf8(descriptor)));
        return raw(u1(10) + u2(classRef(owner)) + u2(nameAndType));
    }

    void addMethod(int flags, const std::string& name, const std::string& descriptor, int maxStack,
                   int maxLocals, const std::string& codeBytes,
                   const std::vector<Handler>& handlers = {}, const Attributes& attributes = {},
                   const Attributes& methodAttributes = {}) {
        std::string body = u2(maxStack) + u2(maxLocals) + u4(static_cast<int>(codeBytes.size())) +
                           codeBytes + u2(static_cast<int>(handlers.size()));
        for (const Handler& handler : handlers) {
            body += u2(handler.start) + u2(handler.end) + u2(handler.handler) + u2(handler.type);
        }
        body += list(attributes);
        members +=
            u2(flags) + u2(utf8(name)) + u2(utf8(descriptor)) + list(with(methodAttributes, body));
        methodCount++;
    }
    // A method without code.
    void addMethod(int flags, const std::string& name, const std::string& descriptor,
                   const Attributes& attributes = {}) {
        members += u2(flags) + u2(utf8(name)) + u2(utf8(descriptor)) + list(attributes);
        methodCount++;
    }

    void addInterface(const std::string& name) {
        interfaces += u2(classRef(name));
        interfaceCount++;
    }
    void addField(int flags, const std::string& name, const std::string& descriptor) {
        fields += u2(flags) + u2(utf8(name)) + u2(utf8(descriptor)) + u2(0);
        fieldCount++;
    }

    std::string build(int flags = 0x21, const Attributes& classAttributes = {}) {
        const std::string attributes = list(classAttributes);
        return u4(static_cast<int>(0xcafebabe)) + u2(0) + u2(major) + u2(count) + pool + u2(flags) +
               u2(thisClass) + u2(superClass) + u2(interfaceCount) + interfaces + u2(fieldCount) +
               fields + u2(methodCount) + members + attributes;
    }
    int getPoolCount() const { return count; }

private:
    static Attributes with(Attributes attributes, const std::string& codeBody) {
        attributes.push_back({"Code", codeBody});
        return attributes;
    }
    std::string list(const Attributes& attributes) {
        std::string text = u2(static_cast<int>(attributes.size()));
        for (const auto& attribute : attributes) {
            text += u2(utf8(attribute.first)) + u4(static_cast<int>(attribute.second.size())) +
                    attribute.second;
        }
        return text;
    }

    int major;
    std::string pool;
    std::map<std::string, int> known;
    int count = 1;
    int thisClass;
    int superClass;
    std::string interfaces;
    int interfaceCount = 0;
    std::string fields;
    int fieldCount = 0;
    std::string members;
    int methodCount = 0;
};
