#include "db/SnapshotReader.h"

#include "db/DB.h"
#include "db/HeapRecords.h"

#include <cstring>

SnapshotReader::SnapshotReader(DB* database, ByteSource& source, HeapSectionReader* heapReader)
    : db(database), input(source), heap(heapReader), tables(database), headerRead(false) {}

const SnapshotHeader& SnapshotReader::readHeader() {
    headerRead = true;
    input.setTable("the header");
    input.setField("magic");
    char magic[SNAPSHOT_MAGIC_SIZE];
    for (char& byte : magic) {
        if (input.isAtEnd()) {
            input.fail("not a snapshot file");
        }
        byte = static_cast<char>(input.readByte());
    }
    if (memcmp(magic, SNAPSHOT_MAGIC, SNAPSHOT_MAGIC_SIZE) != 0) {
        input.fail("not a snapshot file");
    }
    input.setField("format");
    const int format = input.readByte();
    if (format != SNAPSHOT_FORMAT_BYTE) {
        input.fail(ZString("unknown format ") + longToString(format));
    }
    input.setField("creator");
    header.creator = input.readText();
    input.setField("start time");
    header.startTime = input.readLong();
    input.setField("snapshot number");
    header.snapshotNumber = input.readInt();
    input.setField("format value");
    header.formatValue = input.readInt();
    if (header.formatValue != SNAPSHOT_FORMAT_VALUE) {
        input.fail(ZString("unknown format value ") + longToString(header.formatValue));
    }
    input.setField("reserved");
    header.reserved = input.readLong();
    input.setField("flags");
    header.flags = input.readLong();
    input.setField("capture time");
    header.captureTimeMs = input.readLong();
    input.setField("session name");
    header.sessionName = input.readText();
    input.setTable(nullptr);
    db->startTime = header.startTime;
    db->sessionName = header.sessionName;
    return header;
}

const SnapshotHeader& SnapshotReader::read() {
    if (!headerRead) {
        readHeader();
    }
    readUserTables();
    if (input.peekByte() == SNAPSHOT_HEAP_TAG) {
        if (heap == nullptr) {
            skipHeapSections();
        } else {
            heap->readHeapSections(input, header);
        }
    }
    tables.readMarkedTables(input);
    const int next = input.peekByte();
    if (next == SNAPSHOT_CLOSING_TAG && heap != nullptr) {
        heap->readClosingSections(input, header);
    } else if (next >= 0 && next != SNAPSHOT_CLOSING_TAG) {
        input.fail(ZString("unexpected byte ") + longToString(next));
    }
    return header;
}

void SnapshotReader::skipHeapSections() {
    input.setTable("the heap");
    input.skip(1 + HEAP_HEADER_BYTES);
    for (int tag = input.peekByte(); tag >= 0; tag = input.peekByte()) {
        if (tag == SNAPSHOT_TABLE_TAG || tag == SNAPSHOT_CLOSING_TAG) {
            break;
        }
        input.readByte();
        if (!skipHeapRecord(input, tag)) {
            input.fail(ZString("unknown record ") + longToString(tag));
        }
    }
    input.setTable(nullptr);
}

void SnapshotReader::readUserTables() {
    input.setTable("user tables");
    int last = FIRST_USER_TABLE - 1;
    while (input.peekByte() == SNAPSHOT_USER_TABLE_TAG) {
        input.readByte();
        last = input.readIntInRange("slot", last + 1, MAX_TABLE_COUNT - 1);
        input.setRow(last);
        const ZString description = input.readText();
        if (!db->createUserTableInSlot(last, description)) {
            input.fail("the description of a user table is not valid");
        }
    }
    input.setTable(nullptr);
}
