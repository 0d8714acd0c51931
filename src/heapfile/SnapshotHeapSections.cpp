#include "heapfile/SnapshotHeapSections.h"

#include "db/DB.h"
#include "db/HeapRecords.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/HeapText.h"
#include "offline/HeapIndexWriter.h"

#include <algorithm>

namespace {

// Positions of a class row's list; interfaces, statics and constants follow.
enum ClassPosition { CLASS_SUPER, CLASS_LOADER, CLASS_SIGNERS, CLASS_DOMAIN, CLASS_FIXED };

// Null elements have no record, so lists may be much longer than the file; still not without end.
constexpr uint64_t POSITIONS_BASE = 1 << 20;
constexpr uint64_t POSITIONS_PER_BYTE = 64;
constexpr uint64_t PROGRESS_STRIDE = 1 << 24; // bytes

bool isReference(int tag) {
    return tag >= HEAP_RECORD_FIELD && tag <= HEAP_RECORD_CONSTANT;
}

} // namespace

// Checked little-endian reading of the mapped records.
class SnapshotHeapSections::Cursor {
public:
    Cursor(const MappedFile& mapped, uint64_t at)
        : base(mapped.data()), pos(at), end(mapped.size()) {}

    bool atEnd() const { return pos >= end; }
    uint64_t left() const { return end - pos; }
    uint8_t peek() const { return base[pos]; }
    uint8_t readByte() {
        need(1);
        return base[pos++];
    }
    int readInt() {
        need(4);
        uint32_t v = 0;
        for (int i = 3; i >= 0; i--) {
            v = v << 8 | base[pos + static_cast<uint64_t>(i)];
        }
        pos += 4;
        return static_cast<int>(v);
    }
    int64_t readLong() {
        uint64_t low = static_cast<uint32_t>(readInt());
        return static_cast<int64_t>(low | static_cast<uint64_t>(static_cast<uint32_t>(readInt()))
                                              << 32);
    }
    // A count of items of at least itemSize bytes that must still follow.
    int count(uint64_t itemSize, const char* what) {
        int n = readInt();
        if (n < 0 || static_cast<uint64_t>(n) > left() / itemSize) {
            fail(std::string(what) + ": a count of " + std::to_string(n), 4);
        }
        return n;
    }
    // A negative count is more than there is.
    void skip(int64_t bytes) {
        need(static_cast<uint64_t>(bytes));
        pos += static_cast<uint64_t>(bytes);
    }
    // `back`: how far behind the bad value the cursor stands.
    [[noreturn]] void fail(const std::string& what, uint64_t back) const {
        throw HeapReadError("snapshot heap: " + what, pos - std::min(pos, back));
    }

    uint64_t getOffset() const { return pos; }

private:
    void need(uint64_t bytes) const {
        if (end - pos < bytes) {
            fail("ends early", 0);
        }
    }
    const uint8_t* base;
    uint64_t pos;
    uint64_t end;
};

SnapshotHeapSections::SnapshotHeapSections(const MappedFile& mapped, HeapModel& heapModel,
                                           AnalysisProgress* analysisProgress)
    : file(mapped), model(heapModel), progress(analysisProgress),
      mostPositions(POSITIONS_BASE + POSITIONS_PER_BYTE * mapped.size()) {}

void SnapshotHeapSections::readHeapSections(ByteReader& input, const SnapshotHeader&) {
    const auto start = static_cast<uint64_t>(input.getOffset());
    Cursor in(file, start);
    if (in.readByte() != SNAPSHOT_HEAP_TAG) {
        in.fail("no heap header", 1);
    }
    const int count = in.readInt();
    in.readInt(); // strings, always 0
    in.readInt(); // allocators, told by their records
    if (count < 0 || count >= 0x7ffffff0) {
        in.fail("an object count of " + std::to_string(count), 12);
    }
    // A file with closing sections has no records: its arrays take at least as much.
    if (static_cast<uint64_t>(count) > in.left() / 4) {
        in.fail("an object count of " + std::to_string(count) + " in " + std::to_string(in.left()) +
                    " bytes",
                12);
    }
    model.objectCount = count + 1;
    model.lastRowWithId = count;
    model.storage.reset(new ObjectStorage(model.objectCount, false));
    const uint64_t first = in.getOffset();
    const uint64_t end = firstPass(first);
    secondPass(first, end);
    input.skip(static_cast<long>(end - start));
}

int SnapshotHeapSections::readRow(Cursor& in, const char* what, bool mayBeNull) const {
    const int row = in.readInt();
    if (row < (mayBeNull ? 0 : 1) || row >= model.objectCount) {
        in.fail(std::string(what) + " is object " + std::to_string(row) + " of " +
                    std::to_string(model.objectCount - 1),
                4);
    }
    return row;
}

