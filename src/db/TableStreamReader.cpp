#include "db/TableStreamReader.h"

#include "db/DB.h"
#include "db/SnapshotCommon.h"

#include <cstdlib>
#include <cstring>
#include <limits.h>

namespace {
// Memory that tables may take for a stream: this much at once, so that few rows spread over many
// chunks are no matter, and then a multiple of the bytes that came. A chunk holds 256 rows, and
// tables whose chunks are filled to less than a sixtieth on average do not occur.
constexpr long FREE_ALLOCATION = 16L << 20;
constexpr long ALLOCATION_PER_BYTE = 64;

// Frames are never removed, so their numbers are dense; some room for a row that was made but
// not stamped yet.
constexpr long SPARE_FRAMES = 4096;
constexpr long ROOM_PER_FRAME = 4;

// Rows for which a table's pointer array is made ahead, where the size of the input is unknown.
constexpr int MOST_RESERVED_ROWS = 1 << 20;

// The slot that a field's meaning refers to, -1 for none.
int slotOf(FieldMeaning meaning) {
    switch (meaning) {
    case STRING_ROW:
        return SLOT_String;
    case FRAME_ROW:
    case FRAME_LINK:
        return SLOT_Frame;
    case METHOD_ROW:
        return SLOT_Method;
    // A thread takes its key together with its row, and keys are reused: no key exceeds the rows.
    case THREAD_INDEX:
        return SLOT_Thread;
    default:
        return -1;
    }
}

template <typename T>
constexpr long leastWireSize() {
    // Index and stamp, and the fields; a text is at least its length.
    long size = 8;
    for (int i = 0; i < RecordTraits<T>::fieldCount; i++) {
        const FieldType type = RecordTraits<T>::fields[i].type;
        size += type == FIELD_LONG ? 8 : type == FIELD_TELE ? 4 * TELE_FIELD_COUNT : 4;
    }
    return size;
}
} // namespace

// Reads the fields of a record, checks what they refer to.
struct TableStreamReader::RowReader {
    TableStreamReader& reader;
    ByteReader& input;
    const TableField* fields;
    const char* tableName;
    int index;

    void operator()(int number, int& value) {
        input.setField(fields[number].name);
        value = input.readInt();
        if (fields[number].meaning != PLAIN && fields[number].meaning != STRING_OR_NUMBER) {
            reader.noteReference(input, fields[number].meaning, value, index, tableName,
                                 fields[number].name);
        }
    }
    void operator()(int number, long& value) {
        input.setField(fields[number].name);
        value = input.readLong();
    }
    void operator()(int number, char*& value) {
        input.setField(fields[number].name);
        value = input.readString();
    }
    void operator()(int number, TelemetryValues& values) {
        input.setField(fields[number].name);
        for (int& value : values.value) {
            value = input.readInt();
        }
    }
};

TableStreamReader::TableStreamReader(DB* database)
    : db(database), stamps(), rowCounts(), seen(), lastSlot(-1), bytesRead(0), streamStart(0),
      bytesAllocated(0), frameRows(0), references() {}

long TableStreamReader::getRowCount() const {
    long rows = 0;
    for (int count : rowCounts) {
        rows += count;
    }
    return rows;
}

void TableStreamReader::readSocketStream(ByteReader& input) {
    beginStream(input);
    for (;;) {
        input.setTable("table stream");
        const int slot = input.readInt();
        if (slot == TABLE_STREAM_END) {
            break;
        }
        readTable(input, slot);
    }
    endStream(input);
}

void TableStreamReader::readMarkedTables(ByteReader& input) {
    beginStream(input);
    while (input.peekByte() == SNAPSHOT_TABLE_TAG) {
        input.setTable("table stream");
        input.readByte();
        readTable(input, input.readInt());
    }
    endStream(input);
}

