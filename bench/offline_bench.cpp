// Offline analysis beside plain arrays, in one run:
//   offline_bench                   arrays, and heap with a million rows
//   offline_bench FILE...           the same as dump FILE...
//   offline_bench arrays            BigIntArray64 access, iteration and fillArray
//   offline_bench heap ROWS...      dominators and retained sizes, phase by phase
//   offline_bench dump FILE...      the same of heap dumps
//   offline_bench shapes ROWS       the whole analysis of each special shape
// Options for Google Benchmark are passed over, as bench/run gives them to every program.
// Times are CPU times; give VDK_BENCH_THREADS=2 for two threads and wall times.

#include "../tests/unit/offline/BigGraphs.h"
#include "PlainDominators.h"
#include "core/ground/Logger.h"
#include "heapfile/HprofReader.h"
#include "offline/BackwardReferences.h"
#include "offline/DominatorVerifier.h"
#include "offline/HeapAnalysis.h"
#include "offline/MemAllocator.h"
#include "offline/Reachability.h"
#include "offline/SearchOrderDominators.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// CPU time of this process. VDK_BENCH_USER=1 leaves out the kernel's share, which is that of memory
// touched for the first time and varies from run to run on a virtual machine.
double cpuSeconds() {
    static const bool userOnly = getenv("VDK_BENCH_USER") != nullptr;
    if (!userOnly) {
        timespec now;
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    }
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec) * 1e-6;
}

double wallSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Resident memory of this process, or its highest value since the last reset, in bytes.
double resident(const char* key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, strlen(key), key) == 0) {
            return atof(line.c_str() + strlen(key) + 1) * 1024;
        }
    }
    return 0;
}

void resetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

template <typename Body>
double timed(Body&& body) {
    const double before = cpuSeconds();
    body();
    return cpuSeconds() - before;
}

volatile long ourSink;

template <typename Plain, typename Paged>
void compare(const char* what, long elements, Plain&& plain, Paged&& paged) {
    double best[2] = {1e9, 1e9};
    for (int round = 0; round < 5; round++) {
        best[0] = std::min(best[0], timed(plain));
        best[1] = std::min(best[1], timed(paged));
    }
    printf("%-24s plain %6.3f ns   paged %6.3f ns\n", what, best[0] * 1e9 / double(elements),
           best[1] * 1e9 / double(elements));
}

void benchArrays() {
    const int count = 32 << 20;
    std::vector<int> plain(count);
    BigIntArray64 paged("bench");
    paged.ensure(count);
    std::vector<int> order(1 << 22);
    std::mt19937 random(1);
    for (int& index : order) {
        index = static_cast<int>(random() % unsigned(count));
    }
    std::vector<int> data(count);
    for (int i = 0; i < count; i++) {
        data[i] = i % 3;
    }
    compare(
        "sequential set", count,
        [&] {
            for (int i = 0; i < count; i++)
                plain[i] = i;
        },
        [&] {
            for (int i = 0; i < count; i++)
                paged.set(i, i);
        });
    const auto sum = [&](auto&& get) {
        long total = 0;
        for (int i = 0; i < count; i++) {
            total += get(i);
        }
        ourSink = total;
    };
    compare(
        "sequential get", count, [&] { sum([&](int i) { return plain[i]; }); },
        [&] { sum([&](int i) { return paged.get(i); }); });
    const auto sumRandom = [&](auto&& get) {
        long total = 0;
        for (int index : order) {
            total += get(index);
        }
        ourSink = total;
    };
    compare(
        "random get", 1 << 22, [&] { sumRandom([&](int i) { return plain[i]; }); },
        [&] { sumRandom([&](int i) { return paged.get(i); }); });
    compare(
        "iterator", count, [&] { sum([&](int i) { return plain[i]; }); },
        [&] {
            long total = 0;
            BigIntArrayIterator64 iterator(paged, 0, count);
            while (iterator.hasNext()) {
                total += iterator.next();
            }
            ourSink = total;
        });
    compare(
        "fillArray", count, [&] { memcpy(plain.data(), data.data(), sizeof(int) * count); },
        [&] { fillArray(paged, data.data(), 0, count); });
}

// What one phase cost: CPU seconds, and the highest resident memory while it ran.
struct Cost {
    double seconds = 0;
    double peakBytes = 0;
};

