package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.builtin.Messages;
import com.vandrik.probes.triggers.EventListener;
import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.probes.triggers.Serialization;
import com.vandrik.probes.triggers.macros.MacroProcessor;
import com.vandrik.runtime.Callback;
import com.vandrik.util.Strings;

/**
 * An action that takes its time: neither the application's threads nor the timers wait for it. What
 * comes of it is told in the log and in the table of messages, with the line of its listener.
 */
public abstract class BackgroundAction extends Action {
    private static final String CATEGORY = "Trigger";
    private static final int MAX_DETAIL = 10000;

    /** Line and name of the listener. */
    private String myOrigin = "";

    /** Called before it is put in force. */
    public final void setListener(EventListener listener) {
        myOrigin = "line " + listener.getLine() + ", " +
                   Serialization.getExternalName(listener.getClass());
    }

    protected final String getOrigin() {
        return myOrigin;
    }

    /** What has to be read of the call while it lasts; the rest may take its time. */
    protected abstract Runnable prepare(MethodCall call);

    protected abstract BackgroundQueue getQueue();

    @Override
    protected final void perform(MethodCall call) {
        final Runnable work = prepare(call);
        boolean isTaken = getQueue().add(new Runnable() {
            @Override
            public void run() {
                try {
                    work.run();
                } catch (Throwable failure) {
                    report(Strings.messageOf(failure), null);
                }
            }
        });
        if (!isTaken) {
            report("left out: too many of them wait already", null);
        }
    }

    /** The detail may be null. */
    protected final void report(String result, String detail) {
        String text = myOrigin + ", " + Serialization.getExternalName(getClass()) + ": " + result;
        String cut = detail == null ? null : MacroProcessor.cut(detail, MAX_DETAIL);
        Callback.messageToLogFile("Trigger, " + text + (cut == null ? "" : "\n" + cut));
        // Rows of the agent's own threads are left out otherwise.
        Callback.setThreadTemporaryEnabled(true);
        try {
            Messages.message(CATEGORY, text, cut);
        } finally {
            Callback.setThreadTemporaryEnabled(false);
        }
    }

    /** At the end of the JVM: what has been asked for is done, if that does not take too long. */
    public static void awaitAll(long limitMs) {
        RunCommandAction.QUEUE.awaitEmpty(limitMs);
        PostWebhookAction.awaitAllSent(limitMs);
    }

    /** Refuses a text that needs an option which the agent was not given. */
    protected static void requireOption(String option, long capability) {
        if ((Callback.getCapabilities() & capability) == 0) {
            throw new IllegalArgumentException("needs the agent's option " + option);
        }
    }
}
