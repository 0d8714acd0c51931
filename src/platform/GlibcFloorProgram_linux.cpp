// The rest of the floor under the C library, for programs of ours: their start, and what their
// libraries call.
#include "platform/OldSymbol_linux.h"

#include <stddef.h>

// What SQLite calls: moved into libc with 2.34, or rounding better since 2.29.
VDK_OLD_VERSION(pthread_mutex_trylock, "GLIBC_2.2.5");
VDK_OLD_VERSION(dlclose, "GLIBC_2.2.5");
VDK_OLD_VERSION(dlerror, "GLIBC_2.2.5");
VDK_OLD_VERSION(exp, "GLIBC_2.2.5");
VDK_OLD_VERSION(log, "GLIBC_2.2.5");
VDK_OLD_VERSION(pow, "GLIBC_2.2.5");
VDK_OLD_VERSION(fmod, "GLIBC_2.2.5");
// What the library of the HTTP parser prepares for threads: moved into libc with 2.34.
VDK_OLD_VERSION(pthread_key_create, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_key_delete, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_getspecific, "GLIBC_2.2.5");
VDK_OLD_VERSION(pthread_setspecific, "GLIBC_2.2.5");

typedef void (*StartFunction)(int count, char** arguments, char** environment);
typedef int (*MainFunction)(int count, char** arguments, char** environment);

extern "C" {
// Made by the linker and the compiler's start files.
extern StartFunction __init_array_start[];
extern StartFunction __init_array_end[];
void _init();

int vdk_old_libc_start_main(MainFunction main, int count, char** arguments,
                            void (*initialize)(int, char**, char**), void (*finish)(),
                            void (*unload)(), void* stackEnd);
}

__asm__(".symver vdk_old_libc_start_main, __libc_start_main@GLIBC_2.2.5");

namespace {

// What programs brought along themselves before 2.34, whose start files count on the library for
// it.
void runInitializers(int count, char** arguments, char** environment) {
    _init();
    for (StartFunction* function = __init_array_start; function != __init_array_end; function++) {
        (*function)(count, arguments, environment);
    }
}

} // namespace

// Of another version since 2.34: the old one calls only what it is given.
extern "C" int __libc_start_main(MainFunction main, int count, char** arguments,
                                 void (*)(int, char**, char**), void (*)(), void (*unload)(),
                                 void* stackEnd) {
    return vdk_old_libc_start_main(main, count, arguments, runInitializers, nullptr, unload,
                                   stackEnd);
}
