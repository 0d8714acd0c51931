#include "db/UserTable.h"

#include "core/ground/Logger.h"
#include "db/AbstractWriter.h"
#include "db/DBTable.h"
#include "db/Progress.h"
#include "db/TableStatistics.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {
constexpr int INITIAL_ROWS = 1024;

struct PredefinedColumnInfo {
    const char* name;
    int type;
};
constexpr PredefinedColumnInfo PREDEFINED[] = {
#define VDK_PREDEFINED_COLUMN_INFO(constant, name, type) {name, type},
    VDK_PREDEFINED_COLUMNS(VDK_PREDEFINED_COLUMN_INFO)
#undef VDK_PREDEFINED_COLUMN_INFO
};

int widthOf(int columnType) {
    switch (columnType) {
    case COLUMN_TYPE_LONG:
        return 2;
    case COLUMN_TYPE_INT:
    case COLUMN_TYPE_STRING:
    case COLUMN_TYPE_FOREIGN_KEY:
    case COLUMN_TYPE_CLASS_NAME:
        return 1;
    default:
        Logger::error(ZString("unexpected column type: ") + longToString(columnType), VDK_HERE);
    }
}

// Lines of a description, each ended by a newline.
class LineReader {
public:
    explicit LineReader(const ZString& description) : text(description), position(0) {}
    // False if no complete line is left.
    bool next(ZString& line) {
        const int end = text.indexOf('\n', position);
        if (end < 0) {
            return false;
        }
        line = text.substring(position, end);
        position = end + 1;
        return true;
    }
    bool nextNumber(int& value) {
        ZString line;
        if (!next(line) || line.isEmpty()) {
            return false;
        }
        char* end;
        errno = 0;
        const long number = strtol(line.c_str(), &end, 10);
        value = static_cast<int>(number);
        return *end == 0 && errno == 0 && number >= INT_MIN && number <= INT_MAX;
    }

private:
    const ZString& text;
    int position;
};

// The predefined columns have their types, and none stands twice.
bool areColumnsSound(const ZVectorSafe<ZString>& names, const ZVector<int>& types) {
    for (const PredefinedColumnInfo& column : PREDEFINED) {
        int count = 0;
        for (int i = 0; i < names.getSize(); i++) {
            if (names[i] == column.name && (types[i] != column.type || ++count > 1)) {
                return false;
            }
        }
    }
    return true;
}
} // namespace

UserTable* UserTable::create(const ZString& description) {
    LineReader lines(description);
    ZString tableName;
    int count;
    if (!lines.next(tableName) || !lines.nextNumber(count) || count < 0) {
        return nullptr;
    }
    ZVectorSafe<ZString> names;
    ZVector<int> types;
    for (int i = 0; i < count; i++) {
        ZString columnName;
        int type;
        if (!lines.next(columnName) || !lines.nextNumber(type) || type < COLUMN_TYPE_INT ||
            type > COLUMN_TYPE_CLASS_NAME) {
            return nullptr;
        }
        names.push(columnName);
        types.push(type);
    }
    if (!areColumnsSound(names, types)) {
        return nullptr;
    }
    return new UserTable(tableName.c_str(), description, &names, &types);
}

int UserTable::rowLengthOf(const ZVector<int>* types) {
    Logger::assertNotNULL(types, VDK_HERE);
    int length = 1;
    for (int i = 0; i < types->getSize(); i++) {
        length += widthOf(types->get(i));
    }
    return length;
}

UserTable::UserTable(const char* tableName, const ZString& text, const ZVectorSafe<ZString>* names,
                     const ZVector<int>* types)
    : AbstractTable(0), rows(INITIAL_ROWS, 0, rowLengthOf(types)), name(tableName),
      description(text) {
    Logger::assertNotNULL(names, VDK_HERE);
    Logger::assertEquals(names->getSize(), types->getSize(), VDK_HERE);
    for (int& column : predefined) {
        column = -1;
    }
    int offset = 1;
    for (int i = 0; i < types->getSize(); i++) {
        columnNames.push(names->get(i));
        columnTypes.push(types->get(i));
        columnOffsets.push(offset);
        offset += widthOf(types->get(i));
        for (int which = 0; which < PREDEFINED_COLUMN_COUNT; which++) {
            if (names->get(i) == PREDEFINED[which].name) {
                Logger::assertEquals(types->get(i), PREDEFINED[which].type, VDK_HERE);
                Logger::assertEquals(predefined[which], -1, VDK_HERE);
                predefined[which] = i;
            }
        }
    }
}

int* UserTable::getRecord(int index, bool create) {
    Logger::assertTrue(index >= 0, VDK_HERE);
    return rows.getPtr(index, create);
}

