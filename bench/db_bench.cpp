// The database's hot paths beside the plainest code that could do the same: look-up of (thread,
// frame) pairs, the walk to a child frame, the table stream into memory and back, pattern matching.

#include "core/ground/WildcardMatch.h"
#include "db/AbstractWriter.h"
#include "db/DB.h"
#include "db/Progress.h"
#include "db/SnapshotCommon.h"
#include "db/TableStreamReader.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstring>
#include <fnmatch.h>
#include <random>
#include <regex>
#include <string>
#include <unordered_map>
#include <vector>

namespace {
// Keeps nothing: the bytes pass through the buffer, as they do on their way to a file.
class DiscardingWriter : public AbstractWriter {
public:
    DiscardingWriter() : AbstractWriter(0x100000, true, -1), total(0) {}
    void flush() override {
        total += used;
        benchmark::DoNotOptimize(buffer);
        benchmark::ClobberMemory();
        used = 0;
    }
    long total;
};

class CollectingWriter : public AbstractWriter {
public:
    CollectingWriter() : AbstractWriter(0x100000, true, -1) {}
    void flush() override {
        bytes.append(reinterpret_cast<char*>(buffer), static_cast<size_t>(used));
        used = 0;
    }
    std::string bytes;
};

// The pairs that a sampler asks for: some threads, each with many frames, asked for in no order.
struct Pairs {
    explicit Pairs(long count) {
        for (long i = 0; i < count; i++) {
            threads.push_back(static_cast<int>(2 + i % 16));
            frames.push_back(static_cast<int>(i));
        }
    }
    void shuffle() {
        std::shuffle(threads.begin(), threads.end(), std::mt19937(1));
        std::shuffle(frames.begin(), frames.end(), std::mt19937(1));
    }
    std::vector<int> threads;
    std::vector<int> frames;
};

void getTFI(benchmark::State& state) {
    Pairs pairs(state.range(0));
    DB db(-1, -1);
    for (size_t i = 0; i < pairs.threads.size(); i++) {
        db.threadFrameIndex->getTFI(pairs.threads[i], pairs.frames[i], true);
    }
    pairs.shuffle();
    long sum = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < pairs.threads.size(); i++) {
            sum += db.threadFrameIndex->getTFI(pairs.threads[i], pairs.frames[i], true);
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void getTFIByUnorderedMap(benchmark::State& state) {
    Pairs pairs(state.range(0));
    std::unordered_map<long, int> map;
    for (size_t i = 0; i < pairs.threads.size(); i++) {
        map.emplace(static_cast<long>(pairs.threads[i]) << 32 | pairs.frames[i],
                    static_cast<int>(i));
    }
    pairs.shuffle();
    long sum = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < pairs.threads.size(); i++) {
            sum += map.find(static_cast<long>(pairs.threads[i]) << 32 | pairs.frames[i])->second;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// One child of every frame looked up, in a tree of eight children a frame.
constexpr int CHILDREN = 8;

void getChildInFrameTable(benchmark::State& state) {
    DB db(-1, -1);
    const int count = static_cast<int>(state.range(0));
    for (int i = 0; i < count; i++) {
        FrameRecord* frame = db.frameTable->getRecord(i, true);
        const int firstChild = i * CHILDREN + 1;
        frame->method = (i - 1) % CHILDREN;
        frame->firstChild = firstChild < count ? firstChild : -1;
        frame->nextSibling = i % CHILDREN != 0 && i + 1 < count ? i + 1 : -1;
        frame->stamp = 1;
    }
    long sum = 0;
    for (auto _ : state) {
        for (int i = 0; i < count; i++) {
            int child = db.frameTable->getRecord(i, true)->firstChild;
            while (child != -1) {
                const FrameRecord* record = db.frameTable->getRecord(child, true);
                if (record->method == (i & 3)) {
                    break;
                }
                child = record->nextSibling;
            }
            sum += child;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * count);
}

void getChildInPlainArray(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    std::vector<FrameRecord> frames(static_cast<size_t>(count));
    for (int i = 0; i < count; i++) {
        FrameRecord& frame = frames[static_cast<size_t>(i)];
        const int firstChild = i * CHILDREN + 1;
        frame.method = (i - 1) % CHILDREN;
        frame.firstChild = firstChild < count ? firstChild : -1;
        frame.nextSibling = i % CHILDREN != 0 && i + 1 < count ? i + 1 : -1;
    }
    long sum = 0;
    for (auto _ : state) {
        for (int i = 0; i < count; i++) {
            int child = frames[static_cast<size_t>(i)].firstChild;
            while (child != -1) {
                const FrameRecord& record = frames[static_cast<size_t>(child)];
                if (record.method == (i & 3)) {
                    break;
                }
                child = record.nextSibling;
            }
            sum += child;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * count);
}

void fillTables(DB& db, int rows) {
    for (int i = 1; i <= rows; i++) {
        FrameRecord* frame = db.frameTable->getRecord(i, true);
        frame->parent = i - 1;
        frame->stamp = 1;
        CPUProfilingRecord* cpu = db.cpuProfilingTable->getRecord(i, true);
        cpu->timeNs = i;
        cpu->stamp = 1;
        if (i % 8 == 0) {
            const std::string text = "com.example.some.package.ClassNumber" + std::to_string(i);
            db.stringPool->getDBIndex(text.c_str(), true);
        }
    }
}

constexpr TableSet STREAM = {1 << SLOT_String | 1 << SLOT_CPUProfiling | 1 << SLOT_Frame, 0};

void writeTableStream(benchmark::State& state) {
    DB db(-1, -1);
    fillTables(db, static_cast<int>(state.range(0)));
    long bytes = 0;
    for (auto _ : state) {
        DiscardingWriter writer;
        Progress progress;
        writeTables(&db, writer, STREAM, 10, 90, &progress, nullptr, true, nullptr);
        writer.flush();
        bytes += writer.total;
    }
    state.SetBytesProcessed(bytes);
}

// The same number of bytes copied, record by record, without any encoding.
void copyRecords(benchmark::State& state) {
    DB db(-1, -1);
    fillTables(db, static_cast<int>(state.range(0)));
    std::vector<unsigned char> buffer(0x100000);
    long bytes = 0;
    for (auto _ : state) {
        size_t used = 0;
        const auto copy = [&](int index, const auto& record) {
            if (used + sizeof(record) + sizeof(index) > buffer.size()) {
                bytes += static_cast<long>(used);
                used = 0;
            }
            memcpy(&buffer[used], &index, sizeof(index));
            memcpy(&buffer[used + sizeof(index)], &record, sizeof(record));
            used += sizeof(record) + sizeof(index);
        };
        db.cpuProfilingTable->eachRecord(copy);
        db.frameTable->eachRecord(copy);
        benchmark::DoNotOptimize(buffer.data());
        benchmark::ClobberMemory();
        bytes += static_cast<long>(used);
    }
    state.SetBytesProcessed(bytes);
}

void readTableStream(benchmark::State& state) {
    DB db(-1, -1);
    fillTables(db, static_cast<int>(state.range(0)));
    CollectingWriter writer;
    Progress progress;
    writeTables(&db, writer, STREAM, 10, 90, &progress, nullptr, true, nullptr);
    writer.flush();
    long bytes = 0;
    for (auto _ : state) {
        DB copy(-1, -1);
        MemorySource source(writer.bytes.data(), static_cast<long>(writer.bytes.size()));
        ByteReader input(source);
        TableStreamReader reader(&copy);
        reader.readMarkedTables(input);
        bytes += input.getOffset();
    }
    state.SetBytesProcessed(bytes);
}

// Every chunk of a table with a few changed rows is scanned for an increment.
void writeSmallIncrement(benchmark::State& state) {
    DB db(-1, -1);
    fillTables(db, static_cast<int>(state.range(0)));
    for (int i = 1; i < state.range(0); i += 1000) {
        db.cpuProfilingTable->getRecord(i, true)->stamp = 2;
    }
    int stamps[MAX_TABLE_COUNT];
    for (int& stamp : stamps) {
        stamp = 1;
    }
    for (auto _ : state) {
        DiscardingWriter writer;
        Progress progress;
        writeTables(&db, writer, STREAM, 0, 0, &progress, stamps, false, nullptr);
        writer.flush();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * 2);
}

const char* const PATTERNS[] = {"java.*", "*Servlet*", "com.example.*.impl.*", "$Proxy*", "org.*"};
const char* const CLASSES[] = {"java.util.concurrent.ThreadPoolExecutor",
                               "com.example.shop.impl.OrderServlet",
                               "org.springframework.web.servlet.DispatcherServlet", "a.B"};

template <typename Match>
void matchAll(benchmark::State& state, Match&& match) {
    long hits = 0;
    for (auto _ : state) {
        for (size_t pattern = 0; pattern < 5; pattern++) {
            for (const char* name : CLASSES) {
                hits += match(pattern, name);
            }
        }
    }
    benchmark::DoNotOptimize(hits);
    state.SetItemsProcessed(state.iterations() * 20);
}

void matchByWildcardMatch(benchmark::State& state) {
    matchAll(state, [](size_t i, const char* name) { return wildcardMatch(PATTERNS[i], name); });
}

void matchByFnmatch(benchmark::State& state) {
    matchAll(state, [](size_t i, const char* name) {
        return fnmatch(PATTERNS[i], name, FNM_NOESCAPE) == 0;
    });
}

void matchByRegex(benchmark::State& state) {
    std::vector<std::regex> compiled;
    for (const char* pattern : PATTERNS) {
        std::string expression;
        for (; *pattern != 0; pattern++) {
            expression += *pattern == '*' ? ".*" : std::string("[") + *pattern + "]";
        }
        compiled.emplace_back(expression);
    }
    matchAll(state,
             [&](size_t i, const char* name) { return std::regex_match(name, compiled[i]); });
}

// A pattern that a careless matcher takes exponential time for.
void matchHostilePattern(benchmark::State& state) {
    std::string pattern;
    for (int i = 0; i < 30; i++) {
        pattern += "*a";
    }
    pattern += "*b";
    const std::string text(static_cast<size_t>(state.range(0)), 'a');
    bool hit = false;
    for (auto _ : state) {
        hit = wildcardMatch(pattern.c_str(), text.c_str());
        benchmark::DoNotOptimize(hit);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
} // namespace

BENCHMARK(getTFI)->Arg(10000)->Arg(1000000);
BENCHMARK(getTFIByUnorderedMap)->Arg(10000)->Arg(1000000);
BENCHMARK(getChildInFrameTable)->Arg(10000)->Arg(1000000);
BENCHMARK(getChildInPlainArray)->Arg(10000)->Arg(1000000);
BENCHMARK(writeTableStream)->Arg(10000)->Arg(1000000);
BENCHMARK(copyRecords)->Arg(10000)->Arg(1000000);
BENCHMARK(readTableStream)->Arg(10000)->Arg(1000000);
BENCHMARK(writeSmallIncrement)->Arg(10000)->Arg(1000000);
BENCHMARK(matchByWildcardMatch);
BENCHMARK(matchByFnmatch);
BENCHMARK(matchByRegex);
BENCHMARK(matchHostilePattern)->Arg(1000)->Arg(100000);
