#include "client/tables/RecordedTables.h"

#include "client/console/Text.h"
#include "client/events/SqlReport.h"
#include "client/fleet/JvmMetrics.h"
#include "client/profile/ExceptionReport.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/MonitorReport.h"
#include "client/tables/RawTables.h"
#include "db/DB.h"

#include <algorithm>
#include <map>
#include <memory>

namespace vdk {

namespace {

// All trees one behind the other: each node but the roots has a number of its own, from 1 on.
struct Trees {
    explicit Trees(const PictureChoices& choices) : picture(choices) {}

    void number() {
        int64_t next = 1;
        for (const StackTree& tree : picture.trees) {
            first.push_back(next);
            sums.push_back(sumsByNode(tree));
            std::vector<int> depths(tree.nodes.size(), -1);
            for (size_t i = 1; i < tree.nodes.size(); i++) {
                depths[i] = depths[size_t(tree.nodes[i].parent)] + 1;
            }
            depth.push_back(std::move(depths));
            next += int64_t(tree.nodes.size()) - 1;
        }
        end = next;
    }
    size_t treeOf(int64_t node) const {
        return size_t(std::upper_bound(first.begin(), first.end(), node) - first.begin()) - 1;
    }
    int64_t idOf(size_t tree, int node) const { return first[tree] + node - 1; }

