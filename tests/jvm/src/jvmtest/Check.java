package jvmtest;

import java.util.concurrent.TimeUnit;
import java.util.function.BooleanSupplier;

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
    public static void await(BooleanSupplier condition, String what) throws InterruptedException {
        long limit = System.nanoTime() + TimeUnit.SECONDS.toNanos(LIMIT_SECONDS);
        while (!condition.getAsBoolean()) {
            isTrue(System.nanoTime() < limit, "it never was so: " + what);
            Thread.sleep(5);
        }
    }

    public static void contains(String text, String part, String what) {
        if (!text.contains(part)) {
            throw new AssertionError(what + ": no <" + part + "> in <" + text + ">");
        }
    }
}
