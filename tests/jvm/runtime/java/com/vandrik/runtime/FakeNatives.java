package com.vandrik.runtime;

import java.io.File;
import java.io.FileOutputStream;
import java.io.IOException;
import java.util.ArrayList;
import java.util.Collections;
import java.util.HashSet;
import java.util.List;
import java.util.Set;

/** What the native library would answer. Called by the harness library. */
public final class FakeNatives {
    static final List<String> LOG = Collections.synchronizedList(new ArrayList<String>());
    static final Set<String> SNAPSHOTS = Collections.synchronizedSet(new HashSet<String>());
    static final List<String> TABLES = Collections.synchronizedList(new ArrayList<String>());

    /** What the next capture answers; null lets it succeed. */
    static volatile String ourCaptureFailure;

    /** The bytes of a captured snapshot. */
    static volatile byte[] ourSnapshotContent = {};

    private FakeNatives() {
    }

    static void log(String text) {
        LOG.add(text);
    }

    static boolean findSnapshot(String path) {
        return SNAPSHOTS.contains(path);
    }

    static String captureSnapshot(String path, long flags) throws IOException {
        if (ourCaptureFailure != null) {
            return ourCaptureFailure;
        }
        FileOutputStream out = new FileOutputStream(new File(path));
        out.write(ourSnapshotContent);
        out.close();
        SNAPSHOTS.add(path);
        return null;
    }

    static int createUserTable(String description) {
        TABLES.add(description);
        return TABLES.size() + 31;
    }
}
