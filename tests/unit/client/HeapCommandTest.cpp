#include "../heapfile/HprofWriter.h"
#include "RunClient.h"
#include "client/console/Text.h"
#include "client/heap/CutFile.h"
#include "db/DB.h"
#include "db/Progress.h"
#include "db/SnapshotCommon.h"
#include "db/SnapshotWriter.h"
#include "heapfile/HeapIndexFile.h"
#include "heapfile/HprofReader.h"
#include "offline/BackwardReferences.h"
#include "offline/HeapAnalysis.h"
#include "offline/HeapIndexWriter.h"
#include "offline/Reachability.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>

using namespace vdk;
using nlohmann::json;
using testing::HasSubstr;

namespace {

Outcome heap(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "heap");
    return client(arguments);
}

// The result of a report with its words, "path 0x2000".
json heapJson(const std::string& file, const std::string& words = "") {
    Outcome outcome = heap(split(file + " --json" + (words.empty() ? "" : " ") + words, ' '));
    EXPECT_EQ(0, outcome.code) << outcome.err;
    EXPECT_TRUE(endsWith(outcome.out, "}\n"));
    std::vector<std::set<std::string>> keys(1);
    auto once = [&](int, json::parse_event_t event, json& value) {
        if (event == json::parse_event_t::object_start) {
            keys.emplace_back();
        } else if (event == json::parse_event_t::object_end) {
            keys.pop_back();
        }
        bool again =
            event == json::parse_event_t::key && !keys.back().insert(std::string(value)).second;
        EXPECT_FALSE(again) << value << " is there twice";
        return true;
    };
    return json::parse(outcome.out, once, false);
}

// Two chains of three nodes that share the last, one held by a class, one by a JNI reference; a
// node that nothing holds; strings of which two are the same; an empty array.
enum : uint64_t { OBJECT = 0x1000, STRING = 0x1100, NODE = 0x1200, ARRAY_CLASS = 0x1300 };
enum : uint64_t { BYTES = 0x1400, WEAK = 0x1500, TEXT1 = 0x2078, TEXT2 = 0x2090 };
enum : uint64_t { A1 = 0x2000, A2 = 0x2018, B1 = 0x2030, SHARED = 0x2048, LOST = 0x2060 };
enum : uint64_t { CHARS1 = 0x20a8, CHARS2 = 0x20c0, EMPTY = 0x20d8, WEAK1 = 0x20e8, END = 0x2100 };

std::string dump() {
    enum { NEXT = 1, VALUE = 2, HEAD = 3, CODER = 4, REFERENT = 5 };
    HprofWriter w(8);
    w.strings(NEXT, {"next", "value", "head", "coder", "referent"});
    w.loadClass(OBJECT, "java/lang/Object");
    w.loadClass(STRING, "java/lang/String");
    w.loadClass(NODE, "demo/Node");
    w.loadClass(ARRAY_CLASS, "[Ljava/lang/Object;");
    w.loadClass(BYTES, "[B");
    w.loadClass(WEAK, "java/lang/ref/WeakReference");
    w.beginDump();
    w.classDump(OBJECT, 0, 0, {}, {});
    w.classDump(STRING, OBJECT, 0, {}, {{CODER, 8, 0}, {VALUE, 2, 0}});
    w.classDump(NODE, OBJECT, 0, {{HEAD, 2, A1}}, {{NEXT, 2, 0}, {VALUE, 2, 0}});
    w.classDump(ARRAY_CLASS, OBJECT, 0, {}, {});
    w.classDump(BYTES, OBJECT, 0, {}, {});
    w.classDump(WEAK, OBJECT, 0, {}, {{REFERENT, 2, 0}});
    w.instance(A1, NODE, {{A2, 8}, {TEXT1, 8}});
    w.instance(A2, NODE, {{SHARED, 8}, {EMPTY, 8}});
    w.instance(B1, NODE, {{SHARED, 8}, {TEXT2, 8}});
    w.instance(SHARED, NODE, {{0, 8}, {0, 8}});
    w.instance(LOST, NODE, {{0, 8}, {0, 8}});
    w.instance(TEXT1, STRING, {{0, 1}, {CHARS1, 8}});
    w.instance(TEXT2, STRING, {{0, 1}, {CHARS2, 8}});
    w.byteArray(CHARS1, "twin");
    w.byteArray(CHARS2, "twin");
    w.objectArray(EMPTY, ARRAY_CLASS, {});
    w.instance(WEAK1, WEAK, {{LOST, 8}});
    w.byteArray(END, "");
    w.rootSystemClass(NODE);
    w.rootGlobal(B1);
    w.rootGlobal(WEAK1);
    w.endDump();
    return w.out;
}

