package com.vandrik.probes.triggers.macros;

import com.vandrik.util.Strings;
import java.util.Calendar;
import java.util.Locale;
import java.util.TimeZone;

/** Moments and lengths of time, without the formats of the default locale. */
final class TimeText {
    private static final long MS_PER_SECOND = 1000;
    private static final long SECONDS_PER_MINUTE = 60;

    private TimeText() {
    }

    /** As dd.MM.yy HH:mm:ss. */
    static String now() {
        Calendar now = Calendar.getInstance(TimeZone.getDefault(), Locale.ROOT);
        StringBuilder text = new StringBuilder();
        append(text, now.get(Calendar.DAY_OF_MONTH), '.');
        append(text, now.get(Calendar.MONTH) + 1, '.');
        append(text, now.get(Calendar.YEAR) % 100, ' ');
        append(text, now.get(Calendar.HOUR_OF_DAY), ':');
        append(text, now.get(Calendar.MINUTE), ':');
        Strings.appendPadded(text, now.get(Calendar.SECOND), 2);
        return text.toString();
    }

    /** As H:mm:ss. */
    static String ofUptime(long uptimeMs) {
        long seconds = uptimeMs / MS_PER_SECOND;
        long minutes = seconds / SECONDS_PER_MINUTE;
        StringBuilder text = new StringBuilder();
        text.append(minutes / SECONDS_PER_MINUTE).append(':');
        append(text, (int) (minutes % SECONDS_PER_MINUTE), ':');
        Strings.appendPadded(text, (int) (seconds % SECONDS_PER_MINUTE), 2);
        return text.toString();
    }

    private static void append(StringBuilder text, int value, char separator) {
        Strings.appendPadded(text, value, 2);
        text.append(separator);
    }
}
