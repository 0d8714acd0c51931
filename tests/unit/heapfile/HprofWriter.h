#pragma once

#include "heapfile/HprofFormat.h"
#include "heapfile/HprofReader.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

// A file that is there while a test runs.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& contents = "") {
        char name[] = "/tmp/vdk-readers-XXXXXX";
        int fd = mkstemp(name);
        close(fd);
        path = name;
        write(contents);
    }
    ~TemporaryFile() { unlink(path.c_str()); }
    void write(const std::string& contents) const {
        FILE* file = fopen(path.c_str(), "wb");
        fwrite(contents.data(), 1, contents.size(), file);
        fclose(file);
    }
    std::string path;
};

// Writes HPROF records, well-formed unless told otherwise.
class HprofWriter {
public:
    struct Field {
        uint64_t name;
        uint8_t type;
        uint64_t value; // of static fields
    };

    explicit HprofWriter(uint32_t identifierSize = 8, const char* version = "1.0.2")
        : idSize(identifierSize) {
        out = std::string("JAVA PROFILE ") + version;
        out += '\0';
        u4(idSize);
        u4(0);
        u4(1234);
    }
    void u1(uint8_t v) { value(v, 1); }
    void u2(uint32_t v) { value(v, 2); }
    void u4(uint32_t v) { value(v, 4); }
    void value(uint64_t v, uint32_t size) {
        for (uint32_t i = size; i > 0; i--) {
            out += static_cast<char>(v >> (8 * (i - 1)));
        }
    }
    void id(uint64_t v) { value(v, idSize); }
    // Numbers one after the other, each with its size in bytes.
    void put(const std::vector<std::pair<uint64_t, uint32_t>>& numbers) {
        for (const auto& number : numbers) {
            value(number.first, number.second);
        }
    }
    void head(uint8_t tag, uint32_t length) { put({{tag, 1}, {0, 4}, {length, 4}}); }
    void string(uint64_t stringId, const std::string& text) {
        head(HPROF_STRING, idSize + static_cast<uint32_t>(text.size()));
        id(stringId);
        out += text;
    }
    // With one identifier after the other.
    void strings(uint64_t firstId, const std::vector<const char*>& texts) {
        for (const char* text : texts) {
            string(firstId++, text);
        }
    }
    // A class's name has the class's identifier plus 1 as its own.
    void loadClass(uint64_t classId, const std::string& name) {
        string(classId + 1, name);
        head(HPROF_LOAD_CLASS, 8 + 2 * idSize);
        put({{++serial, 4}, {classId, idSize}, {0, 4}, {classId + 1, idSize}});
    }
    void beginDump(uint8_t tag = HPROF_HEAP_DUMP_SEGMENT) {
        head(tag, 0);
        dumpStart = out.size();
    }
    void endDump() {
        uint32_t length = static_cast<uint32_t>(out.size() - dumpStart);
        for (int i = 0; i < 4; i++) {
            out[dumpStart - 4 + static_cast<size_t>(i)] = static_cast<char>(length >> (24 - 8 * i));
        }
    }
    void dumpEnd() { head(HPROF_HEAP_DUMP_END, 0); }
    void classDump(uint64_t classId, uint64_t super, uint64_t loader,
                   const std::vector<Field>& statics, const std::vector<Field>& fields) {
        put({{HPROF_CLASS_DUMP, 1}, {classId, idSize}, {0, 4}, {super, idSize}, {loader, idSize}});
        out += std::string(4 * idSize + 4 + 2, '\0');
        u2(static_cast<uint32_t>(statics.size()));
        for (const Field& field : statics) {
            put({{field.name, idSize},
                 {field.type, 1},
                 {field.value, hprofTypeSize(field.type, idSize)}});
        }
        u2(static_cast<uint32_t>(fields.size()));
        for (const Field& field : fields) {
            put({{field.name, idSize}, {field.type, 1}});
        }
    }
    // Field values in the order of the dump: own ones first. Sizes in bytes beside the values.
    void instance(uint64_t objectId, uint64_t classId,
                  const std::vector<std::pair<uint64_t, uint32_t>>& values) {
        uint32_t length = 0;
        for (const auto& v : values) {
            length += v.second;
        }
        put({{HPROF_INSTANCE_DUMP, 1}, {objectId, idSize}, {0, 4}, {classId, idSize}, {length, 4}});
        put(values);
    }
    void objectArray(uint64_t arrayId, uint64_t classId, const std::vector<uint64_t>& elements) {
        put({{HPROF_OBJECT_ARRAY_DUMP, 1}, {arrayId, idSize}, {0, 4}, {elements.size(), 4}});
        id(classId);
        for (uint64_t element : elements) {
            id(element);
        }
    }
    void byteArray(uint64_t arrayId, const std::string& bytes) {
        put({{HPROF_PRIMITIVE_ARRAY_DUMP, 1},
             {arrayId, idSize},
             {0, 4},
             {bytes.size(), 4},
             {8, 1}});
        out += bytes;
    }
    void rootSystemClass(uint64_t objectId) {
        put({{HPROF_ROOT_STICKY_CLASS, 1}, {objectId, idSize}});
    }
    void rootGlobal(uint64_t objectId) {
        put({{HPROF_ROOT_JNI_GLOBAL, 1}, {objectId, idSize}, {0, idSize}});
    }
    void rootThread(uint64_t objectId, uint32_t threadSerial, uint32_t traceSerial) {
        put({{HPROF_ROOT_THREAD_OBJECT, 1},
             {objectId, idSize},
             {threadSerial, 4},
             {traceSerial, 4}});
    }
    void rootFrame(uint64_t objectId, uint32_t threadSerial, uint32_t frame) {
        put({{HPROF_ROOT_JAVA_FRAME, 1}, {objectId, idSize}, {threadSerial, 4}, {frame, 4}});
    }

