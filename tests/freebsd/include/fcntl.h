// What open(2) has there beside the host's.
#pragma once

#include_next <fcntl.h>

#define O_RESOLVE_BENEATH 0x00800000
