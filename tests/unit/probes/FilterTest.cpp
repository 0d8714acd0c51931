#include "probes/Filter.h"

#include "db/DB.h"
#include "probes/FilterDefaults.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {
std::string& logLines() {
    static std::string lines;
    return lines;
}

// A database of its own in the place of the process's, and a log to look at.
struct FilterTest : testing::Test {
    FilterTest() : db(-1, -1), previous(ourDB) {
        ourDB = &db;
        Logger::setSink([](const char* line) { logLines().append(line).append("\n"); });
        logLines().clear();
        Filter::reloadFilters("", "");
    }
    ~FilterTest() override {
        Logger::setSink([](const char*) {});
        Filter::reloadFilters("", "");
        ourDB = previous;
    }
    // A method as the registry makes it, at the current stamp.
    MethodRecord* method(const char* className, const char* name, const char* parameters,
                         int flags = 0) {
        const int index = db.methodTable->nextIndex();
        MethodRecord* record = db.methodTable->getRecord(index, true);
        record->classNameStrID = db.stringPool->getDBIndex(className, true);
        record->methodNameStrID = db.stringPool->getDBIndex(name, true);
        record->parametersStrID = db.stringPool->getDBIndex(parameters, true);
        record->flags = flags;
        record->stamp = db.currentStamp;
        Filter::applyFilters(index);
        return record;
    }
    // Texts of the list's filters, "type class method parameters".
    std::vector<std::string> list() {
        std::vector<std::string> texts;
        for (int i = 0; i < Filter::ourFilters.getSize(); i++) {
            const Filter* filter = Filter::ourFilters.get(i);
            std::string text = std::to_string(filter->getType());
            for (const char* pattern : {filter->getClassPattern(), filter->getMethodPattern(),
                                        filter->getParametersPattern()}) {
                text += std::string(" ") + (pattern == nullptr ? "-" : pattern);
            }
            texts.push_back(text);
        }
        return texts;
    }
    int waitFilters() const { return ourWaitMethodCount + ourWaitMethodAdditionCount; }

    DB db;
    DB* previous;
};

std::string temporaryFile(const char* content) {
    char path[] = "/tmp/vdk-filters-XXXXXX";
    const int file = mkstemp(path);
    EXPECT_EQ(static_cast<ssize_t>(strlen(content)), write(file, content, strlen(content)));
    close(file);
    return path;
}
} // namespace

TEST_F(FilterTest, linesGoIntoTheListInTheirOrder) {
    Filter::reloadFilters("java.*\n#x\n+foo.*:bar*(int)\n\n+\nc:d()", "w:x(*)\r\n#c\r\r\ny.*");
    const std::vector<std::string> filters = list();
    ASSERT_EQ(5u + static_cast<size_t>(waitFilters()), filters.size());
    EXPECT_EQ("2 java.* - (*)", filters[0]);
    EXPECT_EQ("3 foo.* bar* (int)", filters[1]);
    EXPECT_EQ("2 c d ()", filters[2]);
    EXPECT_EQ("1 w x (*)", filters[3]);
    EXPECT_EQ("1 y.* - (*)", filters[4]);
    EXPECT_TRUE(Filter::ourWithInclusiveFilters);
    Filter::reloadFilters("java.*", "");
    EXPECT_FALSE(Filter::ourWithInclusiveFilters);
}

TEST_F(FilterTest, badLineIsLoggedAndDropped) {
    logLines().clear();
    Filter::reloadFilters("foo:bar\nok.*", "also bad");
    EXPECT_EQ(1u + static_cast<size_t>(waitFilters()), list().size());
    EXPECT_NE(std::string::npos,
              logLines().find("*** WARNING! *** Invalid filter specification 'foo:bar': invalid "
                              "pattern syntax, must be <class>:<method>(<params>)"));
    EXPECT_NE(std::string::npos,
              logLines().find("Invalid filter specification 'also bad': class name pattern is "
                              "invalid: also bad"));
}

