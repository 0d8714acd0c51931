package com.vandrik.probes.watch;

/** Threads' numbers without Thread.getId(), which a class of the application may override. */
public final class ThreadIDs {
    private static final FieldReader ID = new FieldReader("tid", Thread.class);

    private ThreadIDs() {
    }

    public static long of(Thread thread) {
        Object id = ID.read(thread);
        return id instanceof Long ? (Long) id : thread.getId();
    }
}
