package com.vandrik.probes.watch;

import com.vandrik.runtime.Callback;
import com.vandrik.util.Strings;

/** What a client wants of a watch, checked. */
public final class WatchSettings {
    // Keep in sync with client/agent/Protocol.h.
    static final int ARGUMENTS = 1;
    static final int RESULT = 2;
    static final int THIS = 4;
    static final int EXCEPTION = 8;
    static final int STACK = 16;
    static final int TO_STRING = 32;
    static final int SUMS = 64;
    private static final int ALL_FLAGS = 127;

    private static final int DEFAULT_ROOM = 1024;
    private static final int MOST_ROOM = 16384;
    private static final int DEFAULT_DEPTH = 64;
    private static final int MOST_DEPTH = 1024;
    private static final int DEFAULT_LEASE_MS = 10000;
    private static final int SHORTEST_LEASE_MS = 1000;
    private static final int LONGEST_LEASE_MS = 600000;
    private static final int LONGEST_TEXT = 65535 / 3;

    final String pattern;
    final String instanceOf;
    final long shortestNs;
    final long mostEvents;
    final int room;
    final int stackDepth;
    final int leaseMs;
    /** Null: all calls. */
    final Condition where;
    final Masks masks;

    private final int myFlags;

    /** Throws an IllegalArgumentException with a text for the user. */
    public WatchSettings(String pattern, String instanceOf, int flags, long shortestNs,
                         long mostEvents, int room, int stackDepth, int leaseMs, String where,
                         String masks) {
        this.pattern = completed(pattern);
        this.instanceOf = Strings.isEmpty(instanceOf) ? "" : instanceOf.trim();
        myFlags = flags;
        check("flags", flags, 0, ALL_FLAGS);
        this.shortestNs = check("shortest time", shortestNs, 0, Long.MAX_VALUE);
        this.mostEvents = check("number of events", mostEvents, 0, Long.MAX_VALUE);
        this.room = (int) check("room for events", orDefault(room, DEFAULT_ROOM), 1, MOST_ROOM);
        this.stackDepth =
                (int) check("depth of stacks", orDefault(stackDepth, DEFAULT_DEPTH), 1, MOST_DEPTH);
        this.leaseMs = (int) check("lease", orDefault(leaseMs, DEFAULT_LEASE_MS), SHORTEST_LEASE_MS,
                                   LONGEST_LEASE_MS);
        checkTexts();
        this.where = Strings.isEmpty(where) ? null : new ConditionParser(where).parse();
        this.masks = new Masks(masks);
    }

    private void checkTexts() {
        String failure = Callback.validateMethodPattern(pattern);
        if (!Strings.isEmpty(failure)) {
            throw new IllegalArgumentException(failure);
        }
        if (pattern.length() > LONGEST_TEXT || instanceOf.length() > LONGEST_TEXT) {
            throw new IllegalArgumentException("the pattern is too long");
        }
        for (int i = 0; i < instanceOf.length(); i++) {
            char c = instanceOf.charAt(i);
            if (c != '.' && !Character.isJavaIdentifierPart(c)) {
                throw new IllegalArgumentException("not the name of a class: " + instanceOf);
            }
        }
    }

    /** A pattern without parameters takes any. */
    static String completed(String pattern) {
        String text = pattern.trim();
        return text.indexOf('(') < 0 && text.indexOf(':') > 0 ? text + "(*)" : text;
    }

    private static int orDefault(int value, int byDefault) {
        return value == 0 ? byDefault : value;
    }

    private static long check(String what, long value, long least, long most) {
        if (value < least || value > most) {
            throw new IllegalArgumentException("the " + what + " of a watch must be " + least +
                                               " to " + most + ", not " + value);
        }
        return value;
    }

    boolean has(int flag) {
        return (myFlags & flag) != 0;
    }

    private boolean shows(int flag) {
        return has(flag) && !has(SUMS);
    }

    private boolean asksFor(int operand) {
        return where != null && (where.operands() & operand) != 0;
    }

    boolean needsThis() {
        return shows(THIS) || asksFor(Condition.THIS);
    }

    boolean needsArguments() {
        return shows(ARGUMENTS) || asksFor(Condition.ARGUMENTS);
    }

    boolean needsResult() {
        return shows(RESULT) || asksFor(Condition.RESULT);
    }
}
