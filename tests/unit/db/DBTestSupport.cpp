#include "DBTestSupport.h"

#include "db/SnapshotCommon.h"

#include <cstdio>

std::string hex(const std::string& bytes) {
    std::string text;
    char digits[4];
    for (unsigned char byte : bytes) {
        snprintf(digits, sizeof(digits), text.empty() ? "%02X" : " %02X", byte);
        text.append(digits);
    }
    return text;
}

std::string bytesOf(const char* hexText) {
    std::string bytes;
    unsigned byte;
    int taken;
    while (sscanf(hexText, "%2x%n", &byte, &taken) == 1) {
        bytes.push_back(static_cast<char>(byte));
        hexText += taken;
    }
    return bytes;
}

std::string intBytes(int value) {
    std::string bytes;
    for (int i = 0; i < 4; i++) {
        bytes.push_back(static_cast<char>(static_cast<unsigned>(value) >> (8 * i)));
    }
    return bytes;
}

void fillSample(DB& db) {
    StringPool& pool = *db.stringPool;
    const int names[] = {pool.getDBIndex("main", true), pool.getDBIndex("", true),
                         pool.getDBIndex("caf\xC3\xA9", true)};
    for (int i = 1; i <= 3; i++) {
        ThreadRecord* thread = db.threadTable->getRecord(db.threadTable->nextIndex(), true);
        thread->nameStrID = names[i - 1];
        thread->tfiThreadIndex = i;
        thread->trn = i;
        thread->nativeThreadID = 0x123456789aL + i;
        thread->stamp = 1;
        MethodRecord* method = db.methodTable->getRecord(db.methodTable->nextIndex(), true);
        method->methodNameStrID = names[0];
        method->classNameStrID = names[i - 1];
        method->flags = METHOD_WAIT;
        method->stamp = 1;
    }
    FrameRecord* root = db.frameTable->getRecord(0, true);
    root->firstChild = 1;
    root->stamp = 1;
    for (int i = 1; i <= 600; i++) {
        FrameRecord* frame = db.frameTable->getRecord(db.frameTable->nextIndex(), true);
        frame->parent = i - 1;
        frame->method = 1 + i % 3;
        frame->firstChild = i < 600 ? i + 1 : -1;
        frame->stamp = 1;
        const int tfi = db.threadFrameIndex->getTFI(1 + i % 3, i, true);
        CPUProfilingRecord* cpu = db.cpuProfilingTable->getRecord(tfi, true);
        cpu->timeNs = i * 1000000007L;
        cpu->count = -i;
        cpu->stamp = 1;
    }
    db.allocInfoTable->getRecord(300, true)->objectBytes = 1L << 40;
    db.allocInfoTable->getRecord(300, true)->stamp = -1;
    db.j2eeTable->getRecord(db.j2eeIndex->getIndex(names[2], 4, 7, 2), true)->timeNs = 77;
    for (int i = 0; i < 20; i++) {
        TelemetryRecord* tele = db.telemetryTable->getRecord(db.telemetryTable->nextIndex(), true);
        tele->values[TELE_UPTIME_DS] = i;
        tele->values[TELE_EXT_START_INDEX] = -i;
        tele->stamp = 1;
    }
    db.setProperty("vdk.answer", 42);
    db.addSnapshotRow("/tmp/a.snapshot", 513);
    const int slot =
        db.createUserTableByDescription("Events\n3\nuptime_ns\n1\nURL\n2\nthread\n0\n");
    UserTable* events = db.getUserTable(slot);
    for (int i = 0; i < 5; i++) {
        int* row = events->getRecord(events->nextIndex(), true);
        events->setLongColumn(row, 0, -1L - i);
        events->setStringColumn(row, 1, names[i % 3]);
        row[0] = i == 3 ? -1 : 1;
    }
}

std::string tableOf(AbstractTable& table, int stamp) {
    MemoryWriter writer;
    Progress progress;
    table.writeTable(writer, stamp, 0, 0, &progress);
    return writer.take();
}

std::string streamOf(DB& db) {
    MemoryWriter writer;
    Progress progress;
    writeAllTables(&db, writer, 0, 90, &progress, nullptr);
    return writer.take();
}

std::string socketStreamOf(DB& db, int mask, const int* stamps) {
    MemoryWriter writer;
    Progress progress;
    writeTables(&db, writer, TableSet{mask, MAX_TABLE_COUNT}, 0, 0, &progress, stamps, false,
                nullptr);
    writer.writeInt(TABLE_STREAM_END);
    return writer.take();
}