TEST_F(FilterTest, flagsOfMethods) {
    Filter::reloadFilters("java.*\n+java.keep.*\nacme.Util:get*(int)\n+a.b.*\na.*",
                          "java.io.File:read(byte[])\nfree.Wall:*(*)\njava.lang.Object:wait(*)");
    const struct {
        const char* className;
        const char* name;
        const char* parameters;
        int before;
        int after;
    } rows[] = {
        {"app.Main", "main", "(java.lang.String[])", 0, 0},
        {"java.util.List", "add", "()", 0, METHOD_FILTERED},
        {"java.keep.X", "y", "()", 0, 0},
        {"acme.Util", "getIt", "(int)", 0, METHOD_FILTERED},
        {"acme.Util", "getIt", "(long)", 0, 0},
        {"acme.Util", "set", "(int)", 0, 0},
        // The order of lines decides nothing.
        {"a.b.C", "x", "()", 0, 0},
        {"a.c.D", "x", "()", 0, METHOD_FILTERED},
        // Wall time wins over exclusion, and over waiting.
        {"java.io.File", "read", "(byte[])", 0, METHOD_WALL_TIME},
        {"free.Wall", "x", "()", 0, METHOD_WALL_TIME},
        {"java.lang.Object", "wait", "(long)", METHOD_WAIT, METHOD_WALL_TIME},
        {"java.lang.Thread", "sleep", "(long)", 0, METHOD_FILTERED | METHOD_WAIT},
        {"sun.misc.Unsafe", "park", "(boolean, long)", 0, METHOD_WAIT},
        // A method with a probe is never filtered.
        {"java.sql.X", "execute", "()", METHOD_HAS_PROBE | METHOD_FILTERED, METHOD_HAS_PROBE},
        {"java.io.File", "read", "(byte[])", METHOD_HAS_PROBE, METHOD_HAS_PROBE | METHOD_WALL_TIME},
        // Other bits stay, stale ones go.
        {"app.Main", "x", "()", METHOD_HIDDEN | METHOD_WALL_TIME | METHOD_WAIT | METHOD_FILTERED,
         METHOD_HIDDEN},
        {"app.Main", "y", "()", METHOD_INSTRUMENTED | METHOD_PROBE_CALLBACK,
         METHOD_INSTRUMENTED | METHOD_PROBE_CALLBACK},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.after, method(row.className, row.name, row.parameters, row.before)->flags)
            << row.className << "." << row.name << row.parameters;
    }
}

TEST_F(FilterTest, reloadChangesOnlyWhatItMust) {
    MethodRecord* a = method("a.A", "x", "()");
    MethodRecord* b = method("b.B", "x", "()");
    db.currentStamp = 5;
    Filter::reloadFilters("a.*", "");
    EXPECT_EQ(METHOD_FILTERED, a->flags);
    EXPECT_EQ(5, a->stamp);
    EXPECT_EQ(1, b->stamp);
    db.currentStamp = 6;
    Filter::reloadFilters("a.*", "");
    EXPECT_EQ(5, a->stamp);
    Filter::reloadFilters("", "");
    EXPECT_EQ(0, a->flags);
    EXPECT_EQ(6, a->stamp);
}

TEST_F(FilterTest, classNameFilterLooksAtClassesOnly) {
    const ClassNameFilter filter("java.lang.Object:wait(*)\norg.*\n+org.app.*\n#net.*\nbad:line");
    EXPECT_TRUE(filter.isFilteredClassName("java.lang.Object"));
    EXPECT_TRUE(filter.isFilteredClassName("org.x.Y"));
    EXPECT_FALSE(filter.isFilteredClassName("org.app.Z"));
    EXPECT_FALSE(filter.isFilteredClassName("net.A"));
    EXPECT_FALSE(ClassNameFilter("").isFilteredClassName("a"));
}

