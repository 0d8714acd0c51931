#include "client/console/Signals.h"

#include "client/console/Errors.h"

#include <csignal>
#include <ctime>
#include <unistd.h>

namespace vdk {

static volatile sig_atomic_t signalCount = 0;
static sig_atomic_t forgotten = 0;
static void (*volatile lastAction)() = nullptr;

static const int handledSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ};
static const int handledCount = sizeof(handledSignals) / sizeof(handledSignals[0]);
static struct sigaction formerActions[handledCount];
static bool installed = false;

static void onSignal(int) {
    signalCount = signalCount + 1;
    if (signalCount > 1) {
        if (lastAction) {
            lastAction();
        }
        _exit(static_cast<int>(ExitCode::Aborted));
    }
}

void installSignalHandlers() {
    struct sigaction action = {};
    for (int i = 0; i < handledCount; i++) {
        // No SA_RESTART: a wait must end. A vanished reader and a file at its limit show as a
        // failed write, after which the temporary file goes.
        bool isOfAWrite = handledSignals[i] == SIGPIPE || handledSignals[i] == SIGXFSZ;
        action.sa_handler = isOfAWrite ? SIG_IGN : onSignal;
        sigaction(handledSignals[i], &action, &formerActions[i]);
        // nohup wants the command to go on when its terminal goes.
        if (handledSignals[i] == SIGHUP && formerActions[i].sa_handler == SIG_IGN) {
            sigaction(SIGHUP, &formerActions[i], nullptr);
        }
    }
    installed = true;
}

void restoreSignalHandlers() {
    for (int i = 0; installed && i < handledCount; i++) {
        sigaction(handledSignals[i], &formerActions[i], nullptr);
    }
    installed = false;
}

void atSecondSignal(void (*action)()) {
    lastAction = action;
}

bool isInterrupted() {
    return signalCount > forgotten;
}

void forgetInterrupt() {
    forgotten = signalCount;
}

void restartInterrupts() {
    signalCount = 0;
    forgotten = 0;
}

void throwIfInterrupted() {
    if (isInterrupted()) {
        throw ClientError(ExitCode::Aborted, "aborted", "interrupted");
    }
}

bool sleepUnlessInterrupted(long milliseconds) {
    timespec left = {milliseconds / 1000, (milliseconds % 1000) * 1000000};
    while (!isInterrupted()) {
        if (nanosleep(&left, &left) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace vdk