SnapshotHeapSections::ClassNote* SnapshotHeapSections::noteOfClass(int row) {
    const int index = noteOfRow.get(row);
    return index < 0 ? nullptr : &notes[static_cast<size_t>(index)];
}

// Objects, classes, roots, and how many references each class has. Returns where the records end.
uint64_t SnapshotHeapSections::firstPass(uint64_t from) {
    Cursor in(file, from);
    std::vector<int> linkRows; // classes of records 14 and 15, which may come ahead of the class
    uint64_t nextReport = from;
    while (!in.atEnd() && in.peek() != SNAPSHOT_TABLE_TAG && in.peek() != SNAPSHOT_CLOSING_TAG) {
        if (in.getOffset() >= nextReport) {
            reportProgress(progress, "reading objects", static_cast<long>(in.getOffset()),
                           static_cast<long>(2 * file.size()));
            nextReport += PROGRESS_STRIDE;
        }
        const uint8_t tag = in.readByte();
        switch (tag) {
        case HEAP_RECORD_OBJECT:
        case HEAP_RECORD_REFERENCE_ARRAY:
        case HEAP_RECORD_PRIMITIVE_ARRAY:
            readObject(in, tag);
            break;
        case HEAP_RECORD_ALLOCATOR: {
            const int row = readRow(in, "allocated object", false);
            const int trn = in.readInt();
            const int frame = in.readInt();
            model.storage->setAllocator(row, frame, trn);
            allocatorFrames.insert(frame);
            break;
        }
        case HEAP_RECORD_STATIC_FIELD:
        case HEAP_RECORD_CONSTANT:
            linkRows.push_back(readRow(in, "referrer", false));
            in.skip(8);
            break;
        case HEAP_RECORD_CLASS:
            readClass(in);
            break;
        case HEAP_RECORD_ROOT:
            readRoot(in);
            break;
        case HEAP_RECORD_PRIMITIVES:
            skipPrimitives(in);
            break;
        default:
            if (!skipHeapRecord(in, tag)) {
                in.fail("unknown record tag " + std::to_string(tag), 1);
            }
        }
    }
    for (int row : linkRows) {
        ClassNote* note = noteOfClass(row);
        if (note) {
            note->linkCount++;
        }
    }
    createClasses(in);
    return in.getOffset();
}

void SnapshotHeapSections::readObject(Cursor& in, uint8_t tag) {
    const int row = readRow(in, "object", false);
    const int type = readRow(in, "class", false);
    const int64_t size = in.readLong();
    const int generation = in.readInt();
    const int length = in.readInt();
    if (length < 0 || size < 0) {
        in.fail("an object of negative size", 4);
    }
    ObjectStorage& storage = *model.storage;
    if (storage.getRefCount(row) != 0 || noteOfRow.get(row) >= 0) {
        in.fail("object " + std::to_string(row) + " is there twice", heapRecordBytes(tag));
    }
    objectRecords++;
    positionsUsed += 1 + (tag == HEAP_RECORD_PRIMITIVE_ARRAY ? 0 : static_cast<uint64_t>(length));
    if (positionsUsed > std::min<uint64_t>(mostPositions, 0x7ffffff0)) {
        in.fail("more references than can be", 4);
    }
    const int bytes = static_cast<int>(std::min<int64_t>(size, HeapModel::LARGEST_STORED));
    if (size >= HeapModel::LARGEST_STORED) {
        model.largeObjects.push_back({row, size});
    }
    if (tag == HEAP_RECORD_OBJECT) {
        storage.createObject(nullptr, row, type, generation, bytes, length);
    } else if (tag == HEAP_RECORD_REFERENCE_ARRAY) {
        storage.createObjectArray(nullptr, row, type, generation, bytes, length);
    } else {
        storage.createPrimArray(nullptr, row, type, length, bytes, generation);
    }
}

void SnapshotHeapSections::readClass(Cursor& in) {
    ClassNote note;
    note.offset = in.getOffset() - 1;
    note.nameId = in.readInt();
    const int row = readRow(in, "class", false);
    if (model.storage->getRefCount(row) != 0 || noteOfRow.get(row) >= 0) {
        in.fail("object " + std::to_string(row) + " is there twice", 4);
    }
    note.superRow = readRow(in, "superclass", true);
    const int64_t size = in.readLong();
    note.size = static_cast<int>(std::clamp<int64_t>(size, 0, INT32_MAX));
    note.generation = in.readInt();
    in.readLong();
    for (int n = in.count(4, "interfaces"); n > 0; n--) {
        note.interfaces.push_back(readRow(in, "interface", true));
    }
    readFieldLists(in, note);
    in.readInt();
    in.readInt();
    objectRecords++;
    noteOfRow.put(row, static_cast<int>(notes.size()));
    HeapClass type;
    type.row = row;
    model.classes.push_back(std::move(type));
    notes.push_back(std::move(note));
}

