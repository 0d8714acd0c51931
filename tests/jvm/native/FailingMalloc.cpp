// Preloaded into a JVM: memory that runs out for the agent's library alone, at the call that the
// environment names. Calls are told by their return address, so the JVM and its other libraries
// keep what they ask for.
//   VDK_FAIL_FROM=n    the first call that fails, counted from 1; none without it
//   VDK_FAIL_ONCE=1    only that one; else all from there on
//   VDK_FAIL_COUNT=f   at the end the number of calls is written into this file
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <link.h>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

std::atomic<uintptr_t> ourStart{0};
std::atomic<uintptr_t> ourEnd{0};
std::atomic<long> ourCalls{0};
long ourFailFrom = 0;
bool ourFailsOnce = false;

int visitLibrary(dl_phdr_info* library, size_t, void*) {
    if (strstr(library->dlpi_name, "libvdkagent") == nullptr) {
        return 0;
    }
    for (int i = 0; i < library->dlpi_phnum; i++) {
        const ElfW(Phdr)& header = library->dlpi_phdr[i];
        if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0) {
            ourEnd = library->dlpi_addr + header.p_vaddr + header.p_memsz;
            ourStart = library->dlpi_addr + header.p_vaddr;
        }
    }
    return 1;
}

bool mustFail(void* caller) {
    const uintptr_t address = reinterpret_cast<uintptr_t>(caller);
    if (ourStart == 0 || address < ourStart || address >= ourEnd) {
        return false;
    }
    const long call = ++ourCalls;
    if (ourFailFrom == 0 || (ourFailsOnce ? call != ourFailFrom : call < ourFailFrom)) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

long numberOf(const char* variable) {
    const char* text = getenv(variable);
    return text == nullptr ? 0 : atol(text);
}

struct Setup {
    Setup() {
        ourFailFrom = numberOf("VDK_FAIL_FROM");
        ourFailsOnce = numberOf("VDK_FAIL_ONCE") != 0;
    }
    ~Setup() {
        const char* path = getenv("VDK_FAIL_COUNT");
        FILE* file = path == nullptr ? nullptr : fopen(path, "w");
        if (file != nullptr) {
            fprintf(file, "%ld\n", ourCalls.load());
            fclose(file);
        }
    }
} ourSetup;

} // namespace

extern "C" {

void* malloc(size_t size) {
    return mustFail(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    return mustFail(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    return mustFail(__builtin_return_address(0)) ? nullptr : __libc_realloc(block, size);
}

int posix_memalign(void** block, size_t alignment, size_t size) {
    if (mustFail(__builtin_return_address(0))) {
        return ENOMEM;
    }
    *block = __libc_memalign(alignment, size);
    return *block == nullptr ? ENOMEM : 0;
}

// The moment when the agent's library is there.
void* dlopen(const char* name, int flags) {
    typedef void* (*Open)(const char*, int);
    static const Open next = reinterpret_cast<Open>(dlsym(RTLD_NEXT, "dlopen"));
    void* library = next(name, flags);
    if (ourStart == 0 && name != nullptr && strstr(name, "libvdkagent") != nullptr) {
        dl_iterate_phdr(visitLibrary, nullptr);
    }
    return library;
}
}
