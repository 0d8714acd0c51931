package com.vandrik;

import java.io.File;

/** Names and numbers that the agent's Java classes and its clients share. */
public final class Constants {
    /** With the version of core/ground/Version.h, which tools/check-rules compares. */
    public static final String APP_FULL_NAME = "Vandrik Java Profiler 10.0.6";

    public static final String BUILD_STAMP = "201201261731";

    public static final String SNAPSHOT_EXTENSION = ".snapshot";
    public static final String HPROF_EXTENSION = ".hprof";
    public static final String INDEX_EXTENSION = ".index";

    /** Ports that are tried in this order when none is asked for. */
    public static final int[] DEFAULT_PORTS = {10001, 10002, 10003, 10004, 10005,
                                               10006, 10007, 10008, 10009, 10010};

    public static final boolean IS_WINDOWS = osNameStartsWith("Windows");
    public static final boolean IS_MAC = osNameStartsWith("Mac");
    public static final boolean IS_LINUX = osNameStartsWith("Linux");
    public static final boolean IS_FREEBSD = osNameStartsWith("FreeBSD");
    public static final boolean IS_HPUX = osNameStartsWith("HP-UX");
    public static final boolean IS_AIX = osNameStartsWith("AIX");

    public static final File USER_HOME = findUserHome();

    /** Where configuration files such as ".snapshotdir" are looked for. */
    public static final File CONFIG_DIR = new File(new File(USER_HOME, ".vdk"), "config");

    /** Where snapshots go unless an option or a configuration file says otherwise. */
    public static final File SNAPSHOT_DIR = new File(USER_HOME, "Snapshots");

    public static final String PUBLIC_DIR_NAME = "Public";

    // Flags of a snapshot, in a request, in the header of the file and in the table "snapshot".
    public static final long SNAPSHOT_WITH_HEAP = 1;
    public static final long SNAPSHOT_WITH_COUNTS = 8;
    public static final long SNAPSHOT_HPROF = 16;
    public static final long SNAPSHOT_CAUSE_SHUTDOWN = 32;
    public static final long SNAPSHOT_OIDS_ARE_INDICES = 512;
    public static final long SNAPSHOT_SUPPRESS_PROGRESS = 2048;
    public static final long SNAPSHOT_CAUSE_ON_EVENT = 4096;
    public static final long SNAPSHOT_EXTRACTED_PERFORMANCE = 8192;

    // Bits of Callback.getCapabilities().
    public static final long CAPABILITY_CAN_TRACE = 0x40;
    public static final long CAPABILITY_CAN_RECORD_ALLOCATIONS = 0x100;
    public static final long CAPABILITY_ATTACHED_AGENT = 0x400;
    public static final long CAPABILITY_CAN_RECORD_J2EE = 0x1000;
    public static final long CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE = 0x4000;
    public static final long CAPABILITY_CANNOT_SUSPEND = 0x8000;
    public static final long CAPABILITY_REDACTS = 0x10000;
    public static final long CAPABILITY_ALLOWS_COMMANDS = 0x20000;
    public static final long CAPABILITY_ALLOWS_WEBHOOKS = 0x40000;
    public static final long CAPABILITY_ON_DEMAND = 0x80000;

    private Constants() {
    }

    private static boolean osNameStartsWith(String prefix) {
        return System.getProperty("os.name", "").startsWith(prefix);
    }

    /** A process without an entry in the user database has "?" as its home. */
    private static File findUserHome() {
        String home = System.getProperty("user.home");
        if (home == null || home.isEmpty() || home.equals("?")) {
            home = System.getenv("HOME");
        }
        if (home == null || home.isEmpty()) {
            home = System.getProperty("java.io.tmpdir", ".");
        }
        return new File(home);
    }
}