    Picture picture;
    std::vector<int64_t> first; // by tree, the number of its first node
    std::vector<std::vector<NameSums>> sums;
    std::vector<std::vector<int>> depth; // an outermost call has 0
    int64_t end = 1;
};
using SharedTrees = std::shared_ptr<const Trees>;

// Rows by a number that is their place.
SqlTable numbered(const char* name, const char* help, std::vector<SqlTable::Column> columns,
                  int64_t from, int64_t end) {
    SqlTable table;
    table.name = name;
    table.help = help;
    table.columns = std::move(columns);
    table.from = from;
    table.end = end;
    table.count = [](int64_t) { return 1; };
    table.hasRowKey = true;
    table.ascends = true;
    table.keys = {{0, [from, end](const SqlValue& value) {
                       const bool isRow = value.holds == SqlValue::Holds::Number &&
                                          value.number >= from && value.number < end;
                       return isRow ? SqlRows{value.number, value.number + 1, {}} : SqlRows{};
                   }}};
    return table;
}

SqlTable kindsTable(const Trees& trees) {
    SqlRowList rows;
    for (const StackTree& tree : trees.picture.trees) {
        const StackTree::Sums all = tree.total(Side::Now);
        rows.push_back({tree.id, tree.title, tree.unit, all.own, all.count});
    }
    return tableOfRows("recorded", "what was recorded, and its sums",
                       {{"of", "TEXT"},
                        {"title", "TEXT"},
                        {"unit", "TEXT"},
                        {"total", "INTEGER"},
                        {"count", "INTEGER"}},
                       std::move(rows));
}

SqlTable namesTable(const SharedTrees& trees) {
    SqlTable table =
        numbered("method_names", "methods, and classes of allocated objects, by number",
                 {{"id", "INTEGER"},
                  {"name", "TEXT"},
                  {"class", "TEXT"},
                  {"method", "TEXT"},
                  {"parameters", "TEXT"}},
                 0, int64_t(trees->picture.names.size()));
    table.value = [trees](SqlPosition at, size_t column) -> SqlValue {
        const Picture::Name& name = trees->picture.names[size_t(at.outer)];
        switch (column) {
        case 0:
            return at.outer;
        case 1:
            return name.full();
        case 2:
            return name.className;
        case 3:
            return name.method;
        default:
            return name.parameters;
        }
    };
    return table;
}

SqlTable treeTable(const SharedTrees& trees) {
    SqlTable table = numbered("call_tree",
                              "calls from their callers: each node with what was spent in it and "
                              "with those below it",
                              {{"node", "INTEGER"},
                               {"of", "TEXT"},
                               {"parent", "INTEGER"},
                               {"depth", "INTEGER"},
                               {"method", "INTEGER"},
                               {"own", "INTEGER"},
                               {"total", "INTEGER"},
                               {"count", "INTEGER"}},
                              1, trees->end);
    table.value = [trees](SqlPosition at, size_t column) -> SqlValue {
        const size_t which = trees->treeOf(at.outer);
        const StackTree& tree = trees->picture.trees[which];
        const auto node = size_t(at.outer - trees->first[which] + 1);
        const int parent = tree.nodes[node].parent;
        const NameSums::Of& sums = trees->sums[which][node].now;
        switch (column) {
        case 0:
            return at.outer;
        case 1:
            return tree.id;
        case 2:
            return parent == 0 ? SqlValue() : SqlValue(trees->idOf(which, parent));
        case 3:
            return trees->depth[which][node];
        case 4:
            return tree.nodes[node].name;
        case 5:
            return sums.own;
        case 6:
            return sums.total;
        default:
            return sums.count;
        }
    };
    return table;
}

// Which tree and entry a row is.
SqlTable threadTreeTable(const SharedTrees& trees) {
    SqlTable table;
    table.name = "call_tree_threads";
    table.help = "what each thread spent in a node of call_tree itself";
    table.columns = {
        {"node", "INTEGER"}, {"thread", "INTEGER"}, {"own", "INTEGER"}, {"count", "INTEGER"}};
    table.from = 0;
    table.end = int64_t(trees->picture.trees.size());
    table.count = [trees](int64_t tree) {
        return int64_t(trees->picture.trees[size_t(tree)].entries.size());
    };
    table.value = [trees](SqlPosition at, size_t column) -> SqlValue {
        const StackTree& tree = trees->picture.trees[size_t(at.outer)];
        const StackTree::Entry& entry = tree.entries[size_t(at.inner)];
        switch (column) {
        case 0:
            return trees->idOf(size_t(at.outer), entry.node);
        case 1:
            return trees->picture.threads[size_t(entry.thread)].trn;
        case 2:
            return entry.now.own;
        default:
            return entry.now.count;
        }
    };
    return table;
}

SqlTable methodTable(const Trees& trees) {
    SqlRowList rows;
    for (const StackTree& tree : trees.picture.trees) {
        for (const NameSums& sums : sumsByName(tree)) {
            rows.push_back({tree.id, sums.name, sums.now.own, sums.now.total, sums.now.count});
        }
    }
    return tableOfRows("method_sums", "methods over all of a tree; a recursive call counts once",
                       {{"of", "TEXT"},
                        {"method", "INTEGER"},
                        {"own", "INTEGER"},
                        {"total", "INTEGER"},
                        {"count", "INTEGER"}},
                       std::move(rows));
}

SqlTable threadTable(const Profile& profile) {
    std::map<int, int64_t> own;
    for (const ThreadTime& time : threadTimes(profile)) {
        own[time.thread] = time.own;
    }
    SqlRowList rows;
    for (size_t i = 0; i < profile.threads.size(); i++) {
        const ProfileThread& thread = profile.threads[i];
        rows.push_back({thread.trn, wholeText(thread.name), wholeText(thread.group),
                        thread.nativeId == 0 ? SqlValue() : SqlValue(thread.nativeId), own[int(i)],
                        thread.sampled.usedNs, thread.sampled.chargedNs});
    }
    return tableOfRows("threads", "threads, with the time that was recorded of them",
                       {{"thread", "INTEGER"},
                        {"name", "TEXT"},
                        {"thread_group", "TEXT"},
                        {"native_id", "INTEGER"},
                        {"own_ns", "INTEGER"},
                        {"used_cpu_ns", "INTEGER"},
                        {"sampled_cpu_ns", "INTEGER"}},
                       std::move(rows));
}

std::string methodOf(const Profile& profile, int frame, const RecordedChoices& choices) {
    ReportChoices how;
    how.signatures = choices.signatures;
    return wholeText(frameName(profile, frame, how));
}

// Sums of rows that differ in numbers alone.
class RowSums {
public:
    void add(const std::vector<std::string>& key, int thread, int64_t amount, int64_t count) {
        auto& sum = sums[{key, thread}];
        sum.first += amount;
        sum.second += count;
    }
    SqlRowList rows() const {
        SqlRowList list;
        for (const auto& [key, sum] : sums) {
            std::vector<SqlValue> row(key.first.begin(), key.first.end());
            row.emplace_back(key.second);
            row.emplace_back(sum.first);
            row.emplace_back(sum.second);
            list.push_back(std::move(row));
        }
        return list;
    }

private:
    std::map<std::pair<std::vector<std::string>, int>, std::pair<int64_t, int64_t>> sums;
};

SqlTable allocationTable(const std::vector<EventData>& lists, const RecordedChoices& choices) {
    RowSums sums;
    for (const EventData& data : lists) {
        if (data.profile.measure->isOfObjects()) {
            for (const EventRow& row : data.rows) {
                sums.add({nameOf(data.what).option, wholeText(row.className),
                          methodOf(data.profile, row.frame, choices)},
                         row.trn, row.amount, row.count);
            }
        }
    }
    return tableOfRows("allocation_sums",
                       "allocated, live and ended objects by class, method and thread",
                       {{"of", "TEXT"},
                        {"class", "TEXT"},
                        {"method", "TEXT"},
                        {"thread", "INTEGER"},
                        {"bytes", "INTEGER"},
                        {"objects", "INTEGER"}},
                       sums.rows());
}

void addWaits(DB& db, Profile profile, const RecordedChoices& choices,
              std::vector<SqlTable>& tables) {
    const StackSelector selector(profile, choices.selection);
    MonitorUses monitors = readMonitors(db, profile);
    std::vector<ThrownRow> thrown = readExceptions(db, profile);
    if (!choices.rawNames) {
        mergeGeneratedNames(profile);
    }
    if (!choices.selection.isEmpty()) {
        keepRows(monitors.uses,
                 [&](const MonitorUse& use) { return selector.keeps(use.waiter, use.frame); });
        keepRows(thrown,
                 [&](const ThrownRow& row) { return selector.keeps(row.thread, row.throwFrame); });
    }
    SqlRowList waits, throws;
    const std::vector<EventRow> ofReport = eventRows(monitors); // which names the kinds
    for (size_t i = 0; i < monitors.uses.size(); i++) {
        const MonitorUse& use = monitors.uses[i];
        waits.push_back({ofReport[i].kind, wholeText(use.className), use.waiterTrn,
                         wholeText(use.waiter), use.ownerTrn == 0 ? SqlValue() : use.ownerTrn,
                         use.ownerTrn == 0 ? SqlValue() : wholeText(use.owner),
                         methodOf(profile, use.frame, choices), use.timeNs, use.count});
    }
    for (const ThrownRow& row : thrown) {
        const bool isCaught = row.catchFrame != 0;
        throws.push_back({wholeText(row.className), row.trn, wholeText(row.thread),
                          methodOf(profile, row.throwFrame, choices),
                          isCaught ? methodOf(profile, row.catchFrame, choices) : SqlValue(),
                          row.count});
    }
    tables.push_back(tableOfRows("monitors", "waits for monitors and locks",
                                 {{"kind", "TEXT"},
                                  {"class", "TEXT"},
                                  {"thread", "INTEGER"},
                                  {"thread_name", "TEXT"},
                                  {"owner", "INTEGER"},
                                  {"owner_name", "TEXT"},
                                  {"method", "TEXT"},
                                  {"time_ns", "INTEGER"},
                                  {"count", "INTEGER"}},
                                 std::move(waits)));
    tables.push_back(tableOfRows("exceptions", "where exceptions were thrown and caught",
                                 {{"class", "TEXT"},
                                  {"thread", "INTEGER"},
                                  {"thread_name", "TEXT"},
                                  {"thrown_in", "TEXT"},
                                  {"caught_in", "TEXT"},
                                  {"count", "INTEGER"}},
                                 std::move(throws)));
}

SqlTable statementTable(DB& db) {
    const ProbeTables probes(db);
    std::map<std::string, std::vector<SqlCall>> calls;
    for (SqlCall& call : readSqlCalls(probes)) {
        calls[call.database].push_back(std::move(call));
    }
    SqlRowList rows;
    for (const auto& [database, ofDatabase] : calls) {
        for (const auto& [shape, sql] : sqlStatements(ofDatabase)) {
            rows.push_back({wholeText(shape), wholeText(database), sql.count, sql.open, sql.totalNs,
                            sql.maxNs, sql.cpuNs, sql.longestRun});
        }
    }
    return tableOfRows("sql_statements",
                       "executions by database and by texts that differ in literals only",
                       {{"statement", "TEXT"},
                        {"database", "TEXT"},
                        {"count", "INTEGER"},
                        {"open", "INTEGER"},
                        {"total_ns", "INTEGER"},
                        {"max_ns", "INTEGER"},
                        {"cpu_ns", "INTEGER"},
                        {"longest_run", "INTEGER"}},
                       std::move(rows));
}

SqlTable telemetryTable(DB& db) {
    static const struct {
        const char* column;
        TelemetryIndex index;
        int64_t factor;
    } values[] = {
        {"uptime_ms", TELE_UPTIME_DS, 100},
        {"heap_used_bytes", TELE_HEAP_MEMORY_USED_KB, 1024},
        {"heap_committed_bytes", TELE_HEAP_MEMORY_COMMITTED_KB, 1024},
        {"non_heap_used_bytes", TELE_NON_HEAP_MEMORY_USED_KB, 1024},
        {"non_heap_committed_bytes", TELE_NON_HEAP_MEMORY_COMMITTED_KB, 1024},
        {"loaded_classes", TELE_LOADED_CLASS_COUNT, 1},
        {"threads", TELE_LIVE_THREAD_COUNT, 1},
        {"daemon_threads", TELE_DAEMON_THREAD_COUNT, 1},
        {"collections_1", TELE_GC_COLLECTION1_COUNT, 1},
        {"collections_2", TELE_GC_COLLECTION2_COUNT, 1},
        {"collection_ms", TELE_GC_TOTAL_COLLECTION_TIME_MS, 1},
        {"cpu_ms", TELE_CPU_TIME_MS, 1},
        {"processors", TELE_PROCESSOR_COUNT, 1},
    };
    const std::set<int> unknown = unknownTelemetry(db);
    std::vector<SqlTable::Column> columns;
    for (const auto& value : values) {
        columns.push_back({value.column, "INTEGER"});
    }
    SqlRowList rows;
    db.telemetryTable->eachRecord([&](int, const TelemetryRecord& record) {
        if (record.stamp > 0) {
            rows.emplace_back();
            for (const auto& value : values) {
                const bool isKnown = unknown.count(value.index) == 0;
                rows.back().push_back(isKnown ? record.values[value.index] * value.factor
                                              : SqlValue());
            }
        }
    });
    return tableOfRows("telemetry", "telemetry by time; what the JVM does not tell is null",
                       std::move(columns), std::move(rows));
}

} // namespace

std::vector<SqlTable> recordedTables(DB& db, const RecordedChoices& choices,
                                     std::vector<std::string>& unmatched) {
    PictureChoices how;
    how.filters = choices.filters;
    how.signatures = choices.signatures;
    how.eachThread = how.exactNames = true;
    auto made = std::make_shared<Trees>(how);
    std::vector<EventData> ofObjects;
    for (const ShownName& name : shownNames()) {
        EventData data = readEvents(db, name.what, !choices.rawNames, choices.selection);
        if (name.what == Shown::Cpu) {
            unmatched = data.unmatched;
        }
        if (data.isKnown) {
            made->picture.add(data, Side::Now);
        }
        if (data.profile.measure->isOfObjects()) {
            ofObjects.push_back(std::move(data));
        }
    }
    made->picture.finish();
    made->number();
    const SharedTrees trees = made;
    std::vector<SqlTable> tables = {kindsTable(*trees),  namesTable(trees),
                                    treeTable(trees),    threadTreeTable(trees),
                                    methodTable(*trees), allocationTable(ofObjects, choices),
                                    telemetryTable(db),  statementTable(db)};
    ofObjects.clear();
    Profile profile = makeProfile(db);
    addWaits(db, profile, choices, tables);
    StackSelector(profile, choices.selection).apply(profile);
    tables.push_back(threadTable(profile));
    SqlNames names;
    for (const SqlTable& table : tables) {
        names.add(table.name);
    }
    for (const SqlView& view : recordedViews()) {
        names.add(view.name);
    }
    addCoreTables(db, tables, names);
    addProbeTables(db, tables, names);
    return tables;
}

// In the order of reports, the largest first.
const std::vector<SqlView>& recordedViews() {
    static const std::vector<SqlView> views = {
        {"methods",
         "SELECT n.name, CASE n.class WHEN '' THEN '-' ELSE n.class END AS class, n.method, "
         "n.parameters, s.own AS own_ns, s.total AS total_ns, "
         "s.count AS calls FROM method_sums s JOIN method_names n ON n.id = s.method "
         "WHERE s.of = 'cpu' ORDER BY s.own DESC, s.total DESC"},
        {"call_paths",
         "SELECT t.of, t.node, t.depth, n.name AS method, (WITH RECURSIVE up(at, path) AS "
         "(SELECT t.parent, n.name UNION ALL SELECT p.parent, m.name || ';' || up.path FROM up "
         "JOIN call_tree p ON p.node = up.at JOIN method_names m ON m.id = p.method) "
         "SELECT path FROM up WHERE at IS NULL) AS path, t.own, t.total, t.count "
         "FROM call_tree t JOIN method_names n ON n.id = t.method"},
        {"thread_methods",
         "SELECT r.thread, t.of, n.name AS method, sum(r.own) AS own, sum(r.count) AS count "
         "FROM call_tree_threads r JOIN call_tree t ON t.node = r.node "
         "JOIN method_names n ON n.id = t.method GROUP BY r.thread, t.of, t.method"},
        {"allocations_by_class",
         "SELECT of, class, sum(bytes) AS bytes, sum(objects) AS objects FROM allocation_sums "
         "GROUP BY of, class ORDER BY of, 3 DESC"},
        {"allocations_by_site",
         "SELECT of, method, class, sum(bytes) AS bytes, sum(objects) AS objects "
         "FROM allocation_sums GROUP BY of, method, class ORDER BY of, 4 DESC"},
        {"waits_by_class",
         "SELECT kind, class, sum(time_ns) AS time_ns, sum(count) AS count FROM monitors "
         "GROUP BY kind, class ORDER BY kind, 3 DESC"},
        {"exceptions_by_class",
         "SELECT class, sum(count) AS count, sum(CASE WHEN caught_in IS NULL THEN count ELSE 0 "
         "END) AS uncaught FROM exceptions GROUP BY class ORDER BY 2 DESC"},
    };
    return views;
}

} // namespace vdk
