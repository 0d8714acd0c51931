// Ctrl-C, SIGTERM and SIGHUP: the first ends waits in an orderly way, the second ends the program.
// A SIGHUP that was ignored at the start (nohup) stays so.
#pragma once

namespace vdk {

// Installs the handlers. Only the program calls this, not the library's users.
void installSignalHandlers();

// Puts back what was in force before installSignalHandlers: a program started in this one's place
// inherits ignored signals.
void restoreSignalHandlers();

// What the second signal does ahead of ending the program, from within its handler; null for
// nothing.
void atSecondSignal(void (*action)());

bool isInterrupted();

// Forgets a signal that has come, so that the work of ending can wait for answers again. A second
// signal ends the program all the same.
void forgetInterrupt();

// A signal that has come ended what it was meant to end: the next one is a first one again.
void restartInterrupts();

// Throws ClientError (Aborted) once a signal has come.
void throwIfInterrupted();

// Sleeps, but ends early at a signal; true if the whole time has passed.
bool sleepUnlessInterrupted(long milliseconds);

} // namespace vdk