class HeapCommand : public testing::Test {
protected:
    TemporaryFile file{dump()};
};

// The file that the analysis of a dump writes.
void writeResults(const std::string& dumpPath, const std::string& path) {
    HeapReadOptions options;
    auto model = HprofReader::read(std::make_shared<MappedFile>(dumpPath, ""), options);
    std::vector<int> roots;
    for (const HeapRoot& root : model->roots) {
        roots.push_back(root.row);
    }
    analyzeHeap(*model->storage, roots.data(), int(roots.size()), nullptr, nullptr, 1);
    DB db(-1, -1);
    const int descriptor = open(path.c_str(), O_RDWR);
    {
        SnapshotWriter writer(descriptor);
        Progress progress;
        writeHeapSnapshot(db, *model->storage, writer, &progress, SNAPSHOT_WITH_HEAP);
    }
    close(descriptor);
}

std::vector<std::pair<long, long>> sizesOf(const json& objects) {
    std::vector<std::pair<long, long>> sizes;
    for (const json& each : objects) {
        sizes.emplace_back(each["retained"], each["shallow"]);
    }
    std::sort(sizes.begin(), sizes.end());
    return sizes;
}

json entry(const json& list, const std::string& key, const std::string& value) {
    for (const json& each : list) {
        if (each[key] == value) {
            return each;
        }
    }
    return json();
}

} // namespace

TEST_F(HeapCommand, histogramCountsAndSumsByClass) {
    json result = heapJson(file.path, "histogram");
    EXPECT_EQ("vdk.heap.histogram/1", result["schema"]);
    EXPECT_EQ(18, result["count"]);
    json node = entry(result["classes"], "class", "demo.Node");
    EXPECT_EQ(5, node["count"]);
    EXPECT_EQ(5 * 24, node["shallow"]);
    EXPECT_EQ(1u, heapJson(file.path, "histogram demo.*")["classes"].size());
    Outcome text = heap({file.path, "histogram", "--no-retained", "--sort", "count"});
    EXPECT_THAT(text.out, HasSubstr("demo.Node\n"));
}

TEST_F(HeapCommand, dominatorsGoDownLevelByLevel) {
    json top = heapJson(file.path, "dominators");
    EXPECT_FALSE(entry(top["objects"], "id", "0x2048").is_null()) << "held by both chains";
    EXPECT_TRUE(entry(top["objects"], "id", "0x2060").is_null()) << "held by the reference";
    json below = heapJson(file.path, "dominators 0x2000");
    EXPECT_FALSE(entry(below["objects"], "id", "0x2018").is_null());
    EXPECT_FALSE(entry(below["objects"], "id", "0x2078").is_null());
    EXPECT_EQ(2, below["count"]);
    json classes = heapJson(file.path, "dominators 0x2000 --by-class");
    EXPECT_EQ(1, entry(classes["classes"], "class", "java.lang.String")["count"]);
}

TEST_F(HeapCommand, referencesAndReferrersHaveNames) {
    json refs = heapJson(file.path, "refs 0x2000");
    EXPECT_EQ("0x2018", entry(refs["references"], "name", "next")["id"]);
    json referrers = heapJson(file.path, "referrers 0x2048");
    EXPECT_EQ(2, referrers["count"]);
    EXPECT_EQ("next", entry(referrers["references"], "id", "0x2030")["name"]);
}

TEST_F(HeapCommand, pathIsTheShortestToARoot) {
    json path = heapJson(file.path, "path 0x2048");
    ASSERT_EQ(2u, path["path"].size());
    EXPECT_EQ("0x2030", path["path"][0]["id"]);
    EXPECT_EQ("JNI global", path["roots"][0]["kind"]);
    EXPECT_EQ(1, heap({file.path, "path", "0x2060"}).code) << "only weakly held";
    EXPECT_EQ(2u, heapJson(file.path, "path 0x2060 --weak")["path"].size());
}

TEST_F(HeapCommand, retainedIsWhatAGroupAloneKeeps) {
    // Without A1 and B1 nothing holds the shared node; with A1 alone gone B1 still does.
    json both = heapJson(file.path, "retained 0x2000 0x2030");
    json one = heapJson(file.path, "retained 0x2000");
    // Nine objects and the three classes that only those have.
    EXPECT_EQ(12, both["count"]);
    EXPECT_EQ(6, one["count"]);
    EXPECT_LT(one["retained"].get<int>(), both["retained"].get<int>());
    EXPECT_EQ(5, heapJson(file.path, "retained demo.Node")["group"]);
    EXPECT_EQ(1, heap({file.path, "retained", "no.Such"}).code);
}

