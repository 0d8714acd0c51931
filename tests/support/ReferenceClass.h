#pragma once

#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

// A second reader of class files, independent of the one under test and written for plainness:
// everything is decoded into texts that two classes can be compared by.

struct ReferenceFrame {
    int offset;
    std::vector<std::string> locals;
    std::vector<std::string> stack;
    bool operator==(const ReferenceFrame& other) const {
        return offset == other.offset && locals == other.locals && stack == other.stack;
    }
};

struct ReferenceHandler {
    int start;
    int end;
    int handler;
    int type;
    bool operator==(const ReferenceHandler& other) const {
        return start == other.start && end == other.end && handler == other.handler &&
               type == other.type;
    }
};

using ReferenceAttribute = std::pair<std::string, std::string>;

struct ReferenceMethod {
    int flags = 0;
    std::string name;
    std::string descriptor;
    std::vector<ReferenceAttribute> attributes; // Code among them, with an empty body
    bool hasCode = false;
    int maxStack = 0;
    int maxLocals = 0;
    std::string code;
    std::vector<ReferenceHandler> handlers;
    std::vector<ReferenceAttribute> codeAttributes;
};

class ReferenceReader {
public:
    ReferenceReader(const void* bytes, size_t count)
        : at(static_cast<const unsigned char*>(bytes)), end(at + count) {}
    explicit ReferenceReader(const std::string& text) : ReferenceReader(text.data(), text.size()) {}
    int u1() { return raw(1)[0]; }
    int u2() {
        const unsigned char* p = raw(2);
        return p[0] << 8 | p[1];
    }
    unsigned u4() {
        const unsigned high = static_cast<unsigned>(u2());
        return high << 16 | static_cast<unsigned>(u2());
    }
    std::string text(size_t count) {
        return std::string(reinterpret_cast<const char*>(raw(count)), count);
    }
    bool atEnd() const { return at == end; }

private:
    const unsigned char* raw(size_t count) {
        if (count > static_cast<size_t>(end - at)) {
            throw std::runtime_error("class file too short");
        }
        const unsigned char* p = at;
        at += count;
        return p;
    }
    const unsigned char* at;
    const unsigned char* end;
};

class ReferenceClass {
public:
    ReferenceClass(const void* bytes, size_t count) {
        ReferenceReader in(bytes, count);
        in.u4();
        minor = in.u2();
        major = in.u2();
        readPool(in);
        flags = in.u2();
        thisClass = in.u2();
        superClass = in.u2();
        for (int i = in.u2(); i > 0; i--) {
            interfaces.push_back(in.u2());
        }
        for (int i = in.u2(); i > 0; i--) {
            fields.push_back(readMember(in));
        }
        for (int i = in.u2(); i > 0; i--) {
            methods.push_back(readMember(in));
        }
        attributes = readAttributes(in);
        if (!in.atEnd()) {
            throw std::runtime_error("bytes behind the class");
        }
    }

    const ReferenceMethod* method(const std::string& name) const {
        for (const ReferenceMethod& m : methods) {
            if (m.name == name) {
                return &m;
            }
        }
        return nullptr;
    }
    std::string className(int index) const { return utf8(refs.at(static_cast<size_t>(index))); }
    // The frames of a method with complete lists; the initial frame comes first, with offset -1.
    std::vector<ReferenceFrame> frames(const ReferenceMethod& m) const;

    int minor;
    int major;
    int flags;
    int thisClass;
    int superClass;
    std::vector<int> interfaces;
    std::vector<std::string> pool; // raw entry per index, tag included; empty for gaps
    std::vector<ReferenceMethod> fields;
    std::vector<ReferenceMethod> methods;
    std::vector<ReferenceAttribute> attributes;

