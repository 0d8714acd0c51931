// strerror_r(3) is the standard's there, not the host library's own.
#pragma once

#include_next <string.h>

extern "C" int vdk_freebsd_strerror_r(int error, char* buffer, size_t size);
#define strerror_r vdk_freebsd_strerror_r
