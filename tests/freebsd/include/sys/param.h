// The release that is compiled for.
#pragma once

#include_next <sys/param.h>

#define __FreeBSD_version 1400000
