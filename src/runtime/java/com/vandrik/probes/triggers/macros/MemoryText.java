package com.vandrik.probes.triggers.macros;

/** Amounts of memory as the options of a macro ask for them: the number alone, without a unit. */
final class MemoryText {
    static final String[] OPTIONS = {"KB", "MB", "GB", "%"};

    private static final String PERCENT = "%";
    private static final long STEP = 1024;

    private MemoryText() {
    }

    /** Of bytes; a share of the whole where the option asks for that. */
    static String of(long bytes, long whole, String option) {
        if (bytes < 0 || option.equals(PERCENT) && whole <= 0) {
            return MacroProcessor.UNKNOWN;
        }
        if (option.equals(PERCENT)) {
            return Long.toString((long) ((double) bytes / whole * 100));
        }
        long value = bytes;
        for (int i = 0; i < OPTIONS.length && !option.isEmpty(); i++) {
            value /= STEP;
            if (OPTIONS[i].equals(option)) {
                break;
            }
        }
        return Long.toString(value);
    }
}
