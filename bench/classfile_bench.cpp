// Reads, rewrites and writes the classes of a bundle (tests/support/ExtractClasses.java), single
// threaded, and prints MB/s and classes/s in thread CPU time.
//   classfile_bench <bundle> [rounds] [row]
// With a row, 0 to 3, only that one runs, for a profiler. Heap calls of the C++ runtime are counted
// by the operators below. bench/classfile_asm.sh runs it beside the same work done with ASM.

#include "instrument/TracingInstrumentation.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

namespace {
long ourHeapCalls = 0;
} // namespace

void* operator new(size_t bytes) {
    ourHeapCalls++;
    void* const memory = malloc(bytes);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new[](size_t bytes) {
    return operator new(bytes);
}
void operator delete(void* memory) noexcept {
    free(memory);
}
void operator delete[](void* memory) noexcept {
    free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    free(memory);
}
void operator delete[](void* memory, size_t) noexcept {
    free(memory);
}

namespace {

struct Entry {
    const unsigned char* bytes;
    int length;
};

class CountingIds : public MethodIds {
public:
    int getMethodId(const Utf8View&, const Utf8View&, const Utf8View&) override { return ++last; }
    void methodInstrumented(int) override {}

private:
    int last = 0;
};

double threadSeconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

unsigned number(const std::string& file, size_t at, int bytes) {
    unsigned value = 0;
    for (int i = 0; i < bytes; i++) {
        value = value << 8 | static_cast<unsigned char>(file[at + static_cast<size_t>(i)]);
    }
    return value;
}

enum Work { COPY, ENCODE, INSERT_CALLS, INSERT_ALL };

long rewrite(const Entry& entry, Work work, MethodIds* ids) {
    DataInput input(entry.bytes, entry.length);
    ClassFile classFile(input);
    if (work == ENCODE) {
        classFile.encodeEverything();
    } else if (work >= INSERT_CALLS && (classFile.getAccessFlags() & ACC_INTERFACE) == 0) {
        const CallSet wanted =
            work == INSERT_ALL ? TRACING_CALLS.with(ALLOCATION_CALLS) : TRACING_CALLS;
        instrumentForTracingAndAllocation(
            &classFile,
            callsOfClass(wanted, classFile.getSignature(), classFile.getSuperClassSignature()), ids,
            false, nullptr);
    }
    static ZVector<unsigned char> bytes(1 << 17);
    bytes.clear();
    DataOutput output(bytes);
    classFile.writeClass(output);
    return bytes.getSize();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s <bundle> [rounds]\n", argv[0]);
        return 2;
    }
    std::ifstream stream(argv[1], std::ios::binary);
    const std::string file((std::istreambuf_iterator<char>(stream)),
                           std::istreambuf_iterator<char>());
    const int rounds = argc > 2 ? atoi(argv[2]) : 5;
    std::vector<Entry> entries;
    double megabytes = 0;
    for (size_t at = 0; at + 6 <= file.size();) {
        at += 2 + number(file, at, 2);
        const unsigned length = number(file, at, 4);
        entries.push_back({reinterpret_cast<const unsigned char*>(file.data()) + at + 4,
                           static_cast<int>(length)});
        at += 4 + length;
        megabytes += length / 1e6;
    }
    Logger::setSink([](const char*) {});
    static const char* const NAMES[] = {
        "parse, write (unchanged parts copied)", "parse, write (everything encoded anew)",
        "parse, insert entry and exit, write", "parse, insert entry, exit, allocations, write"};
    printf("%zu classes, %.1f MB\n", entries.size(), megabytes);
    const int first = argc > 3 ? atoi(argv[3]) : COPY;
    const int last = argc > 3 ? first : INSERT_ALL;
    for (int work = first; work <= last; work++) {
        double best = 1e9;
        long written = 0;
        long heapCalls = 0;
        long most = 0;
        for (int round = 0; round < rounds; round++) {
            CountingIds ids;
            written = 0;
            heapCalls = ourHeapCalls;
            const double start = threadSeconds();
            for (const Entry& entry : entries) {
                const long before = ourHeapCalls;
                written += rewrite(entry, static_cast<Work>(work), &ids);
                most = ourHeapCalls - before > most ? ourHeapCalls - before : most;
            }
            const double seconds = threadSeconds() - start;
            best = seconds < best ? seconds : best;
            heapCalls = ourHeapCalls - heapCalls;
        }
        const double classes = static_cast<double>(entries.size());
        printf("%-46s %7.1f MB/s %9.0f classes/s %6.2f us/class  (writes %.1f MB; heap calls per "
               "class %.1f, at most %ld)\n",
               NAMES[work], megabytes / best, classes / best, best / classes * 1e6,
               static_cast<double>(written) / 1e6, static_cast<double>(heapCalls) / classes, most);
    }
    return 0;
}
