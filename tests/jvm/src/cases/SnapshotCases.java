package cases;

import fixtures.Burn;
import fixtures.Idle;
import fixtures.Named;
import java.io.ByteArrayOutputStream;
import java.io.EOFException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.Arrays;
import java.util.List;
import java.util.zip.Inflater;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Sampling;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;

/** Performance snapshots: captured, named, fetched, refused. */
public final class SnapshotCases {
    private SnapshotCases() {
    }

    private static final long WITH_HEAP = 1;

    private static void ask(AgentClient client, String directory, String pattern) throws Exception {
        ask(client, 0, directory, pattern);
    }

    private static void ask(AgentClient client, long flags, String directory, String pattern)
            throws Exception {
        client.request(AgentClient.CAPTURE_SNAPSHOT).out.writeLong(flags);
        client.string(directory);
        client.string(pattern);
    }

    private static Path capture(Target target, String pattern) throws Exception {
        try (AgentClient client = target.client()) {
            ask(client, "", pattern);
            return Path.of(client.ok().readString());
        }
    }

    private static String modeOf(Path path) throws Exception {
        return PosixFilePermissions.toString(Files.getPosixFilePermissions(path));
    }

    @Case(fixture = Burn.class, agent = "sessionname=my app")
    static void isNamedCountedAndFetchedPlainAndCompressed(Target target) throws Exception {
        Sampling.start(target);
        Sampling.awaitTimes(target);
        Path first = capture(target, "<sessionname>-x");
        Path second = capture(target, "<sessionname>-x");
        Check.equal(first.getFileName().toString(), "my_app-x.snapshot", "first name");
        Check.equal(second.getFileName().toString(), "my_app-x-1.snapshot", "second name");
        Path inner = capture(target, "made/x");
        Check.equal(modeOf(inner), "rw-------", "mode of a snapshot");
        Check.equal(modeOf(inner.getParent()), "rwx------", "mode of a folder");
        byte[] bytes = Files.readAllBytes(first);
        Check.isTrue(new String(bytes, 0, 32, StandardCharsets.US_ASCII)
                             .equals("Vandrik Java Profiler snapshot, "),
                     "magic");
        Check.equal(bytes[55], (byte) 0x1A, "end of the magic");
        Check.equal(bytes[56], (byte) 66, "format byte");
        Check.isTrue(bytes.length > 10_000, "length " + bytes.length);
        try (AgentClient client = target.client()) {
            client.request(AgentClient.TRANSFER);
            client.string(first.toString());
            byte[] fetched = new byte[(int) client.ok().in.readLong()];
            client.in.readFully(fetched);
            Check.isTrue(Arrays.equals(bytes, fetched), "plain transfer");
        }
        try (AgentClient client = target.client()) {
            client.request(AgentClient.TRANSFER_COMPRESSED);
            client.string(first.toString());
            Check.isTrue(Arrays.equals(bytes, readCompressed(client.ok())), "compressed transfer");
        }
        try (AgentClient client = target.client()) {
            client.request(AgentClient.TRANSFER);
            client.string("/etc/passwd");
            Check.equal(client.error(), "File cannot be transferred: unknown snapshot /etc/passwd",
                        "foreign file");
        }
        target.finish();
    }

    @Case(fixture = Named.class)
    static void namesBeyondTheBmpComeThrough(Target target) throws Exception {
        Path first = capture(target, "rocket-\uD83D\uDE80-\u00e4");
        Check.equal(first.getFileName().toString(), "rocket-\uD83D\uDE80-\u00e4.snapshot", "name");
        Check.isTrue(Files.exists(first), "the file has that name: " + first);
        try (AgentClient client = target.client()) {
            ask(client, "", "a\0b");
            Check.isTrue(client.error().contains("zero character"), "a zero in a name");
        }
        String pid = Long.toString(target.pid());
        String fetched = target.folder.resolve("fetched").toString();
        Tool.vdk("snapshot", pid, "--pattern", "again-\uD83D\uDE80", "--out", fetched);
        String threads = "";
        long end = System.nanoTime() + Check.LIMIT_SECONDS * 1_000_000_000L;
        // Thread states are sampled now and then.
        while (!threads.contains("fixtures.Named$\uD801\uDC00.spin") && System.nanoTime() < end) {
            threads = Tool.vdk("threads", pid);
        }
        Check.contains(threads, "fixtures.Named$\uD801\uDC00.spin", "threads");
        Check.contains(threads, "emoji-\uD83D\uDE00-?-end", "threads");
        target.finish();
    }

