// The client's program inside this process.
#pragma once

#include "client/commands/CommandLine.h"

#include <sstream>
#include <string>
#include <vector>

struct Outcome {
    int code;
    std::string out, err;
};

inline Outcome client(const std::vector<std::string>& arguments) {
    std::ostringstream out, err;
    vdk::Console console(out, err, false, false);
    int code = vdk::runClient(arguments, console);
    return {code, out.str(), err.str()};
}
