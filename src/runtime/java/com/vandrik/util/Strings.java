package com.vandrik.util;

import java.io.PrintWriter;
import java.io.StringWriter;
import java.nio.charset.Charset;

/** Text helpers that depend neither on the default locale nor on the default charset. */
public final class Strings {
    public static final Charset UTF8 = Charset.forName("UTF-8");

    private static final String HEX = "0123456789abcdef";

    private Strings() {
    }

    public static boolean isEmpty(String text) {
        return text == null || text.isEmpty();
    }

    public static String stackTrace(Throwable failure) {
        StringWriter text = new StringWriter();
        PrintWriter writer = new PrintWriter(text);
        failure.printStackTrace(writer);
        writer.flush();
        return text.toString();
    }

    /** The message of a failure, or its class and message where it has none. */
    public static String messageOf(Throwable failure) {
        String message = failure.getMessage();
        return message == null ? failure.toString() : message;
    }

    public static void appendHexByte(StringBuilder out, int value) {
        out.append(HEX.charAt(value >> 4 & 15)).append(HEX.charAt(value & 15));
    }

    /** Appends {@code value} in decimal with leading zeros up to {@code digits} places. */
    public static void appendPadded(StringBuilder out, int value, int digits) {
        String text = Integer.toString(value);
        for (int i = text.length(); i < digits; i++) {
            out.append('0');
        }
        out.append(text);
    }

    /** In the pattern {@code *} stands for any run of characters. */
    public static boolean matches(String pattern, String text) {
        int p = 0;
        int t = 0;
        int star = -1;
        int resume = 0;
        while (t < text.length()) {
            if (p < pattern.length() && pattern.charAt(p) == '*') {
                star = p++;
                resume = t;
            } else if (p < pattern.length() && pattern.charAt(p) == text.charAt(t)) {
                p++;
                t++;
            } else if (star >= 0) {
                p = star + 1;
                t = ++resume;
            } else {
                return false;
            }
        }
        while (p < pattern.length() && pattern.charAt(p) == '*') {
            p++;
        }
        return p == pattern.length();
    }
}
