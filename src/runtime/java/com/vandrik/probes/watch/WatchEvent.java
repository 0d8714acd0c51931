package com.vandrik.probes.watch;

/** A call as text, for a client. */
public final class WatchEvent {
    public final long number;
    public final long endMs;
    public final long durationNs;
    public final long threadID;
    public final String threadName;
    public final String type;
    /** Null unless known, like all below. */
    public final String objectType;
    public final String method;
    public final String signature;
    public final String object;
    public final String[] arguments;
    public final String result;
    public final String exception;
    public final StackTraceElement[] frames;

    private static final String OWN_PACKAGE = "com.vandrik.probes.watch.";
    private static final String MASKED = "***";

    WatchEvent(long number, WatchedCall call, WatchSettings settings) {
        this.number = number;
        endMs = System.currentTimeMillis();
        durationNs = call.durationNs;
        threadID = ThreadIDs.of(call.thread);
        threadName = call.thread.getName();
        type = call.type.getName();
        method = call.method;
        signature = call.signature;
        objectType = call.object == null ? null : call.object.getClass().getName();
        Values values = new Values(settings.has(WatchSettings.TO_STRING));
        Masks.Masked masked = settings.masks.of(type, method, signature);
        arguments = settings.has(WatchSettings.ARGUMENTS) ? print(call.arguments, masked, values)
                                                          : null;
        result = settings.has(WatchSettings.RESULT) && call.hasResult()
                         ? masked.result ? MASKED : values.print(call.result)
                         : null;
        object = settings.has(WatchSettings.THIS) && call.object != null
                         ? masked.object ? MASKED : values.print(call.object)
                         : null;
        exception = print(call.exception, masked, settings, values);
        frames = settings.has(WatchSettings.STACK) ? stack(settings.stackDepth) : null;
    }

    private static String[] print(Object[] arguments, Masks.Masked masked, Values values) {
        String[] texts = new String[arguments.length];
        for (int i = 0; i < texts.length; i++) {
            texts[i] = masked.hasArgument(i) ? MASKED : values.print(arguments[i]);
        }
        return texts;
    }

    private static String print(Throwable exception, Masks.Masked masked, WatchSettings settings,
                                Values values) {
        if (exception == null || !settings.has(WatchSettings.EXCEPTION)) {
            return exception == null ? null : exception.getClass().getName();
        }
        return masked.exception ? exception.getClass().getName() + ": " + MASKED
                                : values.printException(exception);
    }

    /** From the watched method on. */
    private static StackTraceElement[] stack(int depth) {
        StackTraceElement[] all = new Throwable().getStackTrace();
        int first = 0;
        while (first < all.length && all[first].getClassName().startsWith(OWN_PACKAGE)) {
            first++;
        }
        StackTraceElement[] frames = new StackTraceElement[Math.min(depth, all.length - first)];
        System.arraycopy(all, first, frames, 0, frames.length);
        return frames;
    }
}
