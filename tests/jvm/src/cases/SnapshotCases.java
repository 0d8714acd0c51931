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
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Random;
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
    private static final int CHUNK = 131072;
    private static final long WITH_HEAP = 1;
    private static final long HPROF = 16;

    private SnapshotCases() {
    }

    /** How many files of the target's folder end so. */
    static int count(Target target, String end) {
        return target.folder.toFile().list((folder, name) -> name.endsWith(end)).length;
    }

    private static Path capture(Target target, long flags, String directory, String pattern)
            throws Exception {
        try (AgentClient client = target.client()) {
            return Path.of(client.capture(flags, directory, pattern).ok().readString());
        }
    }

    private static Path capture(Target target, String pattern) throws Exception {
        return capture(target, 0, "", pattern);
    }

    private static String captureError(Target target, String directory, String pattern)
            throws Exception {
        try (AgentClient client = target.client()) {
            return client.capture(0, directory, pattern).error();
        }
    }

    private static String transferError(Target target, Path path) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.TRANSFER).string(path.toString());
            return client.error();
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
        Path heap = capture(target, HPROF | WITH_HEAP, "", "heap");
        Check.equal(heap, target.folder.resolve("heap.hprof"), "name of a heap dump");
        Check.isTrue(Files.size(heap) > 100_000, "size " + Files.size(heap));
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
        checkTransfers(target, first);
        Path secret = Files.writeString(target.folder.resolve("secret.snapshot"), "secret");
        Check.equal(transferError(target, secret),
                    "File cannot be transferred: unknown snapshot " + secret, "foreign file");
        target.finish();
    }

    /** Files of the folder "Public" are for everybody, whatever is in them. */
    @Case(fixture = Idle.class, attach = false)
    static void filesOfAnySizeAreTransferred(Target target) throws Exception {
        Path folder = target.folder.resolve("Public");
        Check.equal(capture(target, 0, "public", "p"), folder.resolve("p.snapshot"), "name");
        Check.equal(transferError(target, folder.resolve("gone")),
                    "The file to transfer does not exist: " + folder.resolve("gone"), "gone");
        Random random = new Random(3);
        for (int size : new int[] {0, 1, 65536, CHUNK - 1, CHUNK, CHUNK + 1, 1000000}) {
            byte[] content = new byte[size];
            random.nextBytes(content);
            Arrays.fill(content, 0, size / 2, (byte) 5);
            checkTransfers(target, Files.write(folder.resolve("size" + size), content));
        }
        checkList(target, capture(target, "known"),
                  Files.writeString(folder.resolve("x.hprof"), "x"));
        target.finish();
    }

    private static void checkList(Target target, Path known, Path shared) throws Exception {
        Files.writeString(target.folder.resolve("unlisted.snapshot"), "x");
        Map<Path, Long> flags = new HashMap<>();
        try (AgentClient client = target.client()) {
            client.request(AgentClient.LIST_SNAPSHOTS).ok();
            for (int count = client.in.readInt(); count > 0; count--) {
                Path path = Path.of(client.readString());
                Check.isTrue(!client.readString().isEmpty(), "digest");
                Check.equal(client.in.readLong(), Files.size(path), "size");
                Check.equal(client.in.readLong(), Files.getLastModifiedTime(path).toMillis(),
                            "date");
                flags.put(path, client.in.readLong());
            }
        }
        Check.isTrue(flags.containsKey(known), known + " in " + flags);
        Check.equal(flags.get(shared), HPROF | WITH_HEAP, "flags of " + shared);
        Check.isTrue(!flags.containsKey(target.folder.resolve("unlisted.snapshot")),
                     "a file that nobody knows");
    }

    @Case(fixture = Named.class)
    static void namesBeyondTheBmpComeThrough(Target target) throws Exception {
        Path first = capture(target, "rocket-\uD83D\uDE80-\u00e4");
        Check.equal(first.getFileName().toString(), "rocket-\uD83D\uDE80-\u00e4.snapshot", "name");
        Check.isTrue(Files.exists(first), "the file has that name: " + first);
        Check.contains(captureError(target, "", "a\0b"), "zero character", "a zero in a name");
        String pid = target.id();
        String fetched = target.folder.resolve("fetched").toString();
        Tool.vdk("snapshot", pid, "--pattern", "again-\uD83D\uDE80", "--out", fetched);
        String[] threads = {""};
        // Thread states are sampled now and then.
        Check.await(20, () -> {
            threads[0] = Tool.vdk("threads", pid);
            return threads[0].contains("fixtures.Named$\uD801\uDC00.spin");
        }, () -> "spin in " + threads[0]);
        Check.contains(threads[0], "emoji-\uD83D\uDE00-?-end", "threads");
        target.finish();
    }

    private static void checkTransfers(Target target, Path file) throws Exception {
        byte[] content = Files.readAllBytes(file);
        for (boolean compressed : new boolean[] {false, true}) {
            try (AgentClient client = target.client()) {
                client.request(compressed ? AgentClient.TRANSFER_COMPRESSED : AgentClient.TRANSFER);
                client.string(file.toString());
                Check.equal(client.ok().in.readLong(), (long) content.length, "length");
                byte[] fetched = compressed ? readCompressed(client, content.length)
                                            : client.in.readNBytes(content.length);
                Check.isTrue(Arrays.equals(content, fetched), "content of " + file);
                Check.equal(client.in.read(), -1, "bytes behind " + file);
            }
        }
    }

    private static byte[] readCompressed(AgentClient client, int length) throws Exception {
        ByteArrayOutputStream all = new ByteArrayOutputStream();
        byte[] buffer = new byte[CHUNK];
        int chunks = 0;
        for (; all.size() < length; chunks++) {
            Inflater inflater = new Inflater(true);
            for (int n = client.in.readInt(); n != 0; n = client.in.readInt()) {
                Check.isTrue(n > 0 && n <= 65536, "block of " + n);
                inflater.setInput(client.in.readNBytes(n));
                for (int got = inflater.inflate(buffer); got > 0; got = inflater.inflate(buffer)) {
                    all.write(buffer, 0, got);
                }
            }
            inflater.end();
        }
        Check.equal(chunks, (length + CHUNK - 1) / CHUNK, "chunks of " + length);
        return all.toByteArray();
    }

    @Case(fixture = Burn.class)
    static void refusesUnusableDirectoriesAndGoesOn(Target target) throws Exception {
        Path file = Files.createFile(target.folder.resolve("plain"));
        Check.equal(captureError(target, file.toString(), ""),
                    "The snapshot directory is not a directory: " + file, "a file");
        Check.equal(captureError(target, "", "plain/x"),
                    "Path to snapshot directory does not represent a directory: " + file,
                    "below a file");
        Check.equal(captureError(target, "", "plain/x/y"),
                    "Snapshot directory does not exist: " + file + "/x", "far below a file");
        // A folder in which nobody, not even root, may make a file.
        String error = captureError(target, "/proc/" + target.pid() + "/task", "");
        Check.isTrue(error.endsWith("Cannot open file to write snapshot"), error);
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
        List<String> limit = List.of("bash", "-c", "ulimit -f 8; exec \"$@\"", "limited");
        String options = target.agentPath(target.agentOptions(""));
        try (Target limited = Target.run(target, limit, List.of("-XX:-UsePerfData", options))) {
            limited.awaitOutput("ready");
            for (long flags = 0; flags <= WITH_HEAP; flags++) {
                expectNoRoom(target, flags);
            }
            limited.finish();
        }
    }

    private static void expectNoRoom(Target target, long flags) throws Exception {
        try (AgentClient client = target.client()) {
            client.capture(flags, "", "full");
            Check.equal(client.headerBehindProgress(), 0, "packet type");
            String error = client.readString();
            Check.isTrue(error.startsWith("Cannot capture snapshot ") &&
                                 error.endsWith("File too large"),
                         "error " + error);
        }
    }

    @Case(fixture = Idle.class, agent = "onexit=snapshot")
    static void isCapturedOnExit(Target target) throws Exception {
        target.finish();
        Check.equal(count(target, "-shutdown.snapshot"), 1, "snapshots on exit");
    }

    @Case(fixture = Burn.class)
    static void aKilledJvmLeavesTheClientWithTheEndOfTheStream(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.capture(0, "", "killed").out.flush();
            target.process().destroyForcibly();
            try {
                client.ok();
            } catch (EOFException | java.net.SocketException e) {
                return;
            }
        }
    }
}
