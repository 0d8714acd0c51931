package jvmtest;

import java.util.concurrent.Callable;
import java.util.concurrent.TimeUnit;
import java.util.function.Supplier;

/** Assertions whose failure names what was seen and what was expected. */
public final class Check {
    /** How long whatever is waited for may take: far more than it does, so only a hang fails. */
    public static final int LIMIT_SECONDS = 300;

    private Check() {
    }

    public static void isTrue(boolean condition, String what) {
        if (!condition) {
            throw new AssertionError(what);
        }
    }

    public static void isTrue(boolean condition, Supplier<String> what) {
        if (!condition) {
            throw new AssertionError(what.get());
        }
    }

    public static void equal(Object seen, Object expected, String what) {
        if (seen == null ? expected != null : !seen.equals(expected)) {
            throw new AssertionError(what + ": seen <" + seen + ">, expected <" + expected + ">");
        }
    }

    public static void near(double seen, double expected, double tolerance, String what) {
        if (!(Math.abs(seen - expected) <= tolerance)) {
            throw new AssertionError(what + ": seen " + seen + ", expected " + expected +
                                     " within " + tolerance);
        }
    }

    /** Waits until it is so. */
    public static void await(Callable<Boolean> condition, String what) throws Exception {
        await(20, condition, () -> what);
    }

    /** The same, asking at this interval; what is only called for when it never was so. */
    public static void await(long everyMs, Callable<Boolean> condition, Supplier<String> what)
            throws Exception {
        long limit = System.nanoTime() + TimeUnit.SECONDS.toNanos(LIMIT_SECONDS);
        while (!condition.call()) {
            if (System.nanoTime() > limit) {
                throw new AssertionError("it never was so: " + what.get());
            }
            Thread.sleep(everyMs);
        }
    }

    public static void contains(String text, String part, String what) {
        if (!text.contains(part)) {
            throw new AssertionError(what + ": no <" + part + "> in <" + text + ">");
        }
    }
}