    uint32_t idSize;
    std::string out;

private:
    size_t dumpStart = 0;
    uint32_t serial = 0;
};

// Identifiers of sampleHeap.
enum SampleId : uint64_t {
    OBJECT_CLASS = 0x1000,
    CLASS_CLASS = 0x1100,
    STRING_CLASS = 0x1200,
    NODE_CLASS = 0x1300,
    OBJECT_ARRAY_CLASS = 0x1400,
    BYTE_ARRAY_CLASS = 0x1500,
    FIRST_NODE = 0x2000,
    SECOND_NODE = 0x2018,
    TEXT = 0x2030,
    TEXT_BYTES = 0x2048,
    ARRAY = 0x2060,
    THREAD_NODE = 0x2080
};

// A heap of six classes and six objects: a chain of two nodes that end in a string, an array that
// holds the nodes, and a node that a thread's stack holds. Each part between two of `split` goes to
// a segment of its own.
inline HprofWriter sampleHeap(uint32_t idSize, const char* version = "1.0.2", bool split = false,
                              uint8_t dumpTag = HPROF_HEAP_DUMP_SEGMENT) {
    enum { VALUE = 0x10, CODER = 0x11, NEXT = 0x12, NUMBER = 0x13, LABEL = 0x14, HEAD = 0x15 };
    HprofWriter w(idSize, version);
    w.strings(VALUE, {"value", "coder", "next", "number", "label", "head"});
    w.loadClass(OBJECT_CLASS, "java/lang/Object");
    w.loadClass(CLASS_CLASS, "java/lang/Class");
    w.loadClass(STRING_CLASS, "java/lang/String");
    w.loadClass(NODE_CLASS, "demo/Node$Link");
    w.loadClass(OBJECT_ARRAY_CLASS, "[Ljava/lang/Object;");
    w.loadClass(BYTE_ARRAY_CLASS, "[B");
    auto cut = [&] {
        if (split) {
            w.endDump();
            w.beginDump(dumpTag);
        }
    };
    w.beginDump(dumpTag);
    w.classDump(OBJECT_CLASS, 0, 0, {}, {});
    w.classDump(CLASS_CLASS, OBJECT_CLASS, 0, {}, {});
    cut();
    w.classDump(STRING_CLASS, OBJECT_CLASS, 0, {}, {{CODER, 8, 0}, {VALUE, 2, 0}});
    w.classDump(NODE_CLASS, OBJECT_CLASS, 0, {{HEAD, 2, FIRST_NODE}, {NUMBER, 10, 77}},
                {{NUMBER, 10, 0}, {NEXT, 2, 0}, {LABEL, 2, 0}});
    cut();
    w.classDump(OBJECT_ARRAY_CLASS, OBJECT_CLASS, 0, {}, {});
    w.classDump(BYTE_ARRAY_CLASS, OBJECT_CLASS, 0, {}, {});
    w.rootSystemClass(NODE_CLASS);
    w.instance(FIRST_NODE, NODE_CLASS, {{5, 4}, {SECOND_NODE, idSize}, {0, idSize}});
    cut();
    w.instance(SECOND_NODE, NODE_CLASS, {{6, 4}, {0, idSize}, {TEXT, idSize}});
    w.instance(TEXT, STRING_CLASS, {{0, 1}, {TEXT_BYTES, idSize}});
    w.byteArray(TEXT_BYTES, "hello");
    cut();
    w.objectArray(ARRAY, OBJECT_ARRAY_CLASS, {FIRST_NODE, SECOND_NODE, 0});
    w.instance(THREAD_NODE, NODE_CLASS, {{7, 4}, {0, idSize}, {0, idSize}});
    w.rootGlobal(ARRAY);
    w.rootThread(THREAD_NODE, 1, 1);
    w.endDump();
    if (dumpTag == HPROF_HEAP_DUMP_SEGMENT) {
        w.dumpEnd();
    }
    return w;
}

inline std::unique_ptr<HeapModel> readHeap(const std::string& bytes, int threads = 1,
                                           int dumpNumber = 1) {
    TemporaryFile file(bytes);
    HeapReadOptions options;
    options.threads = threads;
    options.dumpNumber = dumpNumber;
    return HprofReader::read(std::make_shared<MappedFile>(file.path, ""), options);
}
