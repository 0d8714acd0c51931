package com.vandrik.probes.triggers;

/** A length of time as the trigger text writes it: a number and the postfix of its unit. */
public final class Duration {
    /** The unit's names and postfixes; the postfix "s" is the end of "ms", which so comes first. */
    public enum Unit {
        MILLISECONDS("ms", 1),
        SECONDS("s", 1000),
        MINUTES("m", 60 * 1000),
        HOURS("h", 60 * 60 * 1000);

        public final String myPostfix;
        private final long myMilliseconds;

        Unit(String postfix, long milliseconds) {
            myPostfix = postfix;
            myMilliseconds = milliseconds;
        }
    }

    private final long myValue;
    private final Unit myUnit;

    public Duration(long value, Unit unit) {
        if (value < 0) {
            throw new IllegalArgumentException("negative duration: " + value + unit.myPostfix);
        }
        myValue = value;
        myUnit = unit;
    }

    public static Duration parse(String text) {
        int end = 0;
        while (end < text.length() && isOfNumber(text.charAt(end), end)) {
            end++;
        }
        String postfix = text.substring(end);
        for (Unit unit : Unit.values()) {
            if (postfix.equals(unit.myPostfix)) {
                return new Duration(parseNumber(text.substring(0, end)), unit);
            }
        }
        throw new IllegalArgumentException("wrong duration postfix: " + postfix);
    }

    static long parseNumber(String text) {
        try {
            return Long.parseLong(text);
        } catch (NumberFormatException e) {
            throw new IllegalArgumentException("wrong number: " + text);
        }
    }

    private static boolean isOfNumber(char c, int position) {
        return c >= '0' && c <= '9' || c == '-' && position == 0;
    }

    /** The largest long where it is more. */
    public long toMilliseconds() {
        return myValue > Long.MAX_VALUE / myUnit.myMilliseconds ? Long.MAX_VALUE
                                                                : myValue * myUnit.myMilliseconds;
    }

    public long getValue() {
        return myValue;
    }

    public Unit getUnit() {
        return myUnit;
    }

    /** The moment that is this long after another. */
    public long after(long momentMs) {
        long lengthMs = toMilliseconds();
        return lengthMs > Long.MAX_VALUE - momentMs ? Long.MAX_VALUE : momentMs + lengthMs;
    }

    @Override
    public boolean equals(Object other) {
        return other instanceof Duration && ((Duration) other).myValue == myValue &&
                ((Duration) other).myUnit == myUnit;
    }

    @Override
    public int hashCode() {
        return (int) myValue * 31 + myUnit.ordinal();
    }

    @Override
    public String toString() {
        return myValue + myUnit.myPostfix;
    }
}
