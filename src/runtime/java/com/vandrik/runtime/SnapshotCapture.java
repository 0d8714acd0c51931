package com.vandrik.runtime;

import com.vandrik.Constants;
import com.vandrik.util.SnapshotDigest;
import com.vandrik.util.Strings;
import java.io.File;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/** The Java half of a snapshot: where it goes, whether that works, and what is known afterwards. */
final class SnapshotCapture {
    private static final String HPROF_NOT_SUPPORTED =
            "\nHPROF heap dumper is available in Sun Java and JRockit (since R28.0.0) only."
            + "\nWith your JVM, capture memory snapshot in the profiler's format instead.";

    private static final String[] HPROF_VENDORS = {"Sun", "Apple", "Hewlett", "FreeBSD", "Oracle"};

    private SnapshotCapture() {
    }

    static String capture(String pattern, int progressSocket, long flags, String directory,
                          String[] result) {
        File target = Core.getSnapshotDirectory(directory);
        SnapshotDirectory0.mkdirsSafe(target);
        if (!target.isDirectory()) {
            return "The snapshot directory is not a directory: " + target.getPath();
        }
        if (!target.canWrite()) {
            return getNoAccessText(target);
        }
        boolean hprof = (flags & Constants.SNAPSHOT_HPROF) != 0;
        File file = Agent.suggestSnapshotFile(
                target, Core.getSessionName(),
                hprof ? Constants.HPROF_EXTENSION : Constants.SNAPSHOT_EXTENSION, pattern);
        if (file.getPath().indexOf('\0') >= 0) {
            return "A file name cannot hold a zero character: " + file.getPath();
        }
        File parent = file.getParentFile();
        SnapshotDirectory0.mkdirsSafe(parent);
        String failure = checkParent(parent);
        if (failure != null) {
            return failure;
        }
        return write(getPath(file), progressSocket, flags, hprof, result);
    }

    private static String write(String path, int progressSocket, long flags, boolean hprof,
                                String[] result) {
        AgentProperties.makeSurePropertiesInitialized();
        String failure =
                hprof ? dumpHeap(path) : Callback.captureSnapshot(path, progressSocket, flags);
        if (failure != null) {
            Callback.message("Cannot capture snapshot", path + ": " + failure);
            return "Cannot capture snapshot " + path + ": " + failure;
        }
        Callback.message("Snapshot captured", path);
        Callback.addSnapshotInfo(path, flags);
        if (result != null) {
            result[0] = path;
        }
        return null;
    }

    /** Gives the snapshot that name, or the first free of name-1, name-2, ..., and tells which. */
    static String moveTo(File snapshot, File chosen) throws IOException {
        String name = chosen.getName();
        int dot = name.endsWith(Constants.SNAPSHOT_EXTENSION)
                          ? name.length() - Constants.SNAPSHOT_EXTENSION.length()
                          : name.length();
        File file = chosen;
        // Whoever makes the file has its name; the snapshot then takes its place.
        for (int number = 1; !file.createNewFile(); number++) {
            file = new File(chosen.getParentFile(),
                            name.substring(0, dot) + "-" + number + name.substring(dot));
        }
        if (!snapshot.renameTo(file)) {
            file.delete();
            return snapshot.getPath();
        }
        Callback.message("Snapshot renamed", file.getPath());
        return file.getPath();
    }

    private static String checkParent(File parent) {
        if (!parent.exists()) {
            return "Snapshot directory does not exist: " + parent.getPath();
        }
        if (!parent.isDirectory()) {
            return "Path to snapshot directory does not represent a directory: " + parent.getPath();
        }
        return parent.canWrite() ? null : getNoAccessText(parent);
    }

    private static String getNoAccessText(File directory) {
        return "User " + System.getProperty("user.name") +
                " has no write access to the directory " + directory.getPath();
    }

    private static String getPath(File file) {
        try {
            return file.getCanonicalPath();
        } catch (IOException e) {
            return file.getAbsolutePath();
        }
    }

    private static String dumpHeap(String path) {
        if (!isHPROFSupported()) {
            return HPROF_NOT_SUPPORTED;
        }
        try {
            OOMEDumper.dumpHeap(path);
            return null;
        } catch (Throwable e) {
            return Strings.messageOf(e);
        }
    }

    /** Today's builds carry many vendor names; what counts for them is the diagnostic bean. */
    static boolean isHPROFSupported() {
        String vendor = System.getProperty("java.vm.vendor", "");
        for (int i = 0; i < HPROF_VENDORS.length; i++) {
            if (vendor.contains(HPROF_VENDORS[i])) {
                return true;
            }
        }
        return OOMEDumper.isAvailable();
    }

    /** Files of the snapshot directory that this process has written, and all public ones. */
    static TransferrableSnapshotInfo[] getTransferrableSnapshots() {
        List<TransferrableSnapshotInfo> found = new ArrayList<TransferrableSnapshotInfo>();
        File directory = Core.getSnapshotDirectory(null);
        File publicDirectory = Core.getPublicSnapshotDirectory();
        addSnapshots(found, directory);
        if (!publicDirectory.equals(directory)) {
            addSnapshots(found, publicDirectory);
        }
        return found.toArray(new TransferrableSnapshotInfo[0]);
    }

    private static void addSnapshots(List<TransferrableSnapshotInfo> found, File directory) {
        File[] files = directory.listFiles();
        if (files == null) {
            return;
        }
        boolean isPublic = Core.isPublicDirectory(directory);
        for (int i = 0; i < files.length; i++) {
            String name = files[i].getName();
            boolean snapshot = name.endsWith(Constants.SNAPSHOT_EXTENSION) ||
                               name.endsWith(Constants.HPROF_EXTENSION);
            if (!snapshot || !files[i].isFile()) {
                continue;
            }
            String path = getPath(files[i]);
            if (isPublic || Callback.findSnapshot(path)) {
                addSnapshot(found, files[i], path);
            }
        }
    }

    private static void addSnapshot(List<TransferrableSnapshotInfo> found, File file, String path) {
        try {
            SnapshotDigest digest = SnapshotDigest.getSnapshotDigest(file);
            found.add(new TransferrableSnapshotInfo(path, digest.getDigest(), file.length(),
                                                    file.lastModified(), digest.getFlags()));
        } catch (IOException e) {
            // gone or unreadable, so nobody can fetch it
        }
    }
}
