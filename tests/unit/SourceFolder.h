// The checkout that this test was built from, for tests that hold its files against each other.
#pragma once

#include <cstdlib>
#include <string>

inline std::string sourceFolder() {
    const char* told = getenv("VDK_SOURCE_FOLDER"); // set by the test runner
    if (told != nullptr) {
        return told;
    }
    std::string path = __FILE__;
    const size_t end = path.rfind("/tests/unit/");
    return end == std::string::npos ? "." : path.substr(0, end);
}
