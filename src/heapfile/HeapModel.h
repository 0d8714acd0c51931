#pragma once

#include "heapfile/ClassColumn.h"
#include "heapfile/HeapSizing.h"
#include "heapfile/MappedFile.h"
#include "offline/ObjectStorage.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

// What holds an object from outside of the heap. Values are bits, and one root has one of them.
enum HeapRootKind : uint32_t {
    HEAP_ROOT_OTHER = 1,
    HEAP_ROOT_JNI_GLOBAL = 2,
    HEAP_ROOT_JNI_LOCAL = 4,
    HEAP_ROOT_STACK_LOCAL = 8,
    HEAP_ROOT_THREAD = 32,
    HEAP_ROOT_MONITOR = 64,
    HEAP_ROOT_SYSTEM_CLASS = 128,
    HEAP_ROOT_NATIVE_STACK = 256
};

struct HeapRoot {
    int row;
    uint32_t kind; // HeapRootKind
    int thread;    // index in HeapModel::threads, -1 if none
    int frame;     // depth in the thread's stack, 0 the top; -1 if not known
    int name = -1; // of a local variable: index in HeapModel::frameTexts; -1 if not known
};

struct HeapThread {
    uint32_t serial;             // number in the file
    int row;                     // of the java.lang.Thread, 0 if it isn't in the dump
    uint32_t trace;              // number of its stack in an HPROF file; see HeapModel::stackOf
    std::vector<uint32_t> stack; // of a snapshot, top first: indices in HeapModel::frameTexts
};

// A mark in the life of a heap. An object belongs to the first one behind its birth.
struct HeapGeneration {
    int number;       // as the storage's column of generations has it
    std::string name; // what opened it
    int64_t uptimeMs; // of the JVM
};

// A frame of the stacks that the storage's column of allocator frames names, or of a caller.
struct HeapSiteFrame {
    int frame;     // as the column has it
    int parent;    // the caller's frame, 0 for none; less than `frame`
    uint32_t text; // of "class.method", in HeapModel::frameTexts
    bool hidden;   // stands in no report: the agent's own, or the class behind an allocation
};

// An object whose size the storage's 32-bit column cannot hold.
struct LargeObject {
    int row;
    int64_t size; // bytes
};

struct HeapField {
    std::string name;
    char type; // Java type letter, 'L' for any reference
};

// Where the instances of a class have a field.
struct HeapFieldPlace {
    int owner = -1;   // the class that declares it: index in HeapModel::classes
    size_t index = 0; // in that class's fields
    char type = 0;
    uint64_t at = 0; // of a primitive the byte in the data, of a reference its place among them
};

struct HeapStaticField {
    std::string name;
    char type;
    uint64_t bits; // of a primitive value, zero-extended; for a reference 0 (see the class's row)
};

struct HeapClass {
    int row = 0;
    int superClass = -1;      // index in HeapModel::classes
    char elementType = 0;     // 0 for no array, 'L' for references, else the primitive's letter
    std::string name;         // as in source: "java.util.Map$Entry", "int[]"
    int64_t instanceSize = 0; // bytes of one instance, 0 for arrays and where it varies
    std::vector<HeapField> fields;        // own instance fields, in the order of the file
    std::vector<HeapStaticField> statics; // own static fields
    // What stands at each position of the class row's reference list.
    std::vector<std::string> referenceNames;
};

class HprofStacks;

// Rows to small numbers; read by any number of threads.
class RowTable {
public:
    void put(int row, int value);
    // The value of row, -1 if it has none.
    int get(int row) const {
        if (slots.empty()) {
            return -1;
        }
        for (size_t i = hash(row) & mask;; i = (i + 1) & mask) {
            if (slots[i].row == row) {
                return slots[i].value;
            }
            if (slots[i].row == 0) {
                return -1;
            }
        }
    }

private:
    struct Slot {
        int row;
        int value;
    };
    static size_t hash(int row) { return static_cast<uint32_t>(row) * 0x9e3779b1u >> 7; }
    std::vector<Slot> slots;
    size_t mask = 0;
    size_t used = 0;
};

// A heap as read from a file: the rows of an ObjectStorage with what the storage doesn't hold, the
// classes, roots, threads, and the way back to values in the file. Rows run from 1 to rowCount().
// The readers fill it; afterwards it is read only and any number of threads may ask.
class HeapModel {
public:
    enum class Format { Hprof, Snapshot };

    explicit HeapModel(std::shared_ptr<MappedFile> mappedFile);
    ~HeapModel();