void TableStreamReader::beginStream(ByteReader& input) {
    streamStart = input.getOffset();
    lastSlot = -1;
    changedFrames.clear();
    for (int& count : rowCounts) {
        count = 0;
    }
    for (Reference& reference : references) {
        reference = Reference();
    }
}

void TableStreamReader::endStream(ByteReader& input) {
    input.setTable(nullptr);
    checkReferences(input);
    checkFrames(input);
    bytesRead += input.getOffset() - streamStart;
    input.setTable(nullptr);
}

void TableStreamReader::readTable(ByteReader& input, int slot) {
    if (slot <= lastSlot) {
        input.fail(ZString("table ") + longToString(slot) + ZString(" after table ") +
                   longToString(lastSlot));
    }
    lastSlot = slot;
    switch (slot) {
#define VDK_READ_TABLE(theSlot, base, member, tableName, firstIndex, capacity, size)               \
    case theSlot:                                                                                  \
        if (theSlot == SLOT_Allocator) {                                                           \
            input.fail("the table allocator is never part of a stream");                           \
        }                                                                                          \
        readRows<base##Record>(input);                                                             \
        break;
        VDK_TABLES(VDK_READ_TABLE)
#undef VDK_READ_TABLE
    default:
        UserTable* table = db->getUserTable(slot);
        if (table == nullptr) {
            input.fail(ZString("there is no table ") + longToString(slot));
        }
        readUserRows(input, slot, table);
    }
}

int TableStreamReader::readCount(ByteReader& input, long leastRowSize) {
    const int count = input.readInt();
    input.expect("rows", count, leastRowSize);
    return count;
}

int TableStreamReader::readRowHead(ByteReader& input, int slot, int previous, int* stamp) {
    input.setRow(-1);
    input.setField(nullptr);
    const int index = input.readInt();
    if (index <= previous || index == INT_MAX) {
        input.fail(ZString("row number ") + longToString(index) + ZString(" after ") +
                   longToString(previous));
    }
    input.setRow(index);
    input.setField("stamp");
    *stamp = input.readInt();
    if (*stamp == 0 || *stamp == INT_MIN) {
        input.fail(ZString("stamp ") + longToString(*stamp));
    }
    const int age = *stamp < 0 ? -*stamp : *stamp;
    if (age > stamps[slot]) {
        stamps[slot] = age;
    }
    rowCounts[slot]++;
    seen[slot] = true;
    return index;
}

// Charges what storing a row will allocate, and refuses it if the input does not justify it.
void TableStreamReader::justify(ByteReader& input, const AbstractTable* table, long chunkBytes,
                                bool newChunk, int index) {
    if (newChunk) {
        bytesAllocated += chunkBytes;
    }
    if (index >= table->getCapacity()) {
        bytesAllocated += ((index >> ZIntChunkMap<int>::CHUNK_SHIFT) + 1L) * 8 -
                          (table->getCapacity() >> ZIntChunkMap<int>::CHUNK_SHIFT) * 8L;
    }
    const long arrived = bytesRead + input.getOffset() - streamStart;
    if (bytesAllocated > FREE_ALLOCATION + ALLOCATION_PER_BYTE * arrived) {
        input.fail(ZString("the rows are too far apart: ") + longToString(bytesAllocated) +
                   ZString(" bytes of memory for ") + longToString(arrived) +
                   ZString(" bytes of input"));
    }
}

template <typename T>
void TableStreamReader::readRows(ByteReader& input) {
    typedef RecordTraits<T> Traits;
    DBTable<T>* table = static_cast<DBTable<T>*>(db->tables[Traits::slot]);
    input.setTable(Traits::tableName);
    const int count = readCount(input, leastWireSize<T>());
    // Row numbers rise, so the last one is at least the number of rows: no growth in small steps.
    const int certain = count < MOST_RESERVED_ROWS ? count : MOST_RESERVED_ROWS;
    justify(input, table, 0, false, certain - 1);
    table->getRecords().reserve(certain);
    int previous = -1;
    for (int i = 0; i < count; i++) {
        T record = T();
        previous = readRowHead(input, Traits::slot, previous, &record.stamp);
        const bool newChunk = table->getRecords().getPtrUnlocked(previous) == nullptr;
        justify(input, table, ZIntChunkMap<T>::CHUNK_SIZE * static_cast<long>(sizeof(T)), newChunk,
                previous);
        Traits::eachField(record,
                          RowReader{*this, input, Traits::fields, Traits::tableName, previous});
        input.setField(nullptr);
        store(input, previous, record);
        table->getIndexPool().keepAbove(previous);
    }
}

