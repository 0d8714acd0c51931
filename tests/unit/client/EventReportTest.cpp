#include "DbBuilder.h"
#include "client/console/Errors.h"
#include "client/events/RequestReport.h"
#include "client/events/RowGroups.h"
#include "client/events/RowList.h"
#include "client/events/SqlReport.h"
#include "client/events/SqlText.h"
#include "client/events/TransferReport.h"

#include <gtest/gtest.h>
#include <sstream>
#include <vector>

using namespace vdk;

namespace {

constexpr long MS = 1000000;
const char Lasting[] = "uptime_ns\n1\nuptime_ns.end\n1\nspent_cpu_ns\n1\nthread\n0\nframe\n0\n";

// Tables as probes make them. Columns are "Name:type".
class EventReport : public testing::Test {
protected:
    UserTable* table(const std::string& name, const std::vector<std::string>& columns) {
        std::string text = name + "\n" + std::to_string(5 + columns.size()) + "\n" + Lasting;
        for (const std::string& column : columns) {
            const size_t colon = column.rfind(':');
            text += column.substr(0, colon) + "\n" + column.substr(colon + 1) + "\n";
        }
        return built.db.getUserTable(built.db.createUserTableByDescription(text.c_str()));
    }

    // The number of the new row. An end of 0 leaves it open.
    int row(UserTable* to, long startNs, long endNs, const char* stack = "shop.Main.main",
            int trn = 2) {
        const int index = to->nextIndex();
        int* words = to->getRecord(index, true);
        words[0] = built.db.currentStamp;
        to->setLongColumn(words, 0, startNs);
        to->setLongColumn(words, 1, endNs);
        to->setLongColumn(words, 2, endNs == 0 ? 0 : MS);
        to->setIntColumn(words, 3, trn);
        to->setIntColumn(words, 4, built.stack(stack));
        return index;
    }
    void text(UserTable* to, int index, const char* column, const char* value) {
        to->setStringColumn(to->getRecord(index, true), to->findColumn(column), built.text(value));
    }
    void key(UserTable* to, int index, const char* column, int master) {
        to->setForeignKeyColumn(to->getRecord(index, true), to->findColumn(column), master);
    }
    void number(UserTable* to, int index, const char* column, int value) {
        to->setIntColumn(to->getRecord(index, true), to->findColumn(column), value);
    }

