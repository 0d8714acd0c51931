package com.vandrik.runtime;

import com.vandrik.probes.triggers.EventListener;
import com.vandrik.probes.triggers.ExceptionListener;
import com.vandrik.probes.triggers.JVMExitListener;
import com.vandrik.probes.triggers.JVMStartListener;
import com.vandrik.probes.triggers.MethodListener;
import com.vandrik.probes.triggers.PolledListener;
import com.vandrik.probes.triggers.Serialization;
import com.vandrik.probes.triggers.actions.Action;
import com.vandrik.probes.triggers.actions.BackgroundAction;
import com.vandrik.util.Strings;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.TreeSet;

/**
 * Puts listeners in force and takes them out. Loaded with the first text that names a listener:
 * Core tells what is in force without it.
 */
final class Triggers {
    /** What has been begun by then may take so long. */
    private static final long EXIT_LIMIT_MS = 3000;

    private Triggers() {
    }

    /** The listeners of a text that may be put in force. Fails with a text for the user. */
    static EventListener[] parse(String text) {
        EventListener[] listeners = EventListener.parse(text);
        for (MethodListener listener : getMethodListeners(listeners)) {
            String failure = listener.getPatternFailure();
            if (failure != null) {
                throw new IllegalArgumentException("line " + listener.getLine() +
                                                   ": MethodListener, methodPattern: " + failure);
            }
        }
        for (EventListener listener : listeners) {
            for (Action action : listener.getActions()) {
                if (action instanceof BackgroundAction) {
                    ((BackgroundAction) action).setListener(listener);
                }
            }
        }
        return listeners;
    }

    /**
     * Replaces the listeners in force, or adds to them. Whatever fails leaves all as it was. A
     * class goes from the old probes to the new ones in one step, so that each call is an event of
     * either.
     */
    static void put(EventListener[] added, boolean append, boolean flag) {
        EventListener[] old = Core.ourListeners;
        List<MethodListener> replaced =
                append ? new ArrayList<MethodListener>() : getMethodListeners(old);
        List<MethodListener> methods = getMethodListeners(added);
        registerProbes(methods, flag);
        Core.ourListeners = append ? join(old, added) : added;
        if (!methods.isEmpty() || !replaced.isEmpty()) {
            unregisterProbes(replaced);
        }
        for (MethodListener listener : replaced) {
            listener.end();
        }
        if (hasExceptionListener(old) || hasExceptionListener(added)) {
            ExceptionListener.listenersChanged();
        }
        tellOfDeadListeners(added);
    }

    private static boolean hasExceptionListener(EventListener[] listeners) {
        for (EventListener listener : listeners) {
            if (listener instanceof ExceptionListener) {
                return true;
            }
        }
        return false;
    }

    private static EventListener[] join(EventListener[] first, EventListener[] second) {
        EventListener[] all = new EventListener[first.length + second.length];
        System.arraycopy(first, 0, all, 0, first.length);
        System.arraycopy(second, 0, all, first.length, second.length);
        return all;
    }

    /** Those that do anything at all. */
    private static List<MethodListener> getMethodListeners(EventListener[] listeners) {
        List<MethodListener> methods = new ArrayList<MethodListener>();
        for (EventListener listener : listeners) {
            if (listener instanceof MethodListener && !listener.getActions().isEmpty()) {
                methods.add((MethodListener) listener);
            }
        }
        return methods;
    }

    private static void registerProbes(List<MethodListener> methods, boolean flag) {
        if (methods.isEmpty()) {
            return;
        }
        byte[][] classes = new byte[methods.size()][];
        for (int i = 0; i < classes.length; i++) {
            classes[i] = methods.get(i).generateProbeByTemplate(++Core.ourTemplateNumber);
        }
        boolean complete = false;
        try {
            String failure = Callback.registerProbesByBytecode(classes, false, flag);
            if (failure != null) {
                throw new IllegalArgumentException(failure.trim());
            }
            for (MethodListener listener : methods) {
                listener.fillProbeClass();
            }
            complete = true;
        } catch (ReflectiveOperationException e) {
            throw new IllegalStateException(Strings.messageOf(e), e);
        } finally {
            if (!complete) {
                unregisterProbes(methods);
            }
        }
    }

    /** All classes follow what has changed, new probes too. */
    private static void unregisterProbes(List<MethodListener> methods) {
        String[] names = new String[methods.size()];
        for (int i = 0; i < names.length; i++) {
            names[i] = methods.get(i).getProbeClass();
        }
        try {
            Callback.unregisterProbes(names);
        } catch (Throwable e) {
            Core.logIfMemoryAllows("Probes of earlier triggers stay: ", e);
        }
    }

    private static void tellOfDeadListeners(EventListener[] listeners) {
        if (Callback.getTelemetryPeriodMs() > 0) {
            return;
        }
        Set<String> kinds = new TreeSet<String>();
        for (EventListener listener : listeners) {
            if (listener instanceof PolledListener) {
                kinds.add(Serialization.getExternalName(listener.getClass()));
            }
        }
        if (!kinds.isEmpty()) {
            Callback.messageToLogFile("telemetryperiod=0: these listeners never fire: " + kinds);
        }
    }

    /** The agent has started. */
    static void runOnStart() {
        for (EventListener listener : Core.ourListeners) {
            if (listener instanceof JVMStartListener) {
                runAll(listener);
            }
        }
    }

    /** The JVM ends. */
    static void runOnExit() {
        for (EventListener listener : Core.ourListeners) {
            if (listener instanceof JVMExitListener) {
                runAll(listener);
            }
        }
        BackgroundAction.awaitAll(EXIT_LIMIT_MS);
    }

    private static void runAll(EventListener listener) {
        try {
            if (!listener.claimTrigger()) {
                return;
            }
            for (Action action : listener.getActions()) {
                Action.performSafe(action, null, null, null, null, null, null, null, null);
            }
            listener.onActionsCompleted();
        } catch (Throwable e) {
            Core.logIfMemoryAllows("Trigger failed: ", e);
        }
    }
}
