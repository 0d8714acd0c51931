package com.vandrik.api;

/** What can be recorded, as bits of the status that a client reads and of the modes it asks for. */
public interface ProfilingModes {
    long ALLOCATION_RECORDING = 2;
    long CPU_SAMPLING = 4;
    long CPU_TRACING = 12;
    long CPU_J2EE = 32;
    long MONITORS = 128;
    long STACK_TELEMETRY = 512;
    long EXCEPTION_TELEMETRY = 1024;
}
