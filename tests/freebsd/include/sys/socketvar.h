// The fields of a socket in the kernel's lists that src/platform reads.
#pragma once

#include <sys/types.h>

struct xsocket {
    unsigned long xso_so;
    uid_t so_uid;
};