TEST_F(HeapCommand, duplicateStringsAndEmptyArraysAreFound) {
    json strings = heapJson(file.path, "strings");
    EXPECT_EQ(2, strings["count"]);
    EXPECT_EQ(1, strings["distinct"]);
    EXPECT_EQ("twin", strings["duplicates"][0]["text"]);
    EXPECT_EQ(2, strings["duplicates"][0]["arrays"]);
    json arrays = heapJson(file.path, "arrays");
    json empty = entry(arrays["groups"], "owner", "demo.Node.value");
    EXPECT_EQ("length 0", empty["kind"]);
    EXPECT_EQ(1, empty["count"]);
}

TEST_F(HeapCommand, diffShowsWhatChanged) {
    EXPECT_TRUE(heapJson(file.path, "diff " + file.path)["classes"].empty());
    HprofWriter other(8);
    other.loadClass(BYTES, "[B");
    other.beginDump();
    other.byteArray(0x2000, "x");
    other.endDump();
    TemporaryFile second(other.out);
    json result = heapJson(file.path, "diff " + second.path);
    json node = entry(result["classes"], "class", "demo.Node");
    EXPECT_EQ(5, node["countBefore"]);
    EXPECT_EQ(0, node["count"]);
}

// The file is sparse: its elements are never written.
TEST_F(HeapCommand, arraysBeyondTwoGigabytesCountWithTheirFullSize) {
    const uint32_t length = 400'000'000;
    const int64_t size = 16 + int64_t(length) * 8;
    HprofWriter w(8);
    w.loadClass(OBJECT, "java/lang/Object");
    w.loadClass(ARRAY_CLASS, "[Ljava/lang/Object;");
    w.loadClass(BYTES, "[J");
    w.head(HPROF_HEAP_DUMP_SEGMENT, 0);
    const size_t start = w.out.size();
    w.classDump(OBJECT, 0, 0, {}, {});
    w.objectArray(0x8008, ARRAY_CLASS, {0x9010});
    w.rootGlobal(0x8008);
    w.put({{HPROF_PRIMITIVE_ARRAY_DUMP, 1}, {0x9010, 8}, {0, 4}, {length, 4}, {11, 1}});
    const uint64_t end = w.out.size() + uint64_t(length) * 8;
    for (size_t i = 0; i < 4; i++) {
        w.out[start - 4 + i] = char((end - start) >> (24 - 8 * i));
    }
    TemporaryFile big(w.out);
    ASSERT_EQ(0, truncate(big.path.c_str(), off_t(end)));
    TemporaryFile index;
    unlink(index.path.c_str());
    for (int opening = 0; opening < 2; opening++) {
        json objects = heapJson(big.path, "biggest --verify --index " + index.path)["objects"];
        EXPECT_EQ(size + 24, objects[0]["retained"]);
        EXPECT_EQ(size, objects[1]["shallow"]);
        EXPECT_EQ(size, objects[1]["retained"]);
    }
    EXPECT_EQ(size,
              entry(heapJson(big.path, "histogram")["classes"], "class", "long[]")["shallow"]);
}

TEST_F(HeapCommand, diffTellsWhatIsWrongWithEitherFile) {
    TemporaryFile cut(dump().substr(0, dump().size() - 100));
    std::string told = "the file is truncated";
    EXPECT_THAT(heapJson(cut.path, "diff " + file.path)["remarks"].dump(), HasSubstr(told));
    EXPECT_THAT(heapJson(file.path, "diff " + cut.path)["remarks"].dump(), HasSubstr(told));
    EXPECT_THAT(heap({cut.path, "diff", file.path}).err, HasSubstr(cut.path + ": " + told));
}

TEST_F(HeapCommand, anIndexChangesNothingButTheWork) {
    TemporaryFile index;
    unlink(index.path.c_str());
    for (const std::string report :
         {"summary", "histogram", "biggest", "strings", "arrays", "referrers 0x2000",
          "referrers 0x2048", "path 0x2048", "dominators 0x2000"}) {
        json plain = heapJson(file.path, report);
        for (const std::string& way : {std::string(" --threads 1"), " --index " + index.path,
                                       " --index " + index.path + " --verify"}) {
            EXPECT_EQ(plain, heapJson(file.path, report + way)) << report << way;
        }
    }
}

