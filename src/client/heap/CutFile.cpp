#include "client/heap/CutFile.h"

#include "client/console/Errors.h"
#include "heapfile/MappedRanges.h"

#include <csignal>
#include <cstring>
#include <unistd.h>

namespace vdk {

static struct sigaction formerAction;

static void say(const char* text) {
    // Nothing to be done about a standard error that takes no more.
    if (write(STDERR_FILENO, text, strlen(text)) < 0) {
        return;
    }
}

// Of a mapping's missing pages the handler can't return: the instruction would fault again.
static void atBusError(int number, siginfo_t* info, void*) {
    const char* path = info->si_code == BUS_ADRERR ? mappedFileAt(info->si_addr) : nullptr;
    if (path == nullptr) {
        sigaction(number, &formerAction, nullptr);
        return;
    }
    say("\nvdk: ");
    say(path);
    say(" was cut while it was read\n");
    _exit(int(ExitCode::BadInput));
}

void endAtCutFiles() {
    static const bool installed = [] {
        struct sigaction action = {};
        action.sa_sigaction = atBusError;
        action.sa_flags = SA_SIGINFO;
        return sigaction(SIGBUS, &action, &formerAction) == 0;
    }();
    (void)installed;
}

} // namespace vdk