template <typename Body>
Cost measured(Body&& body) {
    resetPeak();
    Cost cost;
    cost.seconds = timed(body);
    cost.peakBytes = resident("VmHWM:");
    return cost;
}

// Touches as much memory as an analysis takes and gives it back. On a virtual machine the first use
// of memory that the host has not backed costs some twenty times as much as any later one, and
// which side meets such memory is chance.
void warmMemory(long rows) {
    const size_t bytes = static_cast<size_t>(rows) * 96;
    char* block = static_cast<char*>(MemAllocator::allocateZeroed(bytes));
    for (size_t i = 0; i < bytes; i += 4096) {
        block[i] = 1;
    }
    MemAllocator::release(block, bytes);
}

struct Phases {
    Cost referrers;
    Cost search;
    Cost dominators; // with the retained sizes

    Cost sum() const {
        Cost all;
        for (const Cost* cost : {&referrers, &search, &dominators}) {
            all.seconds += cost->seconds;
            all.peakBytes = std::max(all.peakBytes, cost->peakBytes);
        }
        return all;
    }
};

// One line a phase. Bytes are resident bytes of the process, without those in plainBase that are
// there for the other side only.
void printPhases(const Phases& paged, const Phases& plain, double plainBase, long units, int rows) {
    const struct {
        const char* name;
        Cost paged;
        Cost plain;
    } lines[] = {{"referrers", paged.referrers, plain.referrers},
                 {"search", paged.search, plain.search},
                 {"dominators", paged.dominators, plain.dominators},
                 {"sum", paged.sum(), plain.sum()}};
    const double scale = 1e9 / static_cast<double>(units);
    printf("  %-11s %28s   %28s   %s\n", "", "paged: ns/node+edge, B/row",
           "plain: ns/node+edge, B/row", "ratio of times");
    for (const auto& line : lines) {
        printf("  %-11s %18.2f %9.1f   %18.2f %9.1f   %6.2f\n", line.name,
               line.paged.seconds * scale, line.paged.peakBytes / rows, line.plain.seconds * scale,
               (line.plain.peakBytes - plainBase) / rows, line.paged.seconds / line.plain.seconds);
    }
}

// Ends the cost of the search and starts that of the dominators.
class SearchEnd : public AfterSearch {
public:
    void searchEnded() override {
        at = cpuSeconds();
        peakBytes = resident("VmHWM:");
        resetPeak();
    }
    double at = 0;
    double peakBytes = 0;
};

Phases analyzePaged(BigGraph& graph) {
    Phases phases;
    ObjectStorage& storage = *graph.storage;
    const std::vector<int> bits(bitFieldWords(storage.getObjectCount()), -1);
    const double before = cpuSeconds();
    resetPeak();
    SearchEnd searchEnd;
    {
        SearchOrderDominators computer(storage, graph.roots.data(),
                                       static_cast<int>(graph.roots.size()), bits.data(), 1,
                                       nullptr, &searchEnd);
        phases.search = {searchEnd.at - before, searchEnd.peakBytes};
        phases.dominators = {cpuSeconds() - searchEnd.at, resident("VmHWM:")};
    }
    phases.referrers = measured([&] { ensureBackwardReferences(storage, 1); });
    return phases;
}

Phases analyzePlain(const BigGraph& graph) {
    const ObjectStorage& storage = *graph.storage;
    const int count = storage.getObjectCount();
    std::vector<int> starts(count + 1);
    std::vector<int> targets;
    std::vector<int> sizes(count);
    for (int row = 1; row < count; row++) {
        starts[row] = static_cast<int>(targets.size());
        for (int i = 0; i < storage.getRefCount(row); i++) {
            targets.push_back(storage.getRef(row, i));
        }
        sizes[row] = storage.getSize(row);
    }
    starts[count] = static_cast<int>(targets.size());
    PlainDominators plain(starts, targets, graph.roots);
    warmMemory(count);
    Phases phases;
    phases.search = measured([&] { plain.search(); });
    phases.referrers = measured([&] { plain.referrers(); });
    phases.dominators = measured([&] {
        plain.dominators();
        plain.retained(sizes);
    });
    for (int row = 1; row < count; row++) {
        if (plain.dominatorOf(row) != storage.getDominator(row)) {
            printf("  RESULTS DIFFER at row %d\n", row);
            break;
        }
    }
    return phases;
}