    std::string utf8(int index) const {
        const std::string& entry = pool.at(static_cast<size_t>(index));
        if (entry.empty() || entry[0] != 1) {
            throw std::runtime_error("no text at a pool index");
        }
        return entry.substr(3);
    }

private:
    void readPool(ReferenceReader& in) {
        const int count = in.u2();
        pool.resize(static_cast<size_t>(count));
        refs.resize(static_cast<size_t>(count));
        static const std::map<int, size_t> SIZES = {
            {3, 4},  {4, 4},  {5, 8},  {6, 8},  {7, 2},  {8, 2},  {9, 4},  {10, 4},
            {11, 4}, {12, 4}, {15, 3}, {16, 2}, {17, 4}, {18, 4}, {19, 2}, {20, 2}};
        for (int i = 1; i < count; i++) {
            const int tag = in.u1();
            std::string& entry = pool[static_cast<size_t>(i)];
            entry.push_back(static_cast<char>(tag));
            if (tag == 1) {
                const std::string length = in.text(2);
                entry += length;
                entry += in.text(static_cast<size_t>(static_cast<unsigned char>(length[0])) << 8 |
                                 static_cast<unsigned char>(length[1]));
            } else {
                entry += in.text(SIZES.at(tag));
                refs[static_cast<size_t>(i)] = static_cast<unsigned char>(entry[1]) << 8 |
                                               static_cast<unsigned char>(entry[2]);
            }
            if (tag == 5 || tag == 6) {
                i++;
            }
        }
    }
    std::vector<ReferenceAttribute> readAttributes(ReferenceReader& in) const {
        std::vector<ReferenceAttribute> list;
        for (int i = in.u2(); i > 0; i--) {
            const std::string name = utf8(in.u2());
            const unsigned length = in.u4();
            list.emplace_back(name, in.text(length));
        }
        return list;
    }
    ReferenceMethod readMember(ReferenceReader& in) const {
        ReferenceMethod m;
        m.flags = in.u2();
        m.name = utf8(in.u2());
        m.descriptor = utf8(in.u2());
        m.attributes = readAttributes(in);
        for (ReferenceAttribute& attribute : m.attributes) {
            if (attribute.first == "Code") {
                readCode(attribute.second, m);
                attribute.second.clear();
            }
        }
        return m;
    }
    void readCode(const std::string& body, ReferenceMethod& m) const {
        ReferenceReader in(body);
        m.hasCode = true;
        m.maxStack = in.u2();
        m.maxLocals = in.u2();
        const unsigned length = in.u4();
        m.code = in.text(length);
        for (int i = in.u2(); i > 0; i--) {
            ReferenceHandler handler;
            handler.start = in.u2();
            handler.end = in.u2();
            handler.handler = in.u2();
            handler.type = in.u2();
            m.handlers.push_back(handler);
        }
        m.codeAttributes = readAttributes(in);
        if (!in.atEnd()) {
            throw std::runtime_error("bytes behind a Code attribute");
        }
    }
    std::string readType(ReferenceReader& in) const {
        const int tag = in.u1();
        static const char* const NAMES[] = {
            "top", "int", "float", "double", "long", "null", "uninitializedThis"};
        if (tag == 7) {
            return "object " + className(in.u2());
        }
        if (tag == 8) {
            return "new " + std::to_string(in.u2());
        }
        if (tag > 8) {
            throw std::runtime_error("verification type");
        }
        return NAMES[tag];
    }
    std::vector<int> refs; // first index of an entry
};

inline std::vector<ReferenceFrame> ReferenceClass::frames(const ReferenceMethod& m) const {
    ReferenceFrame frame;
    frame.offset = -1;
    if ((m.flags & 8) == 0) {
        frame.locals.push_back(m.name == "<init>" ? "uninitializedThis"
                                                  : "object " + className(thisClass));
    }
    for (size_t i = 1; m.descriptor[i] != ')'; i++) {
        const size_t start = i;
        while (m.descriptor[i] == '[') {
            i++;
        }
        const bool array = i > start;
        const char kind = m.descriptor[i];
        if (kind == 'L') {
            i = m.descriptor.find(';', i);
        }
        const std::string type = m.descriptor.substr(start, i - start + 1);
        frame.locals.push_back(array         ? "object " + type
                               : kind == 'L' ? "object " + type.substr(1, type.size() - 2)
                               : kind == 'J' ? "long"
                               : kind == 'D' ? "double"
                               : kind == 'F' ? "float"
                                             : "int");
    }
    std::vector<ReferenceFrame> list{frame};
    for (const ReferenceAttribute& attribute : m.codeAttributes) {
        if (attribute.first != "StackMapTable") {
            continue;
        }
        ReferenceReader in(attribute.second);
        for (int i = in.u2(); i > 0; i--) {
            const int type = in.u1();
            frame.stack.clear();
            int delta = type < 64 ? type : type - 64;
            if (type >= 247) {
                delta = in.u2();
            } else if (type >= 128) {
                throw std::runtime_error("frame type");
            }
            frame.offset += delta + 1;
            if ((type >= 64 && type < 128) || type == 247) {
                frame.stack.push_back(readType(in));
            } else if (type >= 248 && type < 251) {
                frame.locals.resize(frame.locals.size() - static_cast<size_t>(251 - type));
            } else if (type > 251 && type < 255) {
                for (int k = 251; k < type; k++) {
                    frame.locals.push_back(readType(in));
                }
            } else if (type == 255) {
                frame.locals.clear();
                for (int k = in.u2(); k > 0; k--) {
                    frame.locals.push_back(readType(in));
                }
                for (int k = in.u2(); k > 0; k--) {
                    frame.stack.push_back(readType(in));
                }
            }
            list.push_back(frame);
        }
    }
    return list;
}