// Its checksums are right: only a count of the steps ends the way up.
TEST_F(HeapCommand, aForgedIndexLeadsNobodyInACircle) {
    TemporaryFile index;
    HeapReadOptions options;
    AnalyzedHeap forged;
    forged.model = HprofReader::read(std::make_shared<MappedFile>(file.path, ""), options);
    std::vector<int> roots;
    for (const HeapRoot& root : forged.model->roots) {
        roots.push_back(root.row);
    }
    forged.reachedBits.resize(size_t(bitFieldWords(forged.model->storage->getObjectCount())));
    analyzeHeap(*forged.model->storage, roots.data(), int(roots.size()), nullptr,
                forged.reachedBits.data(), 1);
    ensureBackwardReferences(*forged.model->storage, 1);
    forged.analyzed = true;
    const int one = forged.model->rowOfId(CHARS1);
    const int other = forged.model->rowOfId(CHARS2);
    forged.model->storage->setDominator(one, other);
    forged.model->storage->setDominator(other, one);
    HeapIndexFile::write(forged, 1, index.path, nullptr);
    Outcome outcome =
        heap({file.path, "holders", "byte[]", "--skip", "byte[]", "--index", index.path});
    EXPECT_EQ(int(ExitCode::BadInput), outcome.code);
    EXPECT_THAT(outcome.err, HasSubstr("dominators lead in a circle"));
}

TEST_F(HeapCommand, aFileThatIsCutEndsTheProgramWithItsName) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            TemporaryFile large(std::string(1 << 16, 'x'));
            endAtCutFiles();
            MappedFile mapped(large.path, "");
            if (truncate(large.path.c_str(), 1) == 0) {
                _exit(mapped.data()[1 << 15]);
            }
        },
        testing::ExitedWithCode(int(ExitCode::BadInput)), "/.* was cut while it was read");
}

TEST_F(HeapCommand, errorsHaveTheirCodes) {
    TemporaryFile foreign("not a heap at all");
    TemporaryFile notes("notes of the user");
    TemporaryFile zipped("\x1f\x8b\x08 and so on");
    static const struct {
        std::vector<std::string> arguments;
        int code;
        const char* err;
    } cases[] = {
        {{}, 2, "FILE is missing"},
        {{file.path, "nosuch"}, 2, "is no value of REPORT"},
        {{file.path, "path"}, 2, "this report takes an object"},
        {{file.path, "path", "x"}, 2, "is no object identifier"},
        {{file.path, "path", "0x9"}, 1, "the heap holds no object"},
        {{foreign.path}, 7, "wrong magic at offset 0"},
        {{"/nonexistent.hprof"}, 2, "cannot open"},
        {{zipped.path, "--tmp", "/nonexistent"},
         8,
         "cannot create a temporary file in /nonexistent"},
        {{file.path, "--dump", "2"}, 7, "the file holds 1 heap dumps, none of number 2"},
        {{file.path, "--index", notes.path}, 7, "is not an index of a heap"},
        {{file.path, "--index", "/nonexistent/x"}, 8, "cannot write /nonexistent/x"},
    };
    for (const auto& c : cases) {
        Outcome outcome = heap(c.arguments);
        EXPECT_EQ(c.code, outcome.code) << c.err;
        EXPECT_THAT(outcome.err, HasSubstr(c.err));
    }
}

TEST_F(HeapCommand, theResultsOfAnAnalysisOpenWithoutTheirHeap) {
    TemporaryFile results("");
    writeResults(file.path, results.path);
    for (const std::string report : {"biggest", "dominators"}) {
        json known = heapJson(file.path, report + " --top 100");
        json opened = heapJson(results.path, report + " --top 100 --verify");
        EXPECT_FALSE(sizesOf(opened["objects"]).empty());
        for (const auto& sizes : sizesOf(known["objects"])) {
            EXPECT_THAT(sizesOf(opened["objects"]), testing::Contains(sizes)) << report;
        }
    }
    EXPECT_EQ(heapJson(file.path)["shallow"], heapJson(results.path)["shallow"]);
    Outcome tables = client({"report", results.path});
    EXPECT_EQ(0, tables.code) << tables.err;
    EXPECT_NE("", tables.out);
    for (const char* report :
         {"histogram", "path 1", "arrays", "strings", "refs 1", "retained 1"}) {
        Outcome outcome = heap(split(results.path + " " + report, ' '));
        EXPECT_EQ(int(ExitCode::BadInput), outcome.code) << report;
        EXPECT_THAT(outcome.err, HasSubstr("holds the results of an analysis only"));
    }
}
