package com.vandrik.runtime;

import com.vandrik.probes.triggers.EventListener;
import com.vandrik.probes.triggers.JVMExitListener;
import com.vandrik.probes.triggers.JVMStartListener;
import com.vandrik.probes.triggers.MethodListener;
import com.vandrik.probes.triggers.PolledListener;
import com.vandrik.probes.triggers.TelemetryValues;
import com.vandrik.probes.triggers.actions.Action;
import com.vandrik.probes.triggers.actions.SleepAction;
import com.vandrik.probes.triggers.actions.WaitForEventToFinishAction;
import com.vandrik.runtime.TelemetryThreadJVMTI.WaitingActions;
import java.util.List;
import java.util.Map;
import java.util.WeakHashMap;

/** The share of the telemetry thread in the triggers: it asks the listeners, once in a round. */
final class TelemetryTriggers {
    /** Of listeners whose actions have been put off. One that is replaced is forgotten. */
    private final Map<EventListener, WaitingActions> myWaiting =
            new WeakHashMap<EventListener, WaitingActions>();

    void run(int[] telec, int[] tele, long nowMs) {
        TelemetryValues.update(telec, tele, JvmFacts.get().hasBeans(), nowMs);
        for (EventListener listener : Core.ourListeners) {
            if (listener instanceof PolledListener) {
                poll((PolledListener) listener, nowMs);
            } else if (!(listener instanceof JVMExitListener ||
                         listener instanceof JVMStartListener ||
                         listener instanceof MethodListener)) {
                throw new IllegalStateException("unexpected listener class: " +
                                                listener.getClass());
            }
        }
    }

    private void poll(PolledListener listener, long nowMs) {
        listener.observe(nowMs);
        WaitingActions waiting = myWaiting.isEmpty() ? null : myWaiting.get(listener);
        if (waiting != null) {
            if (nowMs >= waiting.myEndMs ||
                (waiting.myWaitsForEvent && listener.isEventFinished())) {
                myWaiting.remove(listener);
                perform(listener, waiting.myNextAction, nowMs);
            }
        } else if (!listener.isTriggerCountExceeded() && listener.shouldTrigger(nowMs)) {
            if (listener.claimTrigger()) {
                perform(listener, 0, nowMs);
            } else {
                listener.onActionsCompleted();
            }
        }
    }

    private void perform(PolledListener listener, int first, long nowMs) {
        List<Action> actions = listener.getActions();
        listener.onActionsBegin();
        for (int i = first; i < actions.size(); i++) {
            Action action = actions.get(i);
            if (action instanceof SleepAction) {
                long endMs = ((SleepAction) action).myDuration.after(Callback.getUptimeMs());
                myWaiting.put(listener, new WaitingActions(i + 1, endMs, false));
                return;
            }
            if (action instanceof WaitForEventToFinishAction) {
                WaitForEventToFinishAction wait = (WaitForEventToFinishAction) action;
                long endMs = wait.myMaxTimeToWait == null
                                     ? Long.MAX_VALUE
                                     : wait.myMaxTimeToWait.after(Callback.getUptimeMs());
                myWaiting.put(listener, new WaitingActions(i + 1, endMs, true));
                return;
            }
            Action.performSafe(action, null, null, null, null, null, null, null, null);
        }
        listener.onActionsCompleted();
    }
}
