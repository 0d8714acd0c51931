#include "client/events/ProbeTables.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"
#include "db/DB.h"

#include <algorithm>
#include <iterator>

namespace vdk {

namespace {

constexpr char TablePackage[] = "com.vandrik.probes.";
// Between a callback and the row that it makes.
constexpr int MostProbeFrames = 32;
// Tables that the agent makes for itself.
const char* const AgentTables[] = {SampledCpuTable, SampledLinesTable, LiveAllocationsTable};

int64_t cellOf(const UserTable& table, const int* row, int column) {
    return table.getColumnType(column) == COLUMN_TYPE_LONG ? table.getLongColumn(row, column)
                                                           : table.getColumn(row, column);
}

ProbeTable readTable(UserTable& from, int slot) {
    ProbeTable table;
    table.slot = slot;
    table.name = from.getName().c_str();
    for (int column = 0; column < from.getColumnCount(); column++) {
        table.columns.push_back(
            {from.getColumnName(column).c_str(), from.getColumnType(column), false});
    }
    for (int which = 0; which < PREDEFINED_COLUMN_COUNT; which++) {
        table.predefined[which] = from.getPredefinedColumn(PredefinedColumn(which));
        if (table.predefined[which] >= 0) {
            table.columns[size_t(table.predefined[which])].isFilled = true;
        }
    }
    from.getRows().eachRow([&](int index, const int* words) {
        if (words[0] <= 0) {
            return;
        }
        ProbeRow row;
        row.index = index;
        for (int column = 0; column < from.getColumnCount(); column++) {
            row.cells.push_back(cellOf(from, words, column));
        }
        table.rows.push_back(std::move(row));
    });
    std::stable_sort(table.rows.begin(), table.rows.end(),
                     [&](const ProbeRow& one, const ProbeRow& other) {
                         return table.startNs(one) < table.startNs(other);
                     });
    for (size_t i = 0; i < table.rows.size(); i++) {
        table.positions[table.rows[i].index] = i;
    }
    return table;
}

bool isOutsideJdk(const std::string& className) {
    static const char* const packages[] = {"java.", "javax.", "jdk.", "sun.", "com.sun."};
    return std::none_of(std::begin(packages), std::end(packages),
                        [&](const char* package) { return startsWith(className, package); });
}

// "org.h2." of org.h2.jdbc.JdbcStatement; empty for a class without such a package.
std::string packageRoot(const std::string& className) {
    const size_t first = className.find('.');
    const size_t second = first == std::string::npos ? first : className.find('.', first + 1);
    return second == std::string::npos ? "" : className.substr(0, second + 1);
}

} // namespace

const ProbeRow* ProbeTable::at(int index) const {
    auto found = positions.find(index);
    return found == positions.end() ? nullptr : &rows[found->second];
}

int ProbeTable::column(const std::string& columnName) const {
    for (size_t i = 0; i < columns.size(); i++) {
        if (columns[i].name == columnName) {
            return int(i);
        }
    }
    return -1;
}

int64_t ProbeTable::cpuNs(const ProbeRow& row) const {
    const int column = predefined[USER_TABLE_PREDEFINED_COLUMN_SPENT_CPU_TIME_NS];
    return column < 0 || isOpen(row) ? -1 : row.cells[size_t(column)];
}

ProbeTables::ProbeTables(DB& db) : db(db), stacks(makeProfile(db)) {
    for (const ProfileThread& thread : stacks.threads) {
        threadNames[thread.trn] = thread.name;
    }
    for (int slot = FIRST_USER_TABLE; slot < MAX_TABLE_COUNT; slot++) {
        UserTable* table = db.getUserTable(slot);
        const bool isProbes =
            table && std::none_of(std::begin(AgentTables), std::end(AgentTables),
                                  [&](const char* name) { return table->getName() == name; });
        if (isProbes) {
            tables.push_back(readTable(*table, slot));
        }
    }
    readRefused();
}

void ProbeTables::readRefused() {
    db.propertyTable->eachRecord([&](int, const PropertyRecord& record) {
        const std::string name = record.stamp > 0 ? string(record.nameStrID) : "";
        if (!startsWith(name, REFUSED_ROWS_PROPERTY)) {
            return;
        }
        const auto slot =
            parseNumber(name.substr(sizeof REFUSED_ROWS_PROPERTY - 1), 0, MAX_TABLE_COUNT);
        for (ProbeTable& table : tables) {
            if (slot && table.slot == *slot) {
                table.refused = record.value;
            }
        }
    });
}

std::vector<const ProbeTable*> ProbeTables::named(const std::string& name) const {
    std::vector<const ProbeTable*> found;
    for (const ProbeTable& table : tables) {
        if (table.name == name) {
            found.push_back(&table);
        }
    }
    return found;
}

const ProbeTable* ProbeTables::find(const std::string& name,
                                    const std::vector<std::string>& columns) const {
    for (const ProbeTable* table : named(name)) {
        if (std::all_of(columns.begin(), columns.end(),
                        [&](const std::string& column) { return table->column(column) >= 0; })) {
            return table;
        }
    }
    return nullptr;
}

std::string ProbeTables::string(int index) const {
    const char* text = db.stringPool->getText(index);
    return text ? text : "";
}

const ProfileMethod& ProbeTables::methodOf(int frame) const {
    return stacks.methods[size_t(stacks.frames[size_t(frame)].method)];
}

template <typename Accepts>
int ProbeTables::firstFrame(int frame, Accepts&& accepts) const {
    for (int at = frame; at > 0; at = shownFrame(stacks, stacks.frames[size_t(at)].parent)) {
        if (accepts(methodOf(at).className)) {
            return at;
        }
    }
    return frame;
}

// The stack of a row begins in the agent's own Table, then come the probe's methods up to the
// callback, and then those of the application.
int ProbeTables::calledFrame(int frame) const {
    frame = shownFrame(stacks, frame);
    if (frame == 0 || !startsWith(methodOf(frame).className, TablePackage)) {
        return frame;
    }
    int at = frame;
    for (int depth = 0; at > 0 && depth < MostProbeFrames; depth++) {
        const bool isCallback = (methodOf(at).flags & METHOD_PROBE_CALLBACK) != 0;
        at = shownFrame(stacks, stacks.frames[size_t(at)].parent);
        if (isCallback) {
            return at;
        }
    }
    return frame;
}

std::string ProbeTables::threadName(const ProbeTable& table, const ProbeRow& row) const {
    const int trn = table.thread(row);
    auto found = threadNames.find(trn);
    if (found != threadNames.end()) {
        return found->second;
    }
    return trn == 0 ? "<not known>" : "<thread " + std::to_string(trn) + ">";
}

std::string ProbeTables::methodName(const ProbeTable& table, const ProbeRow& row) const {
    return frameName(stacks, firstFrame(calledFrame(table.frame(row)), isOutsideJdk), {});
}

std::string ProbeTables::libraryCaller(const ProbeTable& table, const ProbeRow& row) const {
    const int frame = firstFrame(calledFrame(table.frame(row)), isOutsideJdk);
    if (frame == 0) {
        return "-";
    }
    const std::string library = packageRoot(methodOf(frame).className);
    const int caller = firstFrame(frame, [&](const std::string& className) {
        return isOutsideJdk(className) && (library.empty() || !startsWith(className, library));
    });
    return frameName(stacks, caller, {});
}

std::string ProbeTables::text(const ProbeTable& table, const ProbeRow& row, int column) const {
    const int64_t cell = row.cells[size_t(column)];
    if (column == table.predefined[USER_TABLE_PREDEFINED_COLUMN_THREAD]) {
        return threadName(table, row);
    }
    if (column == table.predefined[USER_TABLE_PREDEFINED_COLUMN_STACKTRACE] ||
        column == table.predefined[USER_TABLE_PREDEFINED_COLUMN_STACKTRACE_END]) {
        return frameName(stacks, firstFrame(calledFrame(int(cell)), isOutsideJdk), {});
    }
    switch (table.columns[size_t(column)].type) {
    case COLUMN_TYPE_STRING:
    case COLUMN_TYPE_CLASS_NAME:
        return string(int(cell));
    case COLUMN_TYPE_FOREIGN_KEY:
        return "#" + std::to_string(cell);
    default:
        return std::to_string(cell);
    }
}

ProbeTables::Path ProbeTables::path(const ProbeTable& table, const std::string& names) const {
    const int own = table.column(names);
    if (own >= 0) {
        return {{own}, {&table}};
    }
    // Names of tables may hold dots themselves: every one may be the end of the key's name.
    for (size_t dot = names.find('.'); dot != std::string::npos; dot = names.find('.', dot + 1)) {
        const std::string master = names.substr(0, dot);
        const int key = table.column(master);
        if (key < 0 || table.columns[size_t(key)].type != COLUMN_TYPE_FOREIGN_KEY) {
            continue;
        }
        for (const ProbeTable* to : named(master)) {
            Path rest = path(*to, names.substr(dot + 1));
            if (!rest.columns.empty()) {
                rest.columns.insert(rest.columns.begin(), key);
                rest.tables.insert(rest.tables.begin(), &table);
                return rest;
            }
        }
    }
    return {};
}

const ProbeRow* ProbeTables::follow(const Path& path, const ProbeRow& row) const {
    const ProbeRow* at = &row;
    for (size_t step = 0; at && step + 1 < path.columns.size(); step++) {
        const ProbeTable& master = *path.tables[step + 1];
        const ProbeRow* next = master.at(int(at->cells[size_t(path.columns[step])]));
        // A row that came later has taken the place of the one that was meant.
        const bool isMeant = next && master.startNs(*next) <= path.tables[step]->startNs(*at);
        at = isMeant ? next : nullptr;
    }
    return at;
}

std::string ProbeTables::text(const Path& path, const ProbeRow& row) const {
    const ProbeRow* at = follow(path, row);
    return at ? text(*path.tables.back(), *at, path.columns.back()) : "";
}

} // namespace vdk
