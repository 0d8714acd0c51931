package com.vandrik.runtime;

import com.vandrik.Constants;
import com.vandrik.util.Strings;
import java.io.DataInputStream;
import java.io.File;
import java.io.FileInputStream;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.attribute.PosixFilePermission;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.Set;

/** Finds the directory that snapshots go to. */
public final class SnapshotDirectory0 {
    private static final String CONFIG_FILE = ".snapshotdir";

    /** A configuration file from this size on is not one. */
    private static final int CONFIG_FILE_LIMIT = 2048;

    private static final Set<PosixFilePermission> PRIVATE =
            PosixFilePermissions.fromString("rwx------");

    private SnapshotDirectory0() {
    }

    /**
     * The first that is, or can be made, a writable directory: {@code alternate}, the path in the
     * configuration file, the default. If none is, the default, so that an error names it.
     */
    public static File getSnapshotDirectory(String alternate) {
        return getSnapshotDirectory(alternate, Constants.CONFIG_DIR, Constants.SNAPSHOT_DIR);
    }

    static File getSnapshotDirectory(String alternate, File configDir, File defaultDir) {
        if (!Strings.isEmpty(alternate) && isUsable(new File(alternate))) {
            return new File(alternate);
        }
        String configured = readConfigFile(new File(configDir, CONFIG_FILE));
        if (!Strings.isEmpty(configured) && isUsable(new File(configured))) {
            return new File(configured);
        }
        mkdirsSafe(defaultDir);
        return defaultDir;
    }

    /** The public directory that belongs to a snapshot directory; it is made if need be. */
    static File getPublicDirectory(File directory) {
        if (isPublicDirectory(directory)) {
            return directory;
        }
        File result = new File(directory, Constants.PUBLIC_DIR_NAME);
        mkdirsSafe(result);
        return result;
    }

    static boolean isPublicDirectory(File directory) {
        if (directory == null) {
            return false;
        }
        String name = directory.getName();
        if (Constants.IS_WINDOWS) {
            return name.equalsIgnoreCase(Constants.PUBLIC_DIR_NAME);
        }
        return name.equals(Constants.PUBLIC_DIR_NAME) || name.equals("public");
    }

    /**
     * Makes a directory and those above it, for this user alone; whether it worked is for the
     * caller to see.
     */
    static void mkdirsSafe(File directory) {
        if (directory.isDirectory()) {
            return;
        }
        try {
            Files.createDirectories(directory.toPath(),
                                    PosixFilePermissions.asFileAttribute(PRIVATE));
        } catch (IOException e) {
            // the caller looks
        } catch (RuntimeException e) {
            // a path or a file system that java.nio can't take
            mkdirsWithOwnMeans(directory);
        }
    }

    private static void mkdirsWithOwnMeans(File directory) {
        try {
            directory.mkdirs();
        } catch (SecurityException e) {
            // the same as a directory that can't be made
        }
    }

    private static boolean isUsable(File directory) {
        mkdirsSafe(directory);
        return directory.isDirectory() && directory.canWrite();
    }

    private static String readConfigFile(File file) {
        long length = file.length();
        if (length == 0 || length >= CONFIG_FILE_LIMIT) {
            return null;
        }
        try {
            DataInputStream in = new DataInputStream(new FileInputStream(file));
            try {
                byte[] bytes = new byte[(int) length];
                in.readFully(bytes);
                return new String(bytes, Strings.UTF8).trim();
            } finally {
                in.close();
            }
        } catch (IOException e) {
            return null;
        }
    }
}