// Static references, instance references (name and modifiers each), static primitives, instance
// primitives (name and type letter each).
void SnapshotHeapSections::readFieldLists(Cursor& in, ClassNote& note) {
    for (int list = 0; list < 4; list++) {
        const bool reference = list < 2;
        const bool isStatic = list % 2 == 0;
        for (int n = in.count(reference ? 8 : 5, "fields"); n > 0; n--) {
            const int name = in.readInt();
            char type = 'L';
            if (reference) {
                in.readInt();
            } else {
                type = static_cast<char>(in.readByte());
                if (primitiveTypeSize(type) == 0) {
                    in.fail("a field of unknown type", 1);
                }
            }
            if (reference && isStatic) {
                note.staticReferenceNames.push_back(name);
            }
            note.fields.push_back({name, type, isStatic});
        }
    }
}

void SnapshotHeapSections::readRoot(Cursor& in) {
    RootNote note;
    note.row = readRow(in, "root", false);
    note.kind = static_cast<uint32_t>(in.readInt());
    note.trn = in.readInt();
    note.threadRow = readRow(in, "thread", true);
    note.frame = in.readInt();
    note.variable = in.readInt();
    rootNotes.push_back(note);
}

void SnapshotHeapSections::skipPrimitives(Cursor& in) {
    const int64_t size = in.readLong();
    if (size < 0) {
        in.fail("a primitive block of negative size", 8);
    }
    in.skip(static_cast<uint64_t>(size));
    const int count = in.count(8, "primitive offsets");
    if (count != model.objectCount) {
        in.fail(std::to_string(count) + " primitive offsets for " +
                    std::to_string(model.objectCount - 1) + " objects",
                4);
    }
    in.skip((8 - in.getOffset() % 8) % 8);
    offsetTable = in.getOffset();
    in.skip(static_cast<uint64_t>(count) * 8);
    Cursor table(file, offsetTable + 8);
    for (int row = 1; row < count; row++) {
        const int64_t at = table.readLong();
        if (at < 0 || static_cast<uint64_t>(at) > file.size()) {
            table.fail("data of object " + std::to_string(row) + " lie outside of the file", 8);
        }
        if (at != 0) {
            model.storage->setPrimitiveDataPosition(row, at);
        }
    }
}

void SnapshotHeapSections::createClasses(Cursor& in) {
    for (size_t i = 0; i < notes.size(); i++) {
        ClassNote& note = notes[i];
        const int row = model.classes[i].row;
        note.nextLink = CLASS_FIXED + static_cast<int>(note.interfaces.size());
        const int count = note.nextLink + note.linkCount;
        positionsUsed += static_cast<uint64_t>(count);
        if (positionsUsed > 0x7ffffff0) {
            in.fail("more references than can be", 0);
        }
        model.storage->createClass(nullptr, row, note.generation, note.size, count);
        model.storage->setRef(row, note.superRow, CLASS_SUPER);
        for (size_t k = 0; k < note.interfaces.size(); k++) {
            model.storage->setRef(row, note.interfaces[k], CLASS_FIXED + static_cast<int>(k));
        }
        model.classes[i].referenceNames = {"<superclass>", "<class loader>", "<signers>",
                                           "<protection domain>"};
        model.classes[i].referenceNames.resize(static_cast<size_t>(note.nextLink), "<interface>");
    }
}

// Stores all references now that every list has its place.
void SnapshotHeapSections::secondPass(uint64_t from, uint64_t to) {
    Cursor in(file, from);
    uint64_t nextReport = from;
    while (in.getOffset() < to) {
        if (in.getOffset() >= nextReport) {
            reportProgress(progress, "reading objects",
                           static_cast<long>(file.size() + in.getOffset()),
                           static_cast<long>(2 * file.size()));
            nextReport += PROGRESS_STRIDE;
        }
        const uint8_t tag = in.readByte();
        if (isReference(tag)) {
            storeReference(in, tag);
        } else {
            skipHeapRecord(in, tag);
        }
    }
    if (droppedReferences > 0) {
        model.remarks.push_back(std::to_string(droppedReferences) +
                                " references stand outside of their objects' fields");
    }
}