    // Highest row.
    int rowCount() const { return storage ? objectCount - 1 : 0; }
    bool isClass(int row) const { return classOfRow.get(row) >= 0; }
    // Index in classes of an object's class; for the row of a class that of java.lang.Class. -1 for
    // a row that the file never defined.
    int classOf(int row) const;
    // Index in classes by the row of a class, -1 if the row is no class.
    int classByRow(int row) const { return classOfRow.get(row); }
    // Name of an object's class, "?" for a row without one.
    const std::string& classNameOf(int row) const;
    // Identifier of a row in the file, as its JVM knew it; 0 for a class that the file only
    // mentions.
    uint64_t idOf(int row) const;
    // Row of an identifier, 0 if there is none.
    int rowOfId(uint64_t id) const;
    // What the reference at a position of a row's list is: a field's name, "[7]", "<class>"...
    std::string referenceName(int row, int position) const;

    // Contents of a primitive array: start, count and type letter of its elements. False if row is
    // no such array or its data aren't in the file.
    bool primitiveArray(int row, const uint8_t*& elements, uint32_t& count, char& type) const;
    // Element of such an array, zero-extended.
    uint64_t element(const uint8_t* elements, uint32_t index, char type) const;
    // Value of an instance's primitive field, found by name from its class upward. False if there
    // is no such field or its data aren't in the file.
    bool primitiveField(int row, const std::string& name, uint64_t& bits) const;
    // Row that a reference field of an instance points to, 0 for null or no such field.
    int referenceField(int row, const std::string& name) const;
    // All fields of a class's instances, those of the class itself first, then its superclass's.
    std::vector<HeapFieldPlace> fieldsOf(int classIndex) const;
    // The field of that name nearest to the class; an owner of -1 if there is none.
    HeapFieldPlace fieldPlace(int classIndex, const std::string& name) const;
    // The same as the fields by name, for an instance of a class that has the place.
    bool primitiveAt(int row, const HeapFieldPlace& place, uint64_t& bits) const;
    int referenceAt(int row, const HeapFieldPlace& place) const;
    // Row of a class's loader, 0 for the JVM's own.
    int loaderOf(int classIndex) const;
    // Whether the class is another or has it as a superclass.
    bool isSubclass(int classIndex, int other) const;
    // Text of a java.lang.String in UTF-8, at most maxChars characters of it; both the form of
    // bytes with a coder and that of chars. False if row is no string or its data aren't in the
    // file.
    bool stringValue(int row, std::string& text, uint32_t maxChars = 0xffffffffu) const;
    // Bytes of an object itself, -1 for a row never made. Unlike the storage's column right for
    // arrays of 2 GiB and more.
    int64_t sizeOf(int row) const {
        const int size = storage->getSize(row);
        return size != LARGEST_STORED ? size : largeSizeOf(row);
    }
    // What the storage's column holds for an object that is larger.
    static constexpr int LARGEST_STORED = INT32_MAX;
    // The frame of that number, null if it is not known.
    const HeapSiteFrame* siteFrame(int frame) const;
    // The texts of a thread's frames, top first. Made when asked for: a file may have millions.
    std::vector<std::string> stackOf(int threadIndex) const;
    // The name of a java.lang.Thread, empty if not known.
    std::string threadName(int threadIndex) const;

    // To be called once when classes are complete: makes the look-up tables.
    void indexClasses();
    // Makes classColumn of what the rows refer to, for a reader that didn't fill it.
    void fillClassColumn();

    Format format = Format::Hprof;
    std::string formatName; // for reports: "HPROF 1.0.2", ...
    uint32_t idSize = 8;
    uint64_t captureTimeMs = 0; // since the epoch, 0 if not known
    std::shared_ptr<MappedFile> file;
    std::unique_ptr<ObjectStorage> storage;
    ClassColumn classColumn; // empty where classOf has to look the class up
    int objectCount = 0;     // of the storage: rows + 1
    int lastRowWithId = 0;   // rows above it are classes that the file only mentions
    std::vector<HeapClass> classes;
    std::vector<HeapRoot> roots;
    std::vector<HeapThread> threads;
    std::vector<std::string> frameTexts; // "class.method(file:line)", each once: threads share them
    std::vector<LargeObject> largeObjects;   // ascending rows
    std::vector<HeapGeneration> generations; // ascending numbers; empty where the file tells none
    std::vector<HeapSiteFrame> siteFrames;   // ascending frames
    int classClass = -1;                     // java.lang.Class
    int stringClass = -1;                    // java.lang.String
    HeapSizing sizing;
    // The file holds what an analysis found (sizes, dominators, retained sizes) and not the heap
    // that it was found from: there are no classes, roots and references.
    bool resultsOnly = false;
    std::vector<std::string> remarks; // what could not be read, in words for the user
    // What healthy files show too: told where a report describes the file, no reason for a warning.
    std::vector<std::string> notes;

private:
    int classBehindReference(int row) const;
    int64_t largeSizeOf(int row) const;
    std::vector<int> classChain(int classIndex) const;
    template <typename Visit>
    void eachField(const std::vector<int>& chain, Visit visit) const;
    bool hprofInstance(int row, const uint8_t*& data, uint32_t& length) const;

    RowTable classOfRow;
    std::unique_ptr<HprofStacks> hprofStacks;
};
