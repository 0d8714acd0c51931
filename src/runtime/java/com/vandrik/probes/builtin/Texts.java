package com.vandrik.probes.builtin;

/**
 * Texts of the application on their way into a table. A table has thousands of rows, and a
 * statement that fills one in by values may have megabytes: only its head is kept.
 */
final class Texts {
    /** In characters. */
    static final int MAX_LENGTH = 8192;

    private Texts() {
    }

    /** The head of a long text, and how long it is. */
    static String cut(String text) {
        return text == null ? null : cut(text, text.length());
    }

    /** length: of the whole, of which the text may be the head already. */
    static String cut(String text, long length) {
        return length <= MAX_LENGTH
                ? text
                : text.substring(0, MAX_LENGTH) + "... (" + length + " characters)";
    }
}