void SnapshotHeapSections::storeReference(Cursor& in, uint8_t tag) {
    const int from = readRow(in, "referrer", false);
    const int to = readRow(in, "referee", true);
    const bool hasSlot = tag != HEAP_RECORD_CLASS_LOADER && tag != HEAP_RECORD_SIGNERS &&
                         tag != HEAP_RECORD_PROTECTION_DOMAIN;
    const int slot = hasSlot ? in.readInt() : 0;
    ObjectStorage& storage = *model.storage;
    if (tag == HEAP_RECORD_FIELD || tag == HEAP_RECORD_ELEMENT) {
        // Position 0 is the class.
        if (noteOfRow.get(from) >= 0 || slot < 0 || slot >= storage.getRefCount(from) - 1) {
            droppedReferences++;
            return;
        }
        storage.setRef(from, to, slot + 1);
        return;
    }
    ClassNote* note = noteOfClass(from);
    if (!note) {
        droppedReferences++;
        return;
    }
    if (tag == HEAP_RECORD_CLASS_LOADER) {
        note->hasLoader = note->hasLoader || to != 0;
        storage.setRef(from, to, CLASS_LOADER);
    } else if (tag == HEAP_RECORD_SIGNERS) {
        storage.setRef(from, to, CLASS_SIGNERS);
    } else if (tag == HEAP_RECORD_PROTECTION_DOMAIN) {
        storage.setRef(from, to, CLASS_DOMAIN);
    } else {
        HeapClass& type = model.classes[static_cast<size_t>(noteOfRow.get(from))];
        if (tag == HEAP_RECORD_STATIC_FIELD) {
            note->staticIndices.emplace(slot, note->nextLink);
        }
        storage.setRef(from, to, note->nextLink++);
        type.referenceNames.push_back(
            (tag == HEAP_RECORD_STATIC_FIELD ? "<static field " : "<constant ") +
            std::to_string(slot) + ">");
    }
}

// Section version, 0, class rows, -1, -1, and the paged arrays in their order.
void SnapshotHeapSections::readClosingSections(ByteReader& input, const SnapshotHeader&) {
    input.setTable("closing sections");
    input.readByte();
    input.readIntInRange("section version", HEAP_INDEX_VERSION, HEAP_INDEX_VERSION);
    input.readIntInRange("reserved", 0, 0);
    const int classes = input.readIntInRange("class count", 0, 0x7fffffff);
    input.expect("class rows", classes, 4);
    if (!model.storage) {
        input.fail("closing sections without a heap");
    }
    for (int i = 0; i < classes; i++) {
        const int row = input.readIntInRange("class row", 1, model.objectCount - 1);
        if (!hasObjects()) {
            model.storage->getClassRows().push(row);
        }
    }
    input.readIntInRange("end of class rows", -1, -1);
    input.readIntInRange("end of class rows", -1, -1);
    for (int kind = READ_REFERENCES; kind < READ_KIND_COUNT; kind++) {
        readPagedArray(input, kind);
    }
    closingRead = true;
    input.setTable(nullptr);
}

// Pages as start, end and elements, up to -1, -1.
void SnapshotHeapSections::readPagedArray(ByteReader& input, int kind) {
    const int pageSize = BigIntArray64::PAGE_SIZE;
    const bool pairs = kind == READ_RETAINED_SIZES || kind == READ_META_POSITIONS ||
                       kind == READ_PRIMITIVE_POSITIONS;
    const long rows = kind == READ_REFERENCES
                          ? 0x7fffffffL
                          : static_cast<long>(model.objectCount) * (pairs ? 2 : 1);
    long last = -1;
    BigIntArray64& array = *model.storage->arrayOfKind(kind);
    while (true) {
        const int start = input.readIntInRange("start of a page", -1, 0x7fffffff);
        if (start == -1) {
            input.readIntInRange("end of an array", -1, -1);
            return;
        }
        if (start % pageSize != 0 || start <= last || start >= rows) {
            input.fail("a page that is out of place");
        }
        last = start;
        const int end = input.readInt();
        // The end of the last page that can be does not fit in an int.
        if (static_cast<unsigned>(end) != static_cast<unsigned>(start) + pageSize) {
            input.fail("a page of another size");
        }
        input.expect("elements of a page", pageSize, 4);
        int* page = array.getBuffer(start, true);
        for (int i = 0; i < pageSize; i++) {
            const int value = input.readInt();
            const bool rowValue = kind == READ_REFERENCES || kind == READ_DOMINATORS;
            if (rowValue && (value < 0 || value >= model.objectCount)) {
                input.fail("a row that does not exist");
            }
            page[i] = value;
        }
    }
}