BigGraph readDump(const char* path) {
    BigGraph graph;
    graph.name = path;
    HeapReadOptions options;
    options.threads = 1;
    std::unique_ptr<HeapModel> model;
    const double before = resident("VmRSS:");
    const Cost cost = measured([&] {
        model = HprofReader::read(std::make_shared<MappedFile>(path, std::string()), options);
    });
    const double rows = model->rowCount();
    printf("reading %6.1f ns and %5.1f bytes an object, %5.1f of them the mapped file's\n",
           cost.seconds * 1e9 / rows, (cost.peakBytes - before) / rows,
           static_cast<double>(model->file->size()) / rows);
    for (const HeapRoot& root : model->roots) {
        graph.roots.push_back(root.row);
    }
    graph.storage = std::move(model->storage);
    const ObjectStorage& storage = *graph.storage;
    for (int row = 1; row < storage.getObjectCount(); row++) {
        for (int i = 0; i < storage.getRefCount(row); i++) {
            graph.references += storage.getRef(row, i) != 0;
        }
    }
    return graph;
}

// References are counted without empty positions.
void benchHeap(BigGraph graph) {
    const int rows = graph.storage->getObjectCount() - 1;
    const long units = rows + graph.references;
    printf("%s: %d rows, %ld references\n", graph.name.c_str(), rows, graph.references);
    warmMemory(rows);
    const Phases paged = analyzePaged(graph);
    const int rootCount = static_cast<int>(graph.roots.size());
    DominatorCheck check;
    const double verify = timed(
        [&] { check = verifyDominators(*graph.storage, graph.roots.data(), rootCount, nullptr); });
    printf("  verify %6.2f ns per node and edge: %s (%ld direct, %ld ordered, %ld solved)\n",
           verify * 1e9 / static_cast<double>(units),
           check.violated == nullptr ? "right" : check.violated, check.direct, check.ordered,
           check.solved);
    graph.storage->setBackwardReferences(nullptr);
    const double base = resident("VmRSS:");
    printPhases(paged, analyzePlain(graph), base, units, rows);
    fflush(stdout);
}

void benchShapes(int rows) {
    BigGraph (*const makers[])(int) = {chainGraph, starGraph, parentTreeGraph, deepTreeGraph,
                                       gridGraph,  trapGraph, bucketTrapGraph};
    const char* threads = getenv("VDK_BENCH_THREADS");
    for (auto* maker : makers) {
        BigGraph graph = maker(rows);
        const double before = wallSeconds();
        analyzeHeap(*graph.storage, graph.roots.data(), static_cast<int>(graph.roots.size()),
                    nullptr, nullptr, threads == nullptr ? 1 : atoi(threads));
        printf("%-20s %6.2f ns per node and edge\n", graph.name.c_str(),
               (wallSeconds() - before) * 1e9 / static_cast<double>(rows + graph.references));
        fflush(stdout);
    }
}

} // namespace

int usage() {
    fprintf(stderr, "usage: offline_bench [FILE... | arrays | heap ROWS... | dump FILE... | "
                    "shapes ROWS]\n");
    return 2;
}

int main(int argc, char** argv) {
    Logger::setSink([](const char*) {});
    std::vector<std::string> words;
    for (int i = 1; i < argc; i++) {
        if (strncmp(argv[i], "--benchmark_", 12) != 0) {
            words.emplace_back(argv[i]);
        }
    }
    if (words.empty()) {
        benchArrays();
        benchHeap(heapLikeGraph(1000000));
        return 0;
    }
    std::string what = words[0];
    if (what != "arrays" && what != "heap" && what != "shapes" && what != "dump" &&
        access(what.c_str(), R_OK) == 0) {
        what = "dump";
    } else {
        words.erase(words.begin());
    }
    if (what == "arrays" && words.empty()) {
        benchArrays();
    } else if (what == "heap" && !words.empty()) {
        for (const std::string& rows : words) {
            benchHeap(heapLikeGraph(atoi(rows.c_str())));
        }
    } else if (what == "dump" && !words.empty()) {
        for (const std::string& file : words) {
            benchHeap(readDump(file.c_str()));
        }
    } else if (what == "shapes" && words.size() == 1) {
        benchShapes(atoi(words[0].c_str()));
    } else {
        return usage();
    }
    return 0;
}