    private static byte[] readCompressed(AgentClient client) throws Exception {
        long length = client.in.readLong();
        ByteArrayOutputStream all = new ByteArrayOutputStream();
        while (all.size() < length) {
            Inflater inflater = new Inflater(true);
            for (int n = client.in.readInt(); n != 0; n = client.in.readInt()) {
                Check.isTrue(n > 0 && n <= 65536, "block of " + n);
                byte[] block = new byte[n];
                client.in.readFully(block);
                inflater.setInput(block);
                byte[] buffer = new byte[131072];
                for (int got = inflater.inflate(buffer); got > 0; got = inflater.inflate(buffer)) {
                    all.write(buffer, 0, got);
                }
            }
            inflater.end();
        }
        return all.toByteArray();
    }

    @Case(fixture = Burn.class)
    static void refusesUnusableDirectoriesAndGoesOn(Target target) throws Exception {
        Path file = Files.createFile(target.folder.resolve("plain"));
        try (AgentClient client = target.client()) {
            ask(client, file.toString(), "");
            Check.equal(client.error(), "The snapshot directory is not a directory: " + file,
                        "a file");
        }
        try (AgentClient client = target.client()) {
            // A folder in which nobody, not even root, may make a file.
            ask(client, "/proc/" + target.pid() + "/task", "");
            Check.isTrue(client.error().endsWith("Cannot open file to write snapshot"),
                         "error for an unwritable folder");
        }
        capture(target, "");
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(1 << Tables.STRING | 1 << Tables.INSTANCES, tables);
        }
        boolean named =
                tables.rows.get(Tables.INSTANCES)
                        .values()
                        .stream()
                        .anyMatch(row -> "java.lang.String".equals(tables.text((Integer) row[1])));
        Check.isTrue(named, "a class that was first counted for a file that could not be opened");
        target.finish();
    }

    @Case(fixture = Burn.class, noAgent = true, attach = false)
    static void aFullDiskEndsInAnErrorWithAllThreadsRunning(Target target) throws Exception {
        target.send("stop");
        target.awaitExit();
        try (Target limited = limitedFileSize(target)) {
            limited.awaitOutput("ready");
            limited.awaitPort();
            for (long flags = 0; flags <= WITH_HEAP; flags++) {
                expectNoRoom(limited, flags);
            }
            limited.finish();
        }
    }

    private static void expectNoRoom(Target limited, long flags) throws Exception {
        try (AgentClient client = limited.client()) {
            ask(client, flags, "", "full");
            int type = client.header();
            while (type == AgentClient.PROGRESS) {
                client.in.readInt();
                type = client.header();
            }
            Check.equal(type, 0, "packet type");
            String error = client.readString();
            Check.isTrue(error.startsWith("Cannot capture snapshot ") &&
                                 error.endsWith("File too large"),
                         "error " + error);
        }
    }

    private static Target limitedFileSize(Target like) throws Exception {
        Target target = Target.like(like);
        target.startProcess(List.of("bash", "-c", "ulimit -f 8; exec \"$@\"", "limited",
                                    target.jdk.java(), "-XX:-UsePerfData",
                                    "-agentpath:" + target.library + "=port=" + target.port +
                                            ",onlylocal,quiet,tmpdir=" + target.folder +
                                            ",dir=" + target.folder,
                                    "-cp", System.getProperty("java.class.path"), "fixtures.Burn"));
        return target;
    }

    @Case(fixture = Idle.class, agent = "onexit=snapshot")
    static void isCapturedOnExit(Target target) throws Exception {
        target.finish();
        String[] names =
                target.folder.toFile().list((dir, name) -> name.endsWith("-shutdown.snapshot"));
        Check.equal(names.length, 1, "snapshots on exit");
    }

    @Case(fixture = Burn.class, agent = "sampling")
    static void isCapturedOnExitWhenCpuTimesRun(Target target) throws Exception {
        target.finish();
        String[] names =
                target.folder.toFile().list((dir, name) -> name.endsWith("-shutdown.snapshot"));
        Check.equal(names.length, 1, "snapshots on exit");
    }

    @Case(fixture = Idle.class)
    static void isNotCapturedOnExitUnasked(Target target) throws Exception {
        target.finish();
        Check.equal(target.folder.toFile().list((dir, name) -> name.endsWith(".snapshot")).length,
                    0, "snapshots");
    }

    @Case(fixture = Burn.class)
    static void aKilledJvmLeavesTheClientWithTheEndOfTheStream(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            ask(client, "", "killed");
            client.out.flush();
            target.process().destroyForcibly();
            try {
                client.ok();
            } catch (EOFException | java.net.SocketException e) {
                return;
            }
        }
    }
}
