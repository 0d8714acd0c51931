package com.vandrik.probes.builtin;

import com.vandrik.runtime.TypeNames;

/**
 * Initialises what the agent's own probes record with, before their first callback: that may come
 * at the very end of a thread's stack, and a class whose initialiser finds no room there is
 * unusable for good.
 */
final class ReadyClasses {
    private static final String[] ALWAYS = {"Outermost", "Nesting", "Redaction"};

    /** A probe, and the classes with a state beside its own. */
    private static final String[][] STATES = {
            {"AWTEvents"},
            {"Databases", "DatabaseTables", "JdbcObjects", "JdbcCalls"},
            {"FileStreams"},
            {"FileChannels"},
            {"J2EESupport", "J2EESupportCalls"},
            {"JUnitTests", "TestRuns"},
            {"Processes"},
            {"RandomAccessFiles"},
            {"Servlets", "ServletRequests"},
            {"Sockets"},
            {"Threads"},
    };

    private ReadyClasses() {
    }

    /** Called by the agent with the dotted name of a probe that is registered, of a user's too. */
    static void initialize(String probe) throws ClassNotFoundException {
        TypeNames.isInstance(null, ""); // woven calls ask it
        String prefix = ReadyClasses.class.getName();
        prefix = prefix.substring(0, prefix.lastIndexOf('.') + 1);
        for (String[] state : STATES) {
            if (probe.equals(prefix + state[0])) {
                initialize(prefix, ALWAYS);
                initialize(prefix, state);
            }
        }
    }

    private static void initialize(String prefix, String[] names) throws ClassNotFoundException {
        for (String name : names) {
            Class.forName(prefix + name, true, ReadyClasses.class.getClassLoader());
        }
    }
}
