// As kvm_open(3), kvm_getprocs(3) and kvm_getargv(3) tell it.
#pragma once

#include <sys/types.h>

struct kinfo_proc;
typedef struct __kvm kvm_t;

extern "C" {
kvm_t* kvm_openfiles(const char* execfile, const char* corefile, const char* swapfile, int flags,
                     char* errbuf);
kinfo_proc* kvm_getprocs(kvm_t* kd, int op, int arg, int* cnt);
char** kvm_getargv(kvm_t* kd, const kinfo_proc* p, int nchr);
int kvm_close(kvm_t* kd);
}
