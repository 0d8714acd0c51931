// The floor under the C library: what lets the agent load on glibc 2.17 and `vdk` run on 2.28,
// built on any newer system. Linked into these two only, never under a sanitizer, whose runtime
// brings its own.
//
// A linker binds to the newest version of a function that the building system has; each name
// defined here, hidden, takes its place, also for the objects of the static C++ runtime:
// - functions whose version is new while they did not change jump to the old one;
// - functions that an old library lacks are made from what it has.
// tests/exports/check tells which name asks for more than the floor; it then needs a row or a
// function here.
#include "platform/OldSymbol_linux.h"

#include <dlfcn.h>
#include <elf.h>
#include <errno.h>
#include <link.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/syscall.h>
#include <unistd.h>

// Moved from libpthread into libc with 2.34.
VDK_OLD_VERSION(pthread_create, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_join, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_detach, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_once, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_mutexattr_init, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_mutexattr_settype, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_mutexattr_destroy, "GLIBC_2.2.5");
VDK_OLD_VERSION(__pthread_key_create, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_attr_getstack, "GLIBC_2.2.5");
VDK_OLD_VERSION(sem_init, "GLIBC_2.2.5");
VDK_OLD_VERSION(sem_post, "GLIBC_2.2.5");
VDK_OLD_VERSION(sem_timedwait, "GLIBC_2.2.5");
// Moved from libdl at the same time.
VDK_OLD_VERSION(dlsym, "GLIBC_2.2.5");
VDK_OLD_VERSION(dladdr, "GLIBC_2.2.5");
VDK_OLD_VERSION(dlopen, "GLIBC_2.2.5");
// With 2.32.
VDK_OLD_VERSION(pthread_sigmask, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_getattr_np, "GLIBC_2.2.5");

// Not from <sys/stat.h>, whose functions would be other ones on an old system.
struct stat;
extern "C" {
int __xstat(int version, const char* path, struct stat* status);
int __fxstat(int version, int fd, struct stat* status);
int __lxstat(int version, const char* path, struct stat* status);
int __fxstatat(int version, int folder, const char* path, struct stat* status, int flags);
}

namespace {

// _STAT_VER of this processor.
const int STAT_VERSION = 1;

} // namespace

// Hidden, as all of the project is: nobody else's calls come here.
extern "C" {

// Functions of their own since 2.33.
int stat(const char* path, struct stat* status) {
    return __xstat(STAT_VERSION, path, status);
}

int fstat(int fd, struct stat* status) {
    return __fxstat(STAT_VERSION, fd, status);
}

int fstat64(int fd, struct stat* status) {
    return __fxstat(STAT_VERSION, fd, status);
}

int lstat(const char* path, struct stat* status) {
    return __lxstat(STAT_VERSION, path, status);
}

// The same functions, as a library calls them that was compiled for large files.
int stat64(const char* path, struct stat* status) {
    return __xstat(STAT_VERSION, path, status);
}

int lstat64(const char* path, struct stat* status) {
    return __lxstat(STAT_VERSION, path, status);
}

int fstatat(int folder, const char* path, struct stat* status, int flags) {
    return __fxstatat(STAT_VERSION, folder, path, status, flags);
}

// Since 2.32. The C++ runtime counts without atomic instructions while it is true: never here.
char __libc_single_threaded = 0;

// Since 2.36; what std::random_device asks. The kernel has had the call since 3.17.
uint32_t arc4random() {
    uint32_t number = 0;
    while (syscall(SYS_getrandom, &number, sizeof(number), 0) != sizeof(number)) {
        if (errno != EINTR) {
            _exit(127); // a number that is none would be worse
        }
    }
    return number;
}

} // extern "C"

#ifdef DLFO_STRUCT_HAS_EH_DBASE

namespace {

struct ObjectSearch {
    ElfW(Addr) address;
    dl_find_object* found;
};

// The object whose segments hold the address, and where its unwind table is.
int visitObject(dl_phdr_info* object, size_t, void* context) {
    const ObjectSearch& search = *static_cast<ObjectSearch*>(context);
    bool holds = false;
    ElfW(Addr) first = UINTPTR_MAX;
    ElfW(Addr) end = 0;
    const ElfW(Phdr)* unwindTable = nullptr;
    for (int i = 0; i < object->dlpi_phnum; i++) {
        const ElfW(Phdr)& header = object->dlpi_phdr[i];
        if (header.p_type == PT_GNU_EH_FRAME) {
            unwindTable = &header;
        }
        if (header.p_type != PT_LOAD) {
            continue;
        }
        ElfW(Addr) start = object->dlpi_addr + header.p_vaddr;
        holds = holds || (search.address >= start && search.address - start < header.p_memsz);
        first = start < first ? start : first;
        end = start + header.p_memsz > end ? start + header.p_memsz : end;
    }
    if (!holds) {
        return 0;
    }
    if (unwindTable == nullptr) {
        return -1;
    }
    *search.found = dl_find_object();
    search.found->dlfo_map_start = reinterpret_cast<void*>(first);
    search.found->dlfo_map_end = reinterpret_cast<void*>(end);
    search.found->dlfo_eh_frame = reinterpret_cast<void*>(object->dlpi_addr + unwindTable->p_vaddr);
    return 1;
}

} // namespace

// Since 2.35, and all that the unwinder of that system's compiler asks to find a frame's table: one
// that only answered "not found" would end the process at the first exception.
extern "C" int _dl_find_object(void* address, dl_find_object* result) noexcept {
    ObjectSearch search = {reinterpret_cast<ElfW(Addr)>(address), result};
    return dl_iterate_phdr(visitObject, &search) == 1 ? 0 : -1;
}

#endif
