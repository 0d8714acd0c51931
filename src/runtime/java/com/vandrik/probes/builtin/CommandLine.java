package com.vandrik.probes.builtin;

import java.util.Map;

/** How a child process was started, as text. */
final class CommandLine {
    private CommandLine() {
    }

    /** The arguments separated by blanks; one that holds a blank, or is empty, stands in quotes. */
    static String join(String[] arguments) {
        StringBuilder text = new StringBuilder();
        for (String argument : arguments) {
            boolean isQuoted = argument.isEmpty() || argument.indexOf(' ') >= 0;
            text.append(text.length() == 0 ? "" : " ").append(isQuoted ? "\"" : "");
            text.append(argument).append(isQuoted ? "\"" : "");
        }
        return Texts.cut(text.toString());
    }

    /**
     * The variables that differ from this process's own, each on a line as name=value, or as name=
     * if the child has it not. Null if the child got the environment as it is.
     */
    static String changesOf(Map<?, ?> environment) {
        if (environment == null) {
            return null;
        }
        Map<String, String> own = System.getenv();
        StringBuilder text = new StringBuilder();
        for (Map.Entry<?, ?> entry : environment.entrySet()) {
            String value = String.valueOf(entry.getValue());
            if (!value.equals(own.get(entry.getKey()))) {
                text.append(entry.getKey()).append('=').append(Redaction.value(value));
                text.append('\n');
            }
        }
        for (String name : own.keySet()) {
            if (!environment.containsKey(name)) {
                text.append(name).append("=\n");
            }
        }
        return Texts.cut(text.toString());
    }
}
