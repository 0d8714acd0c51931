// Numbers and texts of the control protocol. Keep in sync with com.vandrik.runtime.Protocol; a test
// compares the two.
#pragma once

#include <cstdint>

namespace vdk::protocol {

constexpr int64_t Magic = 123456789;
constexpr int Version = 20110815;

enum Packet : int32_t {
    PACKET_ERROR_RESP = 0,
    PACKET_OK_RESP = 1,
    PACKET_GET_STATUS_REQ = 100000,
    PACKET_START_ALLOCATION_RECORDING_REQ = 100102,
    PACKET_START_SAMPLED_ALLOCATION_RECORDING_REQ = 100150,
    PACKET_STOP_ALLOCATION_RECORDING_REQ = 100200,
    PACKET_START_CPU_PROFILING_REQ = 100300,
    PACKET_START_SAMPLING_REQ = 100325,
    PACKET_START_WALL_SAMPLING_REQ = 100350,
    PACKET_STOP_CPU_PROFILING_REQ = 100400,
    PACKET_FORCE_GC_REQ = 100500,
    PACKET_PROGRESS = 100600,
    PACKET_TRANSFER_SNAPSHOT_REQ = 101000,
    PACKET_TRANSFER_SNAPSHOT_COMPRESSED_REQ = 101001,
    PACKET_GET_JVM_THREAD_DUMP_REQ = 101300,
    PACKET_ADVANCE_GENERATION_REQ = 102301,
    PACKET_GET_AGENT_INFO_REQ = 102400,
    PACKET_START_MONITOR_PROFILING = 102600,
    PACKET_STOP_MONITOR_PROFILING = 102700,
    PACKET_PACKET_SEQUENCE_START = 103300,
    PACKET_PACKET_SEQUENCE_END = 103400,
    PACKET_UPDATE_DATABASE_TABLES = 103500,
    PACKET_GET_DATABASE_STATISTICS = 103600,
    PACKET_CLEAR_CPU_DATA = 103700,
    PACKET_CLEAR_MONITOR_DATA = 103800,
    PACKET_CLEAR_ALLOCATION_DATA = 103900,
    PACKET_CAPTURE_SNAPSHOT_REQ = 104006,
    PACKET_CLEAR_EXCEPTIONS = 104200,
    PACKET_ENABLE_EXCEPTION_TELEMETRY = 104500,
    PACKET_DISABLE_EXCEPTION_TELEMETRY = 104600,
    PACKET_UPDATE_CUSTOM_TABLE_INFO = 104700,
    PACKET_GET_PROBES = 104900,
    PACKET_SET_PROBES = 105000,
    PACKET_RETRANSFORM_CLASSES_LOADED_BEFORE_AGENT_WAS_ATTACHED = 105201,
    PACKET_REGISTER_AND_LOAD_PROBES_BY_BYTECODE = 105300,
    PACKET_GET_TRIGGERS = 105400,
    PACKET_SET_TRIGGERS = 105500,
    PACKET_FREE_UNUSED_ROWS = 105700,
    PACKET_WATCH_START = 105800,
    PACKET_WATCH_READ = 105810,
    PACKET_WATCH_STOP = 105820,
    PACKET_PREPARE_RECORDING_REQ = 105900,
    PACKET_CALLS_PROGRESS = 105910,
    PACKET_DETACH_REQ = 106000,
};

// Sizes of the compressed transfer: a chunk of the file, and the largest block on the wire.
constexpr int TRANSFER_UNCOMPRESSED_CHUNK_SIZE = 131072;
constexpr int TRANSFER_COMPRESSED_CHUNK_SIZE = 65536;

constexpr const char* INCOMPATIBLE_AGENT_MESSAGE =
    "Communication with the profiled application failed.\n"
    "The profiled application has been started with profiler agent\n"
    "incompatible with the current version of the profiler.";
constexpr const char* INCORRECT_DATA_FROM_AGENT_MESSAGE =
    "Communication with the profiled application failed.\n"
    "The agent has returned incorrect data.";
constexpr const char* INCORRECT_DATA_MESSAGE =
    "Communication failed.\nThe response contains incorrect data.";

// Bits of the status word.
struct StatusBit {
    int64_t bit;
    const char* name;
};
constexpr int64_t ALLOCATION_RECORDING_BIT = 2;
constexpr int64_t CPU_TIMES_BIT = 4;
constexpr int64_t CPU_COUNTS_BIT = 8;
constexpr int64_t J2EE_BIT = 32;
constexpr int64_t MONITORS_BIT = 128;
constexpr int64_t EXCEPTION_TELEMETRY_BIT = 1024;
// Only those of what this release does; the word has more.
constexpr StatusBit StatusBits[] = {
    {2, "allocations"},       {4, "cpu-times"},
    {8, "cpu-counts"},        {32, "j2ee"},
    {128, "monitors"},        {256, "internal-error"},
    {512, "stack-telemetry"}, {1024, "exception-telemetry"},
};

// Bits of the capability word, likewise.
constexpr int64_t ATTACHED_BIT = 0x400;
constexpr int64_t NO_EXCEPTION_EVENTS_BIT = 0x4000;
constexpr int64_t ON_DEMAND_BIT = 0x80000;
constexpr StatusBit CapabilityBits[] = {
    {0x40, "tracing"}, {0x100, "allocations"}, {0x1000, "j2ee"}};

// What a watch reports.
constexpr int32_t WATCH_ARGUMENTS = 1;
constexpr int32_t WATCH_RESULT = 2;
constexpr int32_t WATCH_THIS = 4;
constexpr int32_t WATCH_EXCEPTION = 8;
constexpr int32_t WATCH_STACK = 16;
constexpr int32_t WATCH_TO_STRING = 32;
constexpr int32_t WATCH_SUMS = 64;

// What is prepared.
constexpr int32_t RECORDING_TRACES = 1;
constexpr int32_t RECORDING_ALLOCATES = 2;

// Modes of CPU profiling; J2EE_BIT may be added.
constexpr int64_t CPU_SAMPLING = 4;
constexpr int64_t CPU_TRACING = 12;

} // namespace vdk::protocol
