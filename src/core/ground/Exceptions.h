#pragma once

// The internal error of the agent. Thrown by Logger::error alone, caught at every entry from the
// JVM.
class VDKRuntimeException {};

// A write or a growing file could not proceed for lack of disk space.
class LowDiskSpaceException {};
