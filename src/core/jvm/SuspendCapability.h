#pragma once

// SuspendCapability: the right to suspend threads belongs to one JVMTI environment at a time. Held
// from start on it would keep a debugger, whichever comes first on the command line, from starting,
// and with it the JVM. So on JVMs that give it in the live phase it is taken when a snapshot needs
// it and given back afterwards. Caller holds ourLock in both operations.
class SuspendCapability {
public:
    // True when this JVM is asked for the capability only when it is needed: all but the two
    // families that give it at load alone.
    static bool isTakenOnDemand();

    // True when threads may be suspended from now on. False: another environment holds the
    // capability, or the JVM has none; then CAPABILITY_CANNOT_SUSPEND is set, and the caller goes
    // on without suspending.
    static bool acquire();

    // Gives back what acquire took. To be called after the last thread was resumed.
    static void release();
};
