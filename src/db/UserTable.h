#pragma once

#include "core/ground/ZString.h"
#include "db/AbstractTable.h"
#include "db/ZIntChunkMap2.h"

// Types of columns. Keep in sync with com.vandrik.probes.Column.
enum ColumnType {
    COLUMN_TYPE_INT = 0,
    COLUMN_TYPE_LONG = 1, // two words, the low one first
    COLUMN_TYPE_STRING = 2,
    COLUMN_TYPE_FOREIGN_KEY = 3, // row of another table
    COLUMN_TYPE_CLASS_NAME = 4   // row of string
};

// Name of the property that tells how many rows a table was refused, with its slot behind.
constexpr char REFUSED_ROWS_PROPERTY[] = "vdk.table.refused.";

// Columns that the agent itself fills, told by their names. P(constant, name, column type)
#define VDK_PREDEFINED_COLUMNS(P)                                                                  \
    P(USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS, "uptime_ns", COLUMN_TYPE_LONG)                       \
    P(USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS_END, "uptime_ns.end", COLUMN_TYPE_LONG)               \
    P(USER_TABLE_PREDEFINED_COLUMN_SPENT_CPU_TIME_NS, "spent_cpu_ns", COLUMN_TYPE_LONG)            \
    P(USER_TABLE_PREDEFINED_COLUMN_THREAD, "thread", COLUMN_TYPE_INT)                              \
    P(USER_TABLE_PREDEFINED_COLUMN_THREAD_END, "thread.end", COLUMN_TYPE_INT)                      \
    P(USER_TABLE_PREDEFINED_COLUMN_STACKTRACE, "frame", COLUMN_TYPE_INT)                           \
    P(USER_TABLE_PREDEFINED_COLUMN_STACKTRACE_END, "frame.end", COLUMN_TYPE_INT)

enum PredefinedColumn {
#define VDK_PREDEFINED_COLUMN(constant, name, type) constant,
    VDK_PREDEFINED_COLUMNS(VDK_PREDEFINED_COLUMN)
#undef VDK_PREDEFINED_COLUMN
        PREDEFINED_COLUMN_COUNT
};

// UserTable: a table whose columns a probe defined at run time. A row is its stamp and then the
// words of the columns in order. Locking as in AbstractTable.
class UserTable : public AbstractTable {
public:
    // Asserts that predefined columns have their type and stand once; rejects an unknown type with
    // "unexpected column type: " and the value. The vectors are copied.
    UserTable(const char* name, const ZString& description, const ZVectorSafe<ZString>* columnNames,
              const ZVector<int>* columnTypes);
    // Makes a table from a description: lines of name, column count, and name and type of each
    // column. Null if a line is missing or unreadable, or a predefined column has another type or
    // stands twice. The caller owns it.
    static UserTable* create(const ZString& description);

    // The row of a non-negative index, its stamp first; null for an absent one without create.
    int* getRecord(int index, bool create);
    void writeTable(AbstractWriter& writer, int stamp, int progressFrom, int progressTo,
                    Progress* progress) override;
    int getCapacity() const override { return rows.getCapacity(); }
    int getMinIndex() const override { return rows.getChunkCount() < 1 ? -1 : rows.getMinKey(); }
    int getRecordModificationStamp(int index) override;
    void setRecordModificationStamp(int index, int stamp) override;
    void clearTable() override;
    // Empties a row, which counts as deleted at this stamp from then on; its index is used again.
    void deleteRow(int index, int stamp);
    void deleteLiveRows(int stamp);
    ZString getStatistics(long* total) override;

    const ZString& getName() const { return name; }
    const ZString& getDescription() const { return description; }
    int getColumnCount() const { return columnTypes.getSize(); }
    const ZString& getColumnName(int column) const { return columnNames.get(column); }
    int getColumnType(int column) const { return columnTypes.get(column); }
    int getRowLength() const { return rows.getRowLength(); }
    // Column number of a predefined column, -1 if the table has none.
    int getPredefinedColumn(PredefinedColumn which) const { return predefined[which]; }
    // Column number of a name, -1 if the table has none.
    int findColumn(const char* columnName) const;

    // Single columns of a row from getRecord. All assert the column's number and its type.
    int getIntColumn(const int* row, int column) const;
    void setIntColumn(int* row, int column, int value) const;
    int getStringColumn(const int* row, int column) const;
    void setStringColumn(int* row, int column, int stringIndex) const;
    int getForeignKeyColumn(const int* row, int column) const;
    void setForeignKeyColumn(int* row, int column, int foreignRow) const;
    int getClassNameColumn(const int* row, int column) const;
    void setClassNameColumn(int* row, int column, int stringIndex) const;
    long getLongColumn(const int* row, int column) const;
    void setLongColumn(int* row, int column, long value) const;
    // A column one word wide, whatever its type; a long one fails with "unexpected column type: ".
    int getColumn(const int* row, int column) const;
    void setColumn(int* row, int column, int value) const;

    ZIntChunkMap2& getRows() { return rows; }

    // Rows that were wanted beyond the limit of their number.
    void countRefusedRow() { refusedRows++; }
    long getRefusedRows() const { return refusedRows; }

private:
    static int rowLengthOf(const ZVector<int>* types);
    // Offset of the column's first word, after the checks.
    int wordOffset(int column, int type) const;
    int wordOffsetOneWide(int column) const;

    ZIntChunkMap2 rows;
    ZString name;
    ZString description;
    ZVectorSafe<ZString> columnNames;
    ZVector<int> columnOffsets; // words
    ZVector<int> columnTypes;
    int predefined[PREDEFINED_COLUMN_COUNT];
    long refusedRows = 0;
};
