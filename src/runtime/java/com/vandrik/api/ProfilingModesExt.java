package com.vandrik.api;

/** The single bits behind {@link ProfilingModes}. Keep in sync with core/ground/Globals.h. */
public interface ProfilingModesExt extends ProfilingModes {
    long ALLOCATION_RECORDING_BIT = 2;
    long CPU_TIMES_BIT = 4;
    long CPU_COUNTS_BIT = 8;
    long CPU_J2EE_BIT = 32;
    long MONITORS_BIT = 128;
    long INTERNAL_ERROR_BIT = 256;

    /** All bits of CPU profiling. */
    long CPU_PROFILING = CPU_TIMES_BIT | CPU_COUNTS_BIT | CPU_J2EE_BIT;
}
