package com.vandrik.runtime;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/** What the native library would answer. Called by the harness library. */
public final class FakeNatives {
    static final List<String> LOG = Collections.synchronizedList(new ArrayList<String>());
    public static final List<String> TABLES = Collections.synchronizedList(new ArrayList<String>());

    private FakeNatives() {
    }

    static void log(String text) {
        LOG.add(text);
    }

    static int createUserTable(String description) {
        TABLES.add(description);
        return TABLES.size() + 31;
    }
}
