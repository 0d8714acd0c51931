package com.vandrik.probes.triggers;

import com.vandrik.probes.triggers.actions.Action;
import com.vandrik.runtime.Callback;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.atomic.AtomicLong;

/** An event that a user has tied actions to, as told by a line of the trigger text. */
public abstract class EventListener extends PropertyHolder {
    public static final Class<?>[] ALL_CLASSES = {
            MethodListener.class,          TimerListener.class,
            CPUUsageListener.class,        ProcessMemoryUsageListener.class,
            HeapMemoryUsageListener.class, NonHeapMemoryUsageListener.class,
            JVMStartListener.class,        JVMExitListener.class,
            GCPauseListener.class,         DeadlockListener.class,
            RequestListener.class,         ExceptionListener.class,
    };

    public static final int NO_LIMIT = -1;

    private static final long NEVER = Long.MIN_VALUE;

    /** How often it fires at most. */
    public int myMaxTriggerCount = NO_LIMIT;

    /** Events that come sooner behind one that fired are passed over. */
    public Duration myMinimumInterval = new Duration(0, Duration.Unit.MILLISECONDS);

    private final AtomicLong myLastFiredMs = new AtomicLong(NEVER);

    private final AtomicLong myTriggerCount = new AtomicLong();

    private final List<Action> myActions = new ArrayList<Action>();

    /** Where it stands in its text, from 1 on. */
    private int myLine;

    /**
     * The listeners that a text describes. Fails with a text for the user, which tells the line.
     */
    public static EventListener[] parse(String text) {
        List<EventListener> listeners = new ArrayList<EventListener>();
        String[] lines = text.split("\n");
        for (int i = 0; i < lines.length; i++) {
            try {
                parseLine(lines[i], i + 1, listeners);
            } catch (IllegalArgumentException e) {
                throw new IllegalArgumentException("line " + (i + 1) + ": " + e.getMessage());
            }
        }
        return listeners.toArray(new EventListener[0]);
    }

    private static void parseLine(String line, int number, List<EventListener> listeners) {
        String trimmed = Serialization.trim(line);
        if (trimmed.isEmpty() || trimmed.charAt(0) == '#') {
            return;
        }
        if (!Serialization.isBlank(line.charAt(0))) {
            EventListener listener = (EventListener) Serialization.parse(trimmed, ALL_CLASSES);
            listener.myLine = number;
            listeners.add(listener);
        } else if (!listeners.isEmpty()) {
            listeners.get(listeners.size() - 1).addAction(trimmed);
        }
    }

    /** The text that the listeners were made from. */
    public static String serializeListeners(EventListener[] listeners) {
        StringBuilder text = new StringBuilder();
        for (EventListener listener : listeners) {
            text.append(Serialization.serialize(listener)).append('\n');
            listener.serializeActions(text);
        }
        return text.toString();
    }

    protected void serializeActions(StringBuilder text) {
        for (Action action : myActions) {
            appendAction(text, "", action);
        }
    }

    protected static void appendAction(StringBuilder text, String prefix, Action action) {
        text.append("  ").append(prefix).append(Serialization.serialize(action)).append('\n');
    }

    /** The action of one line, without the blanks ahead of it. */
    public void addAction(String line) {
        Action action = Action.parse(line);
        if (action.isOfMethodsOnly()) {
            throw new IllegalArgumentException(Serialization.getExternalName(action.getClass()) +
                                               " is for MethodListener only");
        }
        myActions.add(action);
    }

    public List<Action> getActions() {
        return myActions;
    }

    public int getLine() {
        return myLine;
    }

    public long getTriggerCount() {
        return myTriggerCount.get();
    }

    public boolean isTriggerCountExceeded() {
        return myMaxTriggerCount != NO_LIMIT && myTriggerCount.get() >= myMaxTriggerCount;
    }

    /** Counts an event. False, and nothing counted, for one too many or too soon. */
    public final boolean claimTrigger() {
        return !isTriggerCountExceeded() && claimMoment() && claimCount();
    }

    private boolean claimMoment() {
        long intervalMs = myMinimumInterval.toMilliseconds();
        if (intervalMs == 0) {
            return true;
        }
        long nowMs = Callback.getUptimeMs();
        long lastMs = myLastFiredMs.get();
        return (lastMs == NEVER || nowMs - lastMs >= intervalMs) &&
                myLastFiredMs.compareAndSet(lastMs, nowMs);
    }

    private boolean claimCount() {
        if (myMaxTriggerCount == NO_LIMIT) {
            myTriggerCount.incrementAndGet();
            return true;
        }
        for (long count = myTriggerCount.get(); count < myMaxTriggerCount;
             count = myTriggerCount.get()) {
            if (myTriggerCount.compareAndSet(count, count + 1)) {
                return true;
            }
        }
        return false;
    }

    /** Called behind the last action of an event. */
    public void onActionsCompleted() {
    }

    @Override
    protected void check() {
        if (myMaxTriggerCount < NO_LIMIT) {
            throw new IllegalArgumentException("maxTriggerCount is less than -1: " +
                                               myMaxTriggerCount);
        }
    }
}
