// The tables that probes record into, as reports take them: named columns, live rows, cells as
// numbers. Made once from a DB, which must outlive it and not change meanwhile.
#pragma once

#include "client/profile/Profile.h"
#include "db/UserTable.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

class DB;

namespace vdk {

struct ProbeColumn {
    std::string name;
    int type = 0;          // ColumnType
    bool isFilled = false; // by the agent, not by the probe
};

struct ProbeRow {
    int index = 0;
    std::vector<int64_t> cells; // one a column
};

struct ProbeTable {
    int slot = 0;
    std::string name;
    std::vector<ProbeColumn> columns;
    int64_t refused = 0;                       // rows that found the table full
    std::vector<ProbeRow> rows;                // by the time of their creation
    std::unordered_map<int, size_t> positions; // in rows, by index
    int predefined[PREDEFINED_COLUMN_COUNT];

    // The row of an index, null without one.
    const ProbeRow* at(int index) const;
    // -1 without one.
    int column(const std::string& columnName) const;
    bool hasDuration() const { return predefined[USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS_END] >= 0; }
    // 0 where the table has no such column.
    int64_t filled(const ProbeRow& row, PredefinedColumn which) const {
        return predefined[which] < 0 ? 0 : row.cells[size_t(predefined[which])];
    }

    int64_t startNs(const ProbeRow& row) const {
        return filled(row, USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS);
    }
    bool isOpen(const ProbeRow& row) const { return hasDuration() && endNs(row) == 0; }
    int64_t endNs(const ProbeRow& row) const {
        return filled(row, USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS_END);
    }
    // 0 of an open row and of one that is a moment.
    int64_t durationNs(const ProbeRow& row) const {
        return endNs(row) == 0 ? 0 : endNs(row) - startNs(row);
    }
    // -1 where it is not known, or not yet.
    int64_t cpuNs(const ProbeRow& row) const;
    int frame(const ProbeRow& row) const {
        return int(filled(row, USER_TABLE_PREDEFINED_COLUMN_STACKTRACE));
    }
    int thread(const ProbeRow& row) const {
        return int(filled(row, USER_TABLE_PREDEFINED_COLUMN_THREAD));
    }
};

class ProbeTables {
public:
    explicit ProbeTables(DB& db);

    const std::vector<ProbeTable>& all() const { return tables; }
    // Probes of different classes may have tables of one name.
    std::vector<const ProbeTable*> named(const std::string& name) const;
    // The first of that name that has all these columns; null without one.
    const ProbeTable* find(const std::string& name,
                           const std::vector<std::string>& columns = {}) const;

    // Stacks and threads of the rows.
    const Profile& profile() const { return stacks; }
    // The frame that a probe saw, below its own callback; 0 without one.
    int calledFrame(int frame) const;
    std::string threadName(const ProbeTable& table, const ProbeRow& row) const;

    // The innermost method of the row's stack that is none of the JDK's, or its innermost at all;
    // "-" without one.
    std::string methodName(const ProbeTable& table, const ProbeRow& row) const;
    // The method that called into the library whose method made the row: the innermost of another
    // package than that one's first two words.
    std::string libraryCaller(const ProbeTable& table, const ProbeRow& row) const;

    // A cell as text: a key as "#" and its row, a frame as its method.
    std::string text(const ProbeTable& table, const ProbeRow& row, int column) const;

    // A column of the table, or of a master table: "SQL", or "Connections.Database", where the
    // first is the name of a key's column.
    struct Path {
        std::vector<int> columns; // the last one is the value's
        std::vector<const ProbeTable*> tables;

        const ProbeColumn& column() const { return tables.back()->columns[size_t(columns.back())]; }
    };
    // Empty columns if there is no such path.
    Path path(const ProbeTable& table, const std::string& names) const;
    // Empty where the keys lead to no row any more.
    std::string text(const Path& path, const ProbeRow& row) const;

private:
    void readRefused();
    const ProfileMethod& methodOf(int frame) const;
    // The innermost frame from this one outwards that is accepted, or this one.
    template <typename Accepts>
    int firstFrame(int frame, Accepts&& accepts) const;
    const ProbeRow* follow(const Path& path, const ProbeRow& row) const;
    std::string string(int index) const;

    DB& db;
    Profile stacks;
    std::unordered_map<int, std::string> threadNames;
    std::vector<ProbeTable> tables;
};

} // namespace vdk
