package com.vandrik.probes.watch;

/** One call that has ended, as the callback got it. Lives as long as the callback. */
final class WatchedCall {
    final Class<?> type;
    final String method;
    final String signature;
    final Object object;
    /** Null unless the watch needs them, like the object. */
    final Object[] arguments;
    final Object result;
    final Throwable exception;
    final long durationNs;
    final Thread thread;

    WatchedCall(Class<?> type, String method, String signature, Object object, Object[] arguments,
                Object result, Throwable exception, long durationNs, Thread thread) {
        this.type = type;
        this.method = method;
        this.signature = signature;
        this.object = object;
        this.arguments = arguments;
        this.result = result;
        this.exception = exception;
        this.durationNs = durationNs;
        this.thread = thread;
    }

    boolean hasResult() {
        return exception == null && !signature.endsWith(")V");
    }
}
