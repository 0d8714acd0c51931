package com.vandrik.util;

/** Checks that stay on in every build; a failed one is a defect of the agent. */
public final class Asserts {
    private Asserts() {
    }

    public static void assertTrue(boolean condition, String what) {
        if (!condition) {
            throw new IllegalStateException("assertion failed: " + what);
        }
    }

    public static void assertNotNull(Object value, String name) {
        if (value == null) {
            throw new IllegalStateException(name + " must not be null");
        }
    }
}