template <typename T>
void TableStreamReader::store(ByteReader& input, int index, const T& record) {
    if constexpr (std::is_same<T, StringRecord>::value) {
        // The text is this record's until the pool has it.
        if (index < 1) {
            free(record.text);
            input.fail("row 0 stands for no text");
        }
        db->stringPool->loadRow(index, record.stamp, record.text);
    } else if constexpr (std::is_same<T, FrameRecord>::value) {
        // With children after their parents, and siblings in rising order, no walk runs in a
        // circle.
        FrameRecord* known = db->frameTable->getRecord(index, true);
        if (record.parent >= index || (record.firstChild >= 0 && record.firstChild <= index) ||
            (record.nextSibling >= 0 && record.nextSibling <= index)) {
            input.fail("the frames are no tree");
        }
        if (known->stamp == 0) {
            frameRows++;
        } else if (known->parent != record.parent || known->method != record.method) {
            input.fail("a frame changes its parent or method");
        }
        if (index > SPARE_FRAMES + ROOM_PER_FRAME * frameRows) {
            input.fail("frames are missing before this one");
        }
        *known = record;
        changedFrames.push(index);
    } else if constexpr (std::is_same<T, TableGenerationRecord>::value) {
        if (index >= MAX_TABLE_COUNT) {
            input.fail("there is no such table to be cleared");
        }
        const int known = db->tableGenerationTable->getRecordModificationStamp(index);
        db->tableGenerationTable->setRecordModificationStamp(index, record.stamp);
        if (record.stamp > known) {
            dropOlderRows(input, index, record.stamp);
        }
    } else {
        *static_cast<DBTable<T>*>(db->tables[RecordTraits<T>::slot])->getRecord(index, true) =
            record;
    }
}

void TableStreamReader::readUserRows(ByteReader& input, int slot, UserTable* table) {
    input.setTable(table->getName().c_str());
    const int length = table->getRowLength();
    const int count = readCount(input, 4 + 4L * length);
    const int certain = count < MOST_RESERVED_ROWS ? count : MOST_RESERVED_ROWS;
    justify(input, table, 0, false, certain - 1);
    ZIntChunkMap2& rows = table->getRows();
    rows.reserve(certain);
    int previous = -1;
    for (int i = 0; i < count; i++) {
        int stamp;
        previous = readRowHead(input, slot, previous, &stamp);
        const int chunk = previous >> ZIntChunkMap2::CHUNK_SHIFT;
        const bool newChunk = chunk >= rows.getChunkCount() || rows.chunkAt(chunk) == nullptr;
        input.expect("columns", length - 1, 4);
        justify(input, table, rows.getChunkBytes(), newChunk, previous);
        int* row = rows.getPtr(previous, true);
        row[0] = stamp;
        for (int word = 1; word < length; word++) {
            row[word] = input.readInt();
        }
        table->getIndexPool().keepAbove(previous);
    }
}

void TableStreamReader::noteReference(ByteReader& input, FieldMeaning meaning, int value,
                                      int fromRow, const char* fromTable, const char* fromField) {
    if (value < (meaning == FRAME_LINK ? -1 : 0)) {
        input.fail(ZString("row number ") + longToString(value));
    }
    Reference& reference = references[meaning];
    if (value > reference.row) {
        reference.row = value;
        reference.fromRow = fromRow;
        reference.fromTable = fromTable;
        reference.fromField = fromField;
    }
}