    DbBuilder built;
};

TEST(SqlText, statementsThatDifferInLiteralsHaveOneShape) {
    const char* const cases[][2] = {
        {"select  *\n from a where b = 'it''s' and c=12.5e3",
         "select * from a where b = ? and c=?"},
        {"select a1, \"12\" from t2 -- 5\nwhere x in (1, 2,3)",
         "select a1, \"12\" from t2 where x in (?, ...)"},
        {"insert into t values (?, ?, 'a'), (?);", "insert into t values (?, ...), (?)"},
        {"select /* 'x' */ 1 from `9`", "select ? from `9`"},
        {"select 'not closed", "select ?"},
        {"", ""},
    };
    for (const auto& [sql, shape] : cases) {
        EXPECT_EQ(shape, statementShape(sql));
    }
}

TEST_F(EventReport, statementsAreJoinedWithTheirTextsAndCallers) {
    UserTable* connections = table("Connections", {"Database:2"});
    UserTable* prepared = table("Prepared Statements", {"Connections:3", "SQL:2"});
    UserTable* statements = table("Statements", {"Connections:3"});
    UserTable* queries = table("Queries", {"Statements:3", "SQL:2", "Operation:2"});
    UserTable* ofPrepared = table("Queries", {"Prepared Statements:3", "Operation:2"});
    const int open = row(connections, 1, 0);
    text(connections, open, "Database", "jdbc:shop");
    text(connections, row(connections, 1, 2), "Database", "jdbc:shop");
    const int statement = row(statements, 2, 0);
    key(statements, statement, "Connections", open);
    const int orders = row(queries, 3 * MS, 5 * MS,
                           "shop.Main.main;shop.Orders.all;org.h2.Pool.ask;java.sql.X.y;"
                           "org.h2.Statement.executeQuery");
    key(queries, orders, "Statements", statement);
    text(queries, orders, "SQL", "select id from orders where total > 5");
    const int item = row(prepared, 3, 0);
    key(prepared, item, "Connections", open);
    text(prepared, item, "SQL", "select name from items where id = ?");
    for (long i = 0; i < SuspiciousRun; i++) {
        const int call = row(ofPrepared, (10 + 2 * i) * MS, (11 + 2 * i) * MS, "shop.Items.name");
        key(ofPrepared, call, "Prepared Statements", item);
    }
    // Its statement's place was taken by one that came later.
    key(ofPrepared, row(ofPrepared, 1, 2), "Prepared Statements", item);

    const ProbeTables tables(built.db);
    const std::vector<SqlCall> calls = readSqlCalls(tables);
    const auto found = sqlStatements(calls);
    ASSERT_EQ(3U, found.size());
    const SqlStatement& one = found.at("select id from orders where total > ?");
    EXPECT_EQ(1, one.count);
    EXPECT_EQ(2 * MS, one.totalNs);
    EXPECT_EQ(1, one.longestRun);
    EXPECT_EQ(1U, one.callers.count("shop.Orders.all"));
    const SqlStatement& many = found.at("select name from items where id = ?");
    EXPECT_EQ(SuspiciousRun, many.count);
    EXPECT_EQ(SuspiciousRun, many.longestRun);
    EXPECT_EQ(MS, many.meanNs());
    EXPECT_EQ(1, found.at("<not known>").count);
    EXPECT_EQ("jdbc:shop", calls.back().database);
    EXPECT_EQ(2, countConnections(tables).opened);
    EXPECT_EQ(1, countConnections(tables).open);
}

TEST_F(EventReport, requestsHaveTheStatementsOfTheirThreadAndTime) {
    UserTable* requests = table("JSP/Servlet Requests", {"URI:2", "Query:2", "Include:2"});
    UserTable* queries = table("Queries", {"Statements:3", "SQL:2", "Operation:2"});
    text(requests, row(requests, 10 * MS, 30 * MS), "URI", "/cart");
    text(requests, row(requests, 40 * MS, 0), "URI", "/cart");
    const int part = row(requests, 20 * MS, 25 * MS);
    text(requests, part, "URI", "/cart");
    text(requests, part, "Include", "/head");
    for (const auto& [start, trn] : {std::pair<long, int>{12, 2}, {22, 2}, {31, 2}, {12, 3}}) {
        text(queries, row(queries, start * MS, (start + 1) * MS, "shop.Main.main", trn), "SQL",
             "x");
    }
    const auto sums = requestSums(ProbeTables(built.db));
    ASSERT_EQ(2U, sums.size());
    EXPECT_EQ(2, sums.at("/cart").count);
    EXPECT_EQ(1, sums.at("/cart").open);
    EXPECT_EQ(20 * MS, sums.at("/cart").totalNs);
    EXPECT_EQ(2, sums.at("/cart").sqlCalls);
    EXPECT_EQ(2 * MS, sums.at("/cart").sqlNs);
    EXPECT_EQ(1, sums.at("/cart > /head").sqlCalls);
}

TEST_F(EventReport, transfersAreSummedByTheNameOfTheirOwner) {
    UserTable* sockets = table("Socket Connections", {"Address:2"});
    UserTable* reads = table("Stream Reads", {"Socket Connections:3", "Bytes:0"});
    UserTable* files = table("File Output Streams", {"File Name:2"});
    UserTable* failed = table("Failed File Output Streams", {"File Name:2"});
    UserTable* from = table("Transfers from Channel", {"File Output Streams:3", "Bytes:1"});
    const int ports = 2 * RareShare;
    for (int port = 1; port <= ports; port++) {
        const int connection = row(sockets, port, 0);
        text(sockets, connection, "Address", ("10.0.0.1:" + std::to_string(port)).c_str());
        const int read = row(reads, port + MS, port + 2 * MS);
        key(reads, read, "Socket Connections", connection);
        number(reads, read, "Bytes", 100);
    }
    for (int i = 0; i < 5; i++) {
        text(sockets, row(sockets, 1, 2), "Address", "10.0.0.1:443");
        text(sockets, row(sockets, 1, 2), "Address", ("b:" + std::to_string(i)).c_str());
    }
    const int file = row(files, 1, 2);
    text(files, file, "File Name", "/tmp/a");
    text(failed, row(failed, 1, 0), "File Name", "/tmp/b");
    const int transfer = row(from, 2, 3);
    key(from, transfer, "File Output Streams", file);
    from->setLongColumn(from->getRecord(transfer, true), from->findColumn("Bytes"), 1L << 33);

    const ProbeTables tables(built.db);
    const auto ofSockets = transferSums(tables, SocketOwners);
    ASSERT_EQ(7U, ofSockets.size()) << "b has few connections, a fifth of them at each port";
    EXPECT_EQ(ports, ofSockets.at("10.0.0.1:*").opened);
    EXPECT_EQ(ports * 100, ofSockets.at("10.0.0.1:*").bytesRead);
    EXPECT_EQ(5, ofSockets.at("10.0.0.1:443").opened);
    const auto ofFiles = transferSums(tables, FileOwners);
    EXPECT_EQ(1L << 33, ofFiles.at("/tmp/a").bytesWritten);
    EXPECT_EQ(1, ofFiles.at("/tmp/b").failed);
}

TEST_F(EventReport, conditionsChooseRowsAndRefuseWhatIsNone) {
    UserTable* orders = table("Orders", {"Item:2", "Number:0"});
    for (int i = 0; i < 4; i++) {
        const int index =
            row(orders, (i + 1) * MS, (i + 1) * MS + i * 10 * MS, "shop.Main.main;java.A.b");
        text(orders, index, "Item", i % 2 == 0 ? "Tea" : "Coffee");
        number(orders, index, "Number", i);
    }
    row(orders, 9 * MS, 0);
    built.db.setProperty((std::string(REFUSED_ROWS_PROPERTY) + "32").c_str(), 7);
    const ProbeTables tables(built.db);
    const ProbeTable& read = tables.all().at(0);
    EXPECT_EQ(7, read.refused);
    const auto chosen = [&](const std::vector<std::string>& texts) {
        const RowConditions conditions(tables, read, texts);
        std::string found;
        for (const ProbeRow& candidate : read.rows) {
            found += conditions.accept(candidate) ? std::to_string(candidate.index) : "";
        }
        return found;
    };
    const struct {
        std::vector<std::string> conditions;
        const char* rows;
    } cases[] = {
        {{}, "01234"},
        {{"Item=Tea"}, "02"},
        {{"Item!=Tea"}, "134"},
        {{"Item~eA"}, "02"},
        {{"Number>1", "Number<3"}, "2"},
        {{"time>15ms"}, "23"},
        {{"time=open"}, "4"},
        {{"method=shop.Main.main"}, "01234"},
        {{"thread=<thread 2>"}, "01234"},
    };
    for (const auto& entry : cases) {
        EXPECT_EQ(entry.rows, chosen(entry.conditions)) << testing::PrintToString(entry.conditions);
    }
    for (const char* wrong : {"", "Item", "=x", "Nobody=1", "time>often", "Number>x", "Item!x"}) {
        EXPECT_THROW(chosen({wrong}), ClientError) << wrong;
    }
    std::vector<const ProbeRow*> rows;
    for (const ProbeRow& candidate : read.rows) {
        rows.push_back(&candidate);
    }
    const RowGroups groups(read, rows, [&](const ProbeRow& candidate) {
        return tables.text(read, candidate, read.column("Item"));
    });
    EXPECT_EQ(40 * MS, groups.groups().at("Coffee").totalNs);
    EXPECT_EQ(30 * MS, groups.groups().at("Coffee").maxNs);
    EXPECT_EQ(4, groups.groups().at("Coffee").sums.at(0));
    EXPECT_EQ(1, groups.groups().at("").open);
}

} // namespace
