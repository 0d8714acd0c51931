// As unix(4) tells of LOCAL_PEERCRED.
#pragma once

#include <sys/types.h>

#define SOL_LOCAL 0
#define LOCAL_PEERCRED 1

struct xucred {
    unsigned cr_version;
    uid_t cr_uid;
    pid_t cr_pid;
};
