package com.vandrik.runtime;

import com.vandrik.Constants;

/** Tells JVMs that the agent's Java side can't run in. */
final class JvmRequirements {
    private static final String LEAST_JROCKIT = "R27.2.0";

    private JvmRequirements() {
    }

    /** Why the agent can't start in this JVM; null if it can. */
    static String getRefusal() {
        return getRefusal(System.getProperty("java.specification.version", ""),
                          System.getProperty("java.vm.vendor", ""),
                          System.getProperty("java.vm.version", ""));
    }

    static String getRefusal(String javaVersion, String vendor, String vmVersion) {
        if (isOlderThanJava6(javaVersion)) {
            if (Constants.IS_HPUX) {
                return "Java 6 or newer is required on HP-UX";
            }
            if (Constants.IS_AIX) {
                return "Java 6 or newer is required on AIX";
            }
            return "Java 6 or newer is required. To profile on Java 5, use Vandrik Java Profiler"
                    + " 8.0.x";
        }
        String jrockit = getJRockitVMVersion(vmVersion);
        if (vendor.contains("BEA") && jrockit.compareTo(LEAST_JROCKIT) < 0) {
            return "this version of JRockit JVM is not supported. Please use JRockit 6 R27.2.0 or"
                    + " newer; the version found is " + vmVersion;
        }
        return null;
    }

    /** Versions up to 8 are "1.n", later ones a plain number. */
    private static boolean isOlderThanJava6(String version) {
        return version.length() == 3 && version.startsWith("1.") && version.charAt(2) < '6';
    }

    /** "R27.3.1" of a text like "R27.3.1-1-85830-1.6.0_01-20080617". */
    private static String getJRockitVMVersion(String vmVersion) {
        int end = vmVersion.indexOf('-');
        return end < 0 ? vmVersion : vmVersion.substring(0, end);
    }
}
