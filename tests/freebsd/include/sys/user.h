// The fields of kinfo_proc that src/platform reads; see kvm_getprocs(3).
#pragma once

#include <sys/time.h>
#include <sys/types.h>

#define SZOMB 5

struct kinfo_proc {
    pid_t ki_pid;
    uid_t ki_uid;
    long ki_rssize; // pages
    char ki_stat;
    timeval ki_start;
};
