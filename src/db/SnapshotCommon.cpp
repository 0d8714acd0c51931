#include "db/SnapshotCommon.h"

#include "core/ground/Options.h"
#include "core/ground/Version.h"
#include "db/DB.h"
#include "db/SnapshotWriter.h"

#include <ctime>

int ourSnapshotCount = 0;
bool ourContainsInvocations = false;

const char SNAPSHOT_MAGIC[SNAPSHOT_MAGIC_SIZE + 1] =
    "Vandrik Java Profiler snapshot, http://www.vandrik.com\n\x1A";

bool TableSet::contains(const DB& db, int slot) const {
    if (slot < 0 || slot >= MAX_TABLE_COUNT || db.tables[slot] == nullptr) {
        return false;
    }
    return slot < CORE_TABLE_COUNT ? (mask >> slot & 1) != 0 : slot < limit;
}

int TableSet::count(const DB& db) const {
    int selected = 0;
    for (int slot = 0; slot < MAX_TABLE_COUNT; slot++) {
        selected += contains(db, slot);
    }
    return selected;
}

void writeTables(DB* db, AbstractWriter& writer, TableSet set, int progressFrom, int progressTo,
                 Progress* progress, const int* stamps, bool withMarkers, TableRefresh* refresh) {
    Logger::assertNotNULL(progress, VDK_HERE);
    if (db == ourDB && refresh != nullptr) {
        refresh->bringUpToDate(set);
    }
    const int count = set.count(*db);
    if (count == 0) {
        return;
    }
    const int step = (progressTo - progressFrom) / count;
    int from = progressFrom;
    for (int slot = 0; slot < MAX_TABLE_COUNT; slot++) {
        if (!set.contains(*db, slot)) {
            continue;
        }
        if (withMarkers) {
            writer.writeByte(SNAPSHOT_TABLE_TAG);
        }
        writer.writeInt(slot);
        db->tables[slot]->writeTable(writer, stamps == nullptr ? 0 : stamps[slot], from,
                                     from + step, progress);
        from += step;
    }
}

void writeAllTables(DB* db, AbstractWriter& writer, int progressFrom, int progressTo,
                    Progress* progress, TableRefresh* refresh) {
    writeTables(db, writer, ALL_TABLES, progressFrom, progressTo, progress, nullptr, true, refresh);
}

void writeSnapshotHeader(long startTime, const ZString& sessionName, SnapshotWriter& writer,
                         long flags, int formatValue) {
    writer.writeBytes(SNAPSHOT_MAGIC, SNAPSHOT_MAGIC_SIZE);
    writer.writeByte(SNAPSHOT_FORMAT_BYTE);
    writer.writeString("Created by " VDK_FULL_NAME);
    writer.writeLong(startTime);
    writer.writeInt(ourSnapshotCount++);
    writer.writeInt(formatValue);
    writer.writeLong(-1);
    writer.writeLong(flags | (ourContainsInvocations ? SNAPSHOT_WITH_COUNTS : 0) |
                     SNAPSHOT_OIDS_ARE_INDICES);
    writer.writeLong(static_cast<long>(time(nullptr)) * 1000);
    writer.writeString(sessionName.c_str());
    if (Options::isDebug("dumpStack")) {
        Logger::dumpStack("writeSnapshotHeader");
    }
}

void writeUserTableDescriptions(DB* db, AbstractWriter& writer) {
    for (int slot = FIRST_USER_TABLE; slot < MAX_TABLE_COUNT; slot++) {
        const UserTable* table = db->getUserTable(slot);
        if (table != nullptr) {
            writer.writeByte(SNAPSHOT_USER_TABLE_TAG);
            writer.writeInt(slot);
            writer.writeString(table->getDescription().c_str());
        }
    }
}
