package com.vandrik.runtime;

import com.vandrik.util.Strings;

/**
 * Lets a value of the option string hold commas and blanks, by writing it as hexadecimal digits.
 * The native options parser has the same pair.
 */
public final class Quoter {
    public static final String PREFIX = "VDKQUOTED";

    private Quoter() {
    }

    public static String quote(String value) {
        StringBuilder out = new StringBuilder(PREFIX);
        byte[] bytes = value.getBytes(Strings.UTF8);
        for (int i = 0; i < bytes.length; i++) {
            Strings.appendHexByte(out, bytes[i]);
        }
        return out.toString();
    }

    /** A value without the prefix, or with anything but pairs of digits behind it, stands as is. */
    public static String unquote(String value) {
        if (!value.startsWith(PREFIX)) {
            return value;
        }
        int digits = value.length() - PREFIX.length();
        if (digits % 2 != 0) {
            return value;
        }
        byte[] bytes = new byte[digits / 2];
        for (int i = 0; i < bytes.length; i++) {
            int high = digit(value.charAt(PREFIX.length() + 2 * i));
            int low = digit(value.charAt(PREFIX.length() + 2 * i + 1));
            if (high < 0 || low < 0) {
                return value;
            }
            bytes[i] = (byte) (high << 4 | low);
        }
        return new String(bytes, Strings.UTF8);
    }

    private static int digit(char c) {
        return c < 128 ? Character.digit(c, 16) : -1;
    }
}
