package com.vandrik.runtime;

import com.vandrik.Constants;
import com.vandrik.util.Strings;
import java.io.File;
import java.util.Calendar;
import java.util.Locale;
import java.util.TimeZone;

/** Names of snapshot files. */
public final class Agent {
    public static final String DEFAULT_SNAPSHOT_NAME_PATTERN = "<sessionname>-<date>";

    private static final long NO_NUMBER = -1;

    private Agent() {
    }

    /**
     * A file below {@code directory} that doesn't exist yet. A pattern may hold the macros
     * "&lt;sessionname>", "&lt;date>" and "&lt;datetime>", and directories.
     */
    public static File suggestSnapshotFile(File directory, String sessionName, String extension,
                                           String pattern) {
        Calendar now = Calendar.getInstance(TimeZone.getDefault(), Locale.ROOT);
        return suggestSnapshotFile(directory, sessionName, extension, pattern, now);
    }

    static File suggestSnapshotFile(File directory, String sessionName, String extension,
                                    String pattern, Calendar now) {
        String base = Strings.isEmpty(pattern) ? DEFAULT_SNAPSHOT_NAME_PATTERN : pattern;
        base = base.replace("<sessionname>", sessionNameToFileNamePart(sessionName))
                       .replace("<datetime>", formatDate(now, true))
                       .replace("<date>", formatDate(now, false));
        File first = new File(directory, base + extension);
        File parent = first.getParentFile();
        String name = first.getName();
        name = name.substring(0, name.length() - extension.length());
        String[] present = parent.list();
        if (present == null) {
            return getFirstFree(parent, name, extension);
        }
        long largest = NO_NUMBER;
        for (int i = 0; i < present.length; i++) {
            largest = Math.max(largest, getNumber(present[i], name, extension));
        }
        return getFile(parent, name, extension, largest + 1);
    }

    static String sessionNameToFileNamePart(String sessionName) {
        StringBuilder out = new StringBuilder();
        for (int i = 0; i < sessionName.length(); i++) {
            char c = sessionName.charAt(i);
            out.append(Character.isLetterOrDigit(c) || c == '.' ? c : '_');
        }
        return out.toString();
    }

    private static File getFirstFree(File parent, String name, String extension) {
        long number = 0;
        File file = getFile(parent, name, extension, number);
        while (file.exists()) {
            file = getFile(parent, name, extension, ++number);
        }
        return file;
    }

    private static File getFile(File parent, String name, String extension, long number) {
        if (number == 0) {
            return new File(parent, name + extension);
        }
        String suffix = Constants.IS_WINDOWS ? "(" + number + ")" : "-" + number;
        return new File(parent, name + suffix + extension);
    }

    /** Which of the files of this name it is: 0 for the first, -1 for none of them. */
    private static long getNumber(String file, String name, String extension) {
        if (file.equals(name + extension)) {
            return 0;
        }
        String open = Constants.IS_WINDOWS ? "(" : "-";
        String close = Constants.IS_WINDOWS ? ")" : "";
        int start = name.length() + open.length();
        int end = file.length() - extension.length() - close.length();
        if (start >= end || !file.startsWith(name + open) || !file.endsWith(close + extension)) {
            return NO_NUMBER;
        }
        try {
            return Math.max(Integer.parseInt(file.substring(start, end)), NO_NUMBER);
        } catch (NumberFormatException e) {
            return NO_NUMBER;
        }
    }

    private static String formatDate(Calendar date, boolean withTime) {
        StringBuilder out = new StringBuilder();
        Strings.appendPadded(out, date.get(Calendar.YEAR), 4);
        appendPart(out, date.get(Calendar.MONTH) + 1);
        appendPart(out, date.get(Calendar.DAY_OF_MONTH));
        if (withTime) {
            appendPart(out, date.get(Calendar.HOUR_OF_DAY));
            appendPart(out, date.get(Calendar.MINUTE));
        }
        return out.toString();
    }

    private static void appendPart(StringBuilder out, int value) {
        out.append('-');
        Strings.appendPadded(out, value, 2);
    }
}
