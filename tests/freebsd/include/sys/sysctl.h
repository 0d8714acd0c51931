// As sysctl(3) tells it.
#pragma once

#include <sys/types.h>

#define CTL_KERN 1
#define KERN_PROC 14
#define KERN_PROC_PID 1
#define KERN_PROC_PROC 8

extern "C" int sysctl(const int* name, unsigned namelen, void* oldp, size_t* oldlenp,
                      const void* newp, size_t newlen);

extern "C" int sysctlbyname(const char* name, void* oldp, size_t* oldlenp, const void* newp,
                            size_t newlen);
