#include "client/commands/CommandLine.h"
#include "client/console/Signals.h"

#include <iostream>
#include <unistd.h>

int main(int argc, char** argv) {
    vdk::installSignalHandlers();
    vdk::Console console(std::cout, std::cerr, isatty(STDOUT_FILENO) == 1,
                         isatty(STDERR_FILENO) == 1);
    return vdk::runClient({argv + 1, argv + argc}, console);
}
