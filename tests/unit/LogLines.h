// What this process logs goes to a text of the test program and not into the agent's log file.
#pragma once

#include "core/ground/Logger.h"

#include <string>

inline std::string ourLogLines;

inline void collectLogLine(const char* line) {
    ourLogLines.append(line).append("\n");
}

inline const bool ourLogIsCollected = (Logger::setSink(collectLogLine), true);

// The lines since the last call.
inline std::string takeLog() {
    std::string lines;
    lines.swap(ourLogLines);
    return lines;
}
