// What FreeBSD has beside the host's: the clock of one thread, as pthread_getcpuclockid(3) makes
// it.
#pragma once

#include_next <sys/time.h>
#include <sys/types.h>

#define CPUCLOCK_WHICH_PID 0
#define CPUCLOCK_WHICH_TID 1

extern "C" int clock_getcpuclockid2(id_t id, int which, clockid_t* clock_id);
