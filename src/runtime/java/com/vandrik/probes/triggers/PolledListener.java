package com.vandrik.probes.triggers;

/** A listener that the telemetry thread asks once in a round whether its event has come. */
public abstract class PolledListener extends EventListener {
    /** Called in each round, also while actions of an earlier event wait. */
    public void observe(long uptimeMs) {
    }

    /** Called before actions of an event run, and before those that have waited. */
    public void onActionsBegin() {
    }

    /** Asked anew for each event; not while actions of an earlier one wait. */
    public abstract boolean shouldTrigger(long uptimeMs);

    /** Whether the event is over for which an action waits. */
    public boolean isEventFinished() {
        return true;
    }
}
