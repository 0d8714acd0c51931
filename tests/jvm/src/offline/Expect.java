package offline;

/** What the cases say of results and failures. */
final class Expect {
    private Expect() {
    }

    static void check(boolean condition, String what) {
        if (!condition) {
            throw new AssertionError(what);
        }
    }

    static void same(long expected, long actual, String what) {
        check(expected == actual, what + ": expected " + expected + ", was " + actual);
    }

    /** The message of the RuntimeException that the code must throw. */
    static String thrownBy(Runnable code) {
        try {
            code.run();
        } catch (RuntimeException e) {
            check(e.getClass() == RuntimeException.class, "class of " + e);
            return e.getMessage();
        }
        throw new AssertionError("nothing was thrown");
    }

    static void throwsInternal(Runnable code) {
        String message = thrownBy(code);
        check("assertion failed in native code; see agent log for detail".equals(message), message);
    }
}
