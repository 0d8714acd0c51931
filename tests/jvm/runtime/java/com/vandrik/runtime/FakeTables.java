package com.vandrik.runtime;

import java.util.List;

/** The tables that were made so far, for tests of other packages. */
public final class FakeTables {
    private FakeTables() {
    }

    public static List<String> get() {
        return FakeNatives.TABLES;
    }
}