void TableStreamReader::checkReferences(ByteReader& input) {
    for (int meaning = PLAIN; meaning <= THREAD_INDEX; meaning++) {
        const Reference& reference = references[meaning];
        const int slot = slotOf(static_cast<FieldMeaning>(meaning));
        // A client need not fetch all tables; then it has nothing to look up either.
        if (slot >= 0 && seen[slot] && reference.row >= db->tables[slot]->getCapacity()) {
            input.setTable(reference.fromTable);
            input.setRow(reference.fromRow);
            input.setField(reference.fromField);
            input.fail(ZString("a reference to row ") + longToString(reference.row) +
                       ZString(", which does not exist"));
        }
    }
}

// Each changed frame's first child and next sibling must hang where it says: a list then holds no
// frame of another parent, and every frame is met once in a walk of the tree.
void TableStreamReader::checkFrames(ByteReader& input) {
    input.setTable(RecordTraits<FrameRecord>::tableName);
    for (int i = 0; i < changedFrames.getSize(); i++) {
        const int index = changedFrames.get(i);
        const FrameRecord* frame = db->frameTable->getRecord(index, true);
        const FrameRecord* child =
            frame->firstChild < 0 ? nullptr : db->frameTable->getRecord(frame->firstChild, false);
        const FrameRecord* sibling =
            frame->nextSibling < 0 ? nullptr : db->frameTable->getRecord(frame->nextSibling, false);
        input.setRow(index);
        if (frame->firstChild >= 0 && (child == nullptr || child->parent != index)) {
            input.setField("firstChild");
            input.fail("the frames are no tree");
        }
        if (frame->nextSibling >= 0 && (sibling == nullptr || sibling->parent != frame->parent)) {
            input.setField("nextSibling");
            input.fail("the frames are no tree");
        }
    }
}

// What was stored at the stamp of the clearing or later was made after it.
template <typename T>
void TableStreamReader::dropOlderRecords(int stamp) {
    DBTable<T>* table = static_cast<DBTable<T>*>(db->tables[RecordTraits<T>::slot]);
    bool anyLeft = false;
    table->eachRecord([&](int index, T& record) {
        if (isNewerStamp(record.stamp, stamp - 1)) {
            anyLeft = true;
        } else if constexpr (std::is_same<T, StringRecord>::value) {
            db->stringPool->loadRow(index, 0, nullptr);
        } else {
            record = T();
        }
        static_cast<void>(index);
    });
    if (!anyLeft) {
        // The chunks go, the pointer array stays.
        ZIntChunkMap<T>& records = table->getRecords();
        const long chunkBytes = records.getAllocatedBytes() - records.getChunkCount() * 8L;
        bytesAllocated -= chunkBytes < bytesAllocated ? chunkBytes : bytesAllocated;
        table->clearTable();
    }
}

void TableStreamReader::dropOlderRows(ByteReader& input, int slot, int stamp) {
    switch (slot) {
#define VDK_DROP_ROWS(theSlot, base, member, tableName, firstIndex, capacity, size)                \
    case theSlot:                                                                                  \
        if (theSlot == SLOT_Frame || theSlot == SLOT_TableGeneration) {                            \
            input.fail("the table " tableName " is never cleared");                                \
        }                                                                                          \
        dropOlderRecords<base##Record>(stamp);                                                     \
        break;
        VDK_TABLES(VDK_DROP_ROWS)
#undef VDK_DROP_ROWS
    default:
        UserTable* table = db->getUserTable(slot);
        for (int i = 0; table != nullptr && i < table->getCapacity(); i++) {
            int* row = table->getRecord(i, false);
            if (row != nullptr && !isNewerStamp(row[0], stamp - 1)) {
                memset(row, 0, sizeof(int) * static_cast<size_t>(table->getRowLength()));
            }
        }
    }
}