TEST_F(FilterTest, defaultGeneralText) {
    const std::string text = getDefaultGeneralFilterText().c_str();
    EXPECT_EQ(80, std::count(text.begin(), text.end(), '\n'));
    EXPECT_EQ(0u, text.find("$Dispatch*\n$Http*\n$Markup*\n$Page*\n$Property*\n$Proxy*\n$Request*\n"
                            "+*TapestryFilter*\n+com.ibm.websphere.samples.*\n"));
    EXPECT_EQ(text.size() - 18, text.find("\nsunw.*\nweblogic.*"));
    logLines().clear();
    Filter::reloadFilters(text.c_str(), "");
    EXPECT_EQ("", logLines());
    EXPECT_EQ(81u + static_cast<size_t>(waitFilters()), list().size());
    EXPECT_EQ(METHOD_FILTERED, method("sun.reflect.X", "invoke", "()")->flags);
    EXPECT_EQ(0, method("org.apache.jsp.index_jsp", "_jspService", "()")->flags);
    EXPECT_EQ(0, method("com.example.App", "run", "()")->flags);
    EXPECT_EQ(METHOD_FILTERED, method("$Proxy12", "run", "()")->flags);
}

TEST_F(FilterTest, textsComeFromTheNamedFileOrTheDefaults) {
    const std::string path = temporaryFile("only.this.*\n");
    EXPECT_STREQ("only.this.*\n", Filter::readFilterSpecFromFile(path.c_str()).c_str());
    EXPECT_STREQ("only.this.*\n", Filter::readWallTimeSpecFromFile(path.c_str()).c_str());
    unlink(path.c_str());
    const std::string general = Filter::readFilterSpecFromFile(path.c_str()).c_str();
    EXPECT_EQ(0u, general.find(getDefaultGeneralFilterText().c_str()));
    EXPECT_NE(std::string::npos, general.find("\nweblogic.*\njdk.*\n"));
    const std::string wall = Filter::readWallTimeSpecFromFile(path.c_str()).c_str();
    EXPECT_EQ(0u, wall.find(getDefaultWallTimeText().c_str()));
    logLines().clear();
    Filter::reloadFilters(general.c_str(), wall.c_str());
    EXPECT_EQ("", logLines());
}

// What today's JVMs are found in gets the flags that its predecessors had.
TEST_F(FilterTest, additionsForNewerJVMs) {
    Filter::reloadFilters(Filter::readFilterSpecFromFile("/nonexistent"),
                          Filter::readWallTimeSpecFromFile("/nonexistent"));
    const struct {
        const char* className;
        const char* name;
        const char* parameters;
        int flags;
    } rows[] = {
        {"jdk.internal.misc.Unsafe", "park", "(boolean, long)", METHOD_FILTERED | METHOD_WAIT},
        {"java.lang.Object", "wait0", "(long)", METHOD_FILTERED | METHOD_WAIT},
        {"java.lang.Thread", "sleepNanos0", "(long)", METHOD_FILTERED | METHOD_WAIT},
        {"sun.nio.ch.EPoll", "wait", "(int, long, int, int)", METHOD_FILTERED | METHOD_WAIT},
        {"sun.nio.ch.NioSocketImpl", "implRead", "(byte[], int, int)", METHOD_WALL_TIME},
        {"sun.nio.ch.NioSocketImpl", "implRead", "(byte[], int, int, long)", METHOD_WALL_TIME},
        {"sun.nio.ch.NioSocketImpl", "implWrite", "(byte[], int, int)", METHOD_WALL_TIME},
        {"java.io.RandomAccessFile", "readBytes", "(byte[], int, int)", METHOD_WALL_TIME},
        {"sun.nio.ch.Net", "poll", "(java.io.FileDescriptor, int, long)", METHOD_FILTERED},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.flags, method(row.className, row.name, row.parameters)->flags)
            << row.className << "." << row.name << row.parameters;
    }
}