void UserTable::writeTable(AbstractWriter& writer, int stamp, int progressFrom, int progressTo,
                           Progress* progress) {
    Logger::assertNotNULL(progress, VDK_HERE);
    int count = 0;
    rows.eachRow([&](int, const int* row) { count += isNewerStamp(row[0], stamp); });
    writer.writeInt(count);
    int written = 0;
    const double scale = static_cast<double>(progressTo - progressFrom);
    rows.eachRow([&](int index, const int* row) {
        if (!isNewerStamp(row[0], stamp)) {
            return;
        }
        writer.writeInt(index);
        for (int word = 0; word < rows.getRowLength(); word++) {
            writer.writeInt(row[word]);
        }
        progress->updateProgress(progressFrom + static_cast<int>(scale * written / count));
        written++;
    });
}

int UserTable::getRecordModificationStamp(int index) {
    if (index < 0 || index >= rows.getCapacity()) {
        return 0;
    }
    const int* row = rows.getPtr(index, false);
    return row == nullptr ? 0 : row[0];
}

void UserTable::setRecordModificationStamp(int index, int stamp) {
    getRecord(index, true)[0] = stamp;
}

void UserTable::clearTable() {
    clearIndexPool();
    rows.freeAllChunks();
}

void UserTable::deleteRow(int index, int stamp) {
    int* const row = getRecord(index, true);
    for (int word = 1; word < getRowLength(); word++) {
        row[word] = 0;
    }
    row[0] = -stamp;
    releaseIndex(index);
}

void UserTable::deleteLiveRows(int stamp) {
    for (int i = 0; i < getCapacity(); i++) {
        if (getRecordModificationStamp(i) > 0) {
            deleteRow(i, stamp);
        }
    }
}

ZString UserTable::getStatistics(long* total) {
    const long bytes = rows.getAllocatedBytes();
    *total += bytes;
    int live = 0;
    rows.eachRow([&](int, const int* row) { live += row[0] > 0; });
    return getTableStatistics(name.c_str(), live, getCapacity(), bytes);
}

int UserTable::findColumn(const char* columnName) const {
    for (int i = 0; i < columnNames.getSize(); i++) {
        if (columnNames.get(i) == columnName) {
            return i;
        }
    }
    return -1;
}

int UserTable::wordOffset(int column, int type) const {
    Logger::assertTrue(column >= 0 && column < getColumnCount(), VDK_HERE);
    Logger::assertEquals(columnTypes.get(column), type, VDK_HERE);
    return columnOffsets.get(column);
}

int UserTable::wordOffsetOneWide(int column) const {
    Logger::assertTrue(column >= 0 && column < getColumnCount(), VDK_HERE);
    const int type = columnTypes.get(column);
    if (type == COLUMN_TYPE_LONG) {
        Logger::error(ZString("unexpected column type: ") + longToString(type), VDK_HERE);
    }
    return columnOffsets.get(column);
}

int UserTable::getIntColumn(const int* row, int column) const {
    return row[wordOffset(column, COLUMN_TYPE_INT)];
}

void UserTable::setIntColumn(int* row, int column, int value) const {
    row[wordOffset(column, COLUMN_TYPE_INT)] = value;
}

int UserTable::getStringColumn(const int* row, int column) const {
    return row[wordOffset(column, COLUMN_TYPE_STRING)];
}

void UserTable::setStringColumn(int* row, int column, int stringIndex) const {
    row[wordOffset(column, COLUMN_TYPE_STRING)] = stringIndex;
}

int UserTable::getForeignKeyColumn(const int* row, int column) const {
    return row[wordOffset(column, COLUMN_TYPE_FOREIGN_KEY)];
}

void UserTable::setForeignKeyColumn(int* row, int column, int foreignRow) const {
    row[wordOffset(column, COLUMN_TYPE_FOREIGN_KEY)] = foreignRow;
}

int UserTable::getClassNameColumn(const int* row, int column) const {
    return row[wordOffset(column, COLUMN_TYPE_CLASS_NAME)];
}

void UserTable::setClassNameColumn(int* row, int column, int stringIndex) const {
    row[wordOffset(column, COLUMN_TYPE_CLASS_NAME)] = stringIndex;
}

long UserTable::getLongColumn(const int* row, int column) const {
    const int* words = row + wordOffset(column, COLUMN_TYPE_LONG);
    return static_cast<long>(static_cast<unsigned long>(static_cast<unsigned>(words[1])) << 32 |
                             static_cast<unsigned>(words[0]));
}

void UserTable::setLongColumn(int* row, int column, long value) const {
    int* words = row + wordOffset(column, COLUMN_TYPE_LONG);
    words[0] = static_cast<int>(value);
    words[1] = static_cast<int>(static_cast<unsigned long>(value) >> 32);
}

int UserTable::getColumn(const int* row, int column) const {
    return row[wordOffsetOneWide(column)];
}

void UserTable::setColumn(int* row, int column, int value) const {
    row[wordOffsetOneWide(column)] = value;
}
