package com.vandrik.runtime;

import com.vandrik.Constants;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.File;
import java.io.IOException;
import java.net.SocketException;
import java.util.Arrays;
import java.util.Random;
import java.util.zip.Inflater;
import jvmtest.AgentClient;
import jvmtest.Check;

/** The server of the control channel with clients of all kinds, in this JVM. */
final class ControlChannelTest {
    /**
     * The limits of the server, but where a test shortens one: far above what a busy machine may
     * hold up a client, and above the wait of the clients here. A client that must wait for the end
     * of another one's limit therefore fails.
     */
    private static final int PATIENT_MS = 600000;

    private static final File DIRECTORY = start();

    private ControlChannelTest() {
    }

    /** Starts the runtime as native code would; any free port, local clients only. */
    private static File start() {
        beServedPatiently();
        try {
            File directory = Files.newDirectory();
            boolean started = Core.init(0, "", "my session", directory.getPath(), "", 0, true, 77,
                                        0, 3600, 20000, false, "# no triggers\n");
            Check.isTrue(started, "started: " + FakeNatives.LOG);
            return directory;
        } catch (IOException e) {
            throw new IllegalStateException(e);
        }
    }

    private static void beServedPatiently() {
        ControlSocket.ourFirstRequestMs = PATIENT_MS;
        ControlSocket.ourReadStallMs = PATIENT_MS;
        ControlSocket.ourRequestMs = PATIENT_MS;
        ControlSocket.ourWriteStallMs = PATIENT_MS;
    }

    private static AgentClient client() throws IOException {
        return new AgentClient(Core.ourPort);
    }

    private static void checkServes(String after) throws Exception {
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_GET_STATUS_REQ).ok();
            Check.equal(client.in.readLong(), 0x600L, "status after " + after);
            Check.equal(client.in.read(), -1, "end of the connection");
        }
    }

    /** The server hangs up without an answer; what it had not read yet makes that a reset. */
    private static void checkEnds(AgentClient client, String what) throws IOException {
        int seen = -1;
        try {
            seen = client.in.read();
        } catch (SocketException reset) {
            // hung up as well
        }
        Check.equal(seen, -1, "bytes for " + what);
    }

    static void testAgentInfoHasItsFieldsInOrder() throws Exception {
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_GET_AGENT_INFO_REQ).ok();
            Check.equal(client.in.readInt(), 20110815, "version");
            Check.equal(client.readString(), Constants.APP_FULL_NAME, "product");
            Check.equal(client.in.readLong(), 0L, "capabilities");
            Check.equal(client.readString(), "my session", "session");
            Check.equal(client.in.readLong(), 77L, "session id");
            client.readString();
            Check.equal(client.readString(), DIRECTORY.getAbsolutePath(), "directory");
            Check.equal(client.in.readInt(), 4711, "process");
            Check.equal(client.in.readInt(), 3600, "limit");
            Check.equal(client.in.read(), -1, "rest");
        }
    }

    static void testASequenceIsServedWithoutBytesOfItsOwn() throws Exception {
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_PACKET_SEQUENCE_START);
            for (int i = 0; i < 3; i++) {
                client.request(Protocol.PACKET_GET_STATUS_REQ).ok();
                Check.equal(client.in.readLong(), 0x600L, "status");
            }
            client.request(Protocol.PACKET_PACKET_SEQUENCE_END);
            client.out.flush();
            Check.equal(client.in.read(), -1, "bytes behind the sequence");
        }
    }

    static void testGarbageAndHalfRequestsHurtNobody() throws Exception {
        Random random = new Random(11);
        int[] types = {100102, 100300, 101000, 101001, 102301, 103500, 104006, 104700, 104800,
                       105000, 105101, 105201, 105300, 105500, 99,     0,      1};
        for (int i = 0; i < 300; i++) {
            byte[] garbage = new byte[random.nextInt(200)];
            random.nextBytes(garbage);
            try (AgentClient client = client()) {
                if (i % 4 != 0) {
                    client.request(types[random.nextInt(types.length)]);
                }
                client.out.write(garbage);
                client.out.flush();
                if (i % 5 == 0) {
                    client.socket.setSoLinger(true, 0);
                }
            } catch (IOException closedMeanwhile) {
                // the agent has hung up already, which it may
            }
        }
        checkServes("garbage");
    }

    static void testWrongMagicIsClosedWithoutAnAnswer() throws Exception {
        try (AgentClient client = client()) {
            client.out.writeBytes("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
            client.out.flush();
            checkEnds(client, "an HTTP request");
        }
        checkServes("an HTTP request");
    }

    static void testUnknownTypesAreAnsweredAlsoWithMoreBehind() throws Exception {
        try (AgentClient client = client()) {
            client.request(4242);
            client.out.write(new byte[20000]);
            Check.equal(
                    client.error(),
                    "Unknown packet type: 4242. Reason: profiler agent and client version mismatch",
                    "answer");
        }
    }

    static void testHugeLengthsEndTheConnection() throws Exception {
        for (int length : new int[] {0x7fffffff, -2, 0x1000001}) {
            try (AgentClient client = client()) {
                client.request(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ).out.writeInt(length);
                client.out.flush();
                Check.equal(client.in.read(), -1, "bytes for the length " + length);
            }
        }
        checkServes("huge lengths");
    }

    private static AgentClient tables(int mask, int... words) throws IOException {
        AgentClient client = client();
        client.request(Protocol.PACKET_UPDATE_DATABASE_TABLES).out.writeInt(mask);
        for (int word : words) {
            client.out.writeInt(word);
        }
        return client;
    }

    static void testTableRequestsReachTheNative() throws Exception {
        try (AgentClient client = tables(0x8002, 5, 6, 40, 1, 127, 2, -1)) {
            client.ok();
            Check.equal(Integer.reverseBytes(client.in.readInt()), 0x8002, "mask");
            Check.equal(Integer.reverseBytes(client.in.readInt()), 128, "limit");
            Check.equal(client.in.readInt(), -1, "end mark");
        }
        for (int bad : new int[] {128, 31, 0, -2}) {
            try (AgentClient client = tables(0, bad)) {
                Check.equal(client.error(), "Invalid table index: " + bad, "answer");
            }
        }
        try (AgentClient client = tables(1 << 12, 0, -1)) {
            Check.equal(client.error(), "Invalid table index: 12",
                        "the table that stays in memory");
        }
    }

    static void testMissingAbilitiesAreAnsweredWithTheirText() throws Exception {
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_CALIBRATE).out.writeBoolean(true);
            Check.equal(client.error(), "CPU tracing is not available in this version of the agent",
                        "calibration");
        }
        Check.equal(Callback.getCalibrationResult(), 0L, "calibration is no longer under way");
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_SET_TRIGGERS);
            client.string("TimerListener delay=10s\n  ForceGC\n");
            client.out.writeBoolean(false);
            Check.contains(client.error(), "triggers are not available", "triggers");
        }
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_SET_TRIGGERS);
            client.string("# a comment\n\n  ForceGC\n");
            client.out.writeBoolean(false);
            client.ok();
        }
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_GET_TRIGGERS).ok();
            Check.equal(client.readString(), "", "triggers");
        }
    }

    private static AgentClient capture(long flags, String directory, String pattern)
            throws IOException {
        AgentClient client = client();
        client.request(Protocol.PACKET_CAPTURE_SNAPSHOT_REQ).out.writeLong(flags);
        client.string(directory);
        client.string(pattern);
        return client;
    }

    private static String captured(String pattern, byte[] content) throws IOException {
        FakeNatives.ourSnapshotContent = content;
        try (AgentClient client = capture(0, "", pattern)) {
            Check.equal(client.header(), Protocol.PACKET_PROGRESS, "progress first");
            Check.equal(client.in.readInt(), 42, "percent");
            client.ok();
            return client.readString();
        }
    }

    static void testCapturesAreNumbered() throws Exception {
        Check.equal(captured("cap", new byte[3]), DIRECTORY + "/cap.snapshot", "first");
        Check.equal(captured("cap", new byte[3]), DIRECTORY + "/cap-1.snapshot", "second");
        Check.equal(captured("sub/x", new byte[3]), DIRECTORY + "/sub/x.snapshot",
                    "in a directory");
        try (AgentClient client = capture(0, "public", "p")) {
            client.ok();
            Check.equal(client.readString(), DIRECTORY + "/Public/p.snapshot", "public");
        }
    }

    static void testFailedCapturesAreAnsweredWithTheirText() throws Exception {
        File file = Files.write(new File(DIRECTORY, "file"), "x");
        try (AgentClient client = capture(0, file.getPath(), "x")) {
            Check.equal(client.error(), "The snapshot directory is not a directory: " + file,
                        "a file");
        }
        try (AgentClient client = capture(0, "", "file/x")) {
            Check.equal(client.error(),
                        "Path to snapshot directory does not represent a directory: " + file,
                        "below a file");
        }
        try (AgentClient client = capture(0, "", "file/x/y")) {
            Check.equal(client.error(), "Snapshot directory does not exist: " + file + "/x",
                        "far below a file");
        }
        FakeNatives.ourCaptureFailure = "No space left on device";
        try (AgentClient client = capture(0, "", "full")) {
            client.header();
            client.in.readInt();
            Check.equal(client.error(),
                        "Cannot capture snapshot " + DIRECTORY +
                                "/full.snapshot: No space left on device",
                        "full disk");
        } finally {
            FakeNatives.ourCaptureFailure = null;
        }
    }

    private static AgentClient transfer(int type, String path) throws IOException {
        AgentClient client = client();
        client.request(type);
        client.string(path);
        return client;
    }

    static void testOnlySnapshotsAreTransferred() throws Exception {
        File secret = Files.write(new File(DIRECTORY, "secret.snapshot"), "secret");
        try (AgentClient client =
                     transfer(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ, secret.getPath())) {
            Check.equal(client.error(), "File cannot be transferred: unknown snapshot " + secret,
                        "unknown");
        }
        File gone = new File(DIRECTORY, "Public/gone.snapshot");
        try (AgentClient client = transfer(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ, gone.getPath())) {
            Check.equal(client.error(), "The file to transfer does not exist: " + gone, "gone");
        }
        File open = Files.write(new File(DIRECTORY, "Public/open.txt"), "open");
        try (AgentClient client = transfer(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ, open.getPath())) {
            client.ok();
            Check.equal(client.in.readLong(), 4L, "length");
        }
    }

    /** Reads blocks until length bytes are restored, then the rest of the connection. */
    private static byte[] inflate(DataInputStream in, long length) throws Exception {
        ByteArrayOutputStream result = new ByteArrayOutputStream();
        int chunks = 0;
        while (result.size() < length) {
            Inflater inflater = new Inflater(true);
            byte[] buffer = new byte[131072];
            for (int n = in.readInt(); n != 0; n = in.readInt()) {
                Check.isTrue(n > 0 && n <= 65536, "size of a block: " + n);
                byte[] block = new byte[n];
                in.readFully(block);
                inflater.setInput(block);
                for (int got = inflater.inflate(buffer); got > 0; got = inflater.inflate(buffer)) {
                    result.write(buffer, 0, got);
                }
            }
            inflater.end();
            chunks++;
        }
        Check.equal(chunks, (int) ((length + 131071) / 131072), "chunks of " + length);
        Check.equal(in.read(), -1, "bytes behind the file");
        return result.toByteArray();
    }

    static void testTransfersGiveTheFileBack() throws Exception {
        Random random = new Random(3);
        for (int size : new int[] {0, 1, 65536, 131071, 131072, 131073, 1000000}) {
            byte[] content = new byte[size];
            random.nextBytes(content);
            Arrays.fill(content, 0, size / 2, (byte) 5);
            String path = captured("size" + size, content);
            try (AgentClient client = transfer(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ, path)) {
                client.ok();
                Check.equal(client.in.readLong(), (long) size, "length");
                byte[] seen = new byte[size];
                client.in.readFully(seen);
                Check.isTrue(Arrays.equals(seen, content), "plain content of " + size);
                Check.equal(client.in.read(), -1, "rest");
            }
            try (AgentClient client =
                         transfer(Protocol.PACKET_TRANSFER_SNAPSHOT_COMPRESSED_REQ, path)) {
                client.ok();
                Check.equal(client.in.readLong(), (long) size, "length");
                Check.isTrue(Arrays.equals(inflate(client.in, size), content),
                             "compressed content of " + size);
            }
        }
    }

    static void testTransferrableSnapshotsAreListed() throws Exception {
        String known = captured("listed", new byte[10]);
        Files.write(new File(DIRECTORY, "unlisted.snapshot"), "x");
        Files.write(new File(DIRECTORY, "Public/listed.hprof"), "x");
        boolean seenKnown = false;
        boolean seenPublic = false;
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_GET_TRANSFERRABLE_SNAPSHOTS).ok();
            for (int count = client.in.readInt(); count > 0; count--) {
                String path = client.readString();
                Check.isTrue(!client.readString().isEmpty(), "digest");
                long size = client.in.readLong();
                Check.equal(size, new File(path).length(), "size");
                Check.equal(client.in.readLong(), new File(path).lastModified(), "date");
                long flags = client.in.readLong();
                Check.isTrue(!path.endsWith("/unlisted.snapshot"), "a file that nobody knows");
                seenKnown |= path.equals(known);
                seenPublic |= path.endsWith("/Public/listed.hprof") &&
                              flags == (Constants.SNAPSHOT_HPROF | Constants.SNAPSHOT_WITH_HEAP);
            }
        }
        Check.isTrue(seenKnown && seenPublic, "known " + seenKnown + ", public " + seenPublic);
    }

    static void testThreadDumpNamesThreadsAndLocks() throws Exception {
        final Object lock = new Object();
        Thread waiter = new Thread("the waiter") {
            @Override
            public void run() {
                synchronized (lock) {
                    checkWaits(lock);
                }
            }
        };
        waiter.setDaemon(true);
        waiter.start();
        while (waiter.getState() != Thread.State.WAITING) {
            Thread.sleep(5);
        }
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_GET_JVM_THREAD_DUMP_REQ).ok();
            String dump = client.readString();
            Check.contains(dump, "\"the waiter\" daemon prio=5 id=" + waiter.getId() + " WAITING\n",
                           "head of a thread");
            Check.contains(dump, "\t- waiting on <0x", "lock");
            Check.contains(dump, "checkWaits", "frame");
        }
    }

    private static void checkWaits(Object lock) {
        try {
            lock.wait();
        } catch (InterruptedException e) {
            // the end of the test
        }
    }

    static void testTheHeapDumpOptionIsSetAndReported() throws Exception {
        Check.equal(OOMEDumper.getStatus(), OOMEDumper.STATUS_DISABLED, "before");
        OOMEDumper.enable();
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_OOME_DUMPER_GET_STATUS_REQ).ok();
            Check.equal(client.in.readInt(), OOMEDumper.STATUS_ENABLED, "after");
        }
        Check.isTrue(!FakeNatives.LOG.toString().contains("Heap dump"), "log " + FakeNatives.LOG);
    }

    static void testHeapDumpsInHprofForm() throws Exception {
        try (AgentClient client = capture(Constants.SNAPSHOT_HPROF | 1, "", "dump")) {
            client.ok();
            File file = new File(client.readString());
            Check.equal(file, new File(DIRECTORY, "dump.hprof"), "path");
            Check.isTrue(file.length() > 100000, "size " + file.length());
        }
    }

    static void testHundredClientsInTurn() throws Exception {
        for (int i = 0; i < 100; i++) {
            checkServes("client " + i);
        }
    }

    static void testSilentClientsAreDroppedAndTheNextIsServed() throws Exception {
        ControlSocket.ourFirstRequestMs = 300;
        ControlSocket.ourReadStallMs = 300;
        try (AgentClient silent = client(); AgentClient half = client();
             AgentClient inside = client()) {
            half.out.writeInt(0);
            half.out.flush();
            inside.request(Protocol.PACKET_SET_TRIGGERS).out.writeInt(1000);
            inside.out.flush();
            checkEnds(silent, "the silent one");
            checkEnds(half, "half a header");
            checkEnds(inside, "half a request");
        } finally {
            beServedPatiently();
        }
        checkServes("silent clients");
    }

    static void testARequestInDropsHasAnEnd() throws Exception {
        ControlSocket.ourRequestMs = 500;
        try (AgentClient slow = client()) {
            slow.request(Protocol.PACKET_SET_TRIGGERS).out.writeInt(1000);
            slow.out.flush();
            long start = System.nanoTime();
            try {
                while (System.nanoTime() - start < 60000000000L) {
                    slow.out.write('x');
                    slow.out.flush();
                    Thread.sleep(20);
                }
                throw new AssertionError("the connection was kept");
            } catch (IOException expected) {
                // the agent has hung up
            }
        } finally {
            beServedPatiently();
        }
        checkServes("a slow client");
    }

    static void testAClientThatStopsReadingIsDropped() throws Exception {
        String path = captured("large", new byte[64 * 1024 * 1024]);
        ControlSocket.ourWriteStallMs = 300;
        try (AgentClient deaf = transfer(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ, path)) {
            deaf.out.flush();
            Thread.sleep(50);
            checkServes("a client that doesn't read");
        } finally {
            beServedPatiently();
        }
    }

    static void testATakenPortIsRefusedWithItsMessage() {
        boolean started = Core._init(Core.ourPort, "", "", 0, true, false);
        Check.isTrue(!started, "started twice on one port");
        String last = FakeNatives.LOG.get(FakeNatives.LOG.size() - 1);
        Check.contains(last, "Cannot start: cannot listen on port " + Core.ourPort + ": ", "log");
        Check.contains(last, "Address already in use", "log");
    }

    static void testHostsAreResolvedAndBound() throws Exception {
        new ControlServerSocket(false, 0, "[127.0.0.1]").close();
        ControlServerSocket server = new ControlServerSocket(false, 0, "127.0.0.1");
        Check.isTrue(server.getLocalPort() > 0, "port");
        server.close();
        server = new ControlServerSocket(false, 0, null);
        Check.isTrue(server.getLocalPort() > 0, "port of any address");
        server.close();
        try {
            new ControlServerSocket(false, 0, "no.such.host.invalid").close();
            throw new AssertionError("bound");
        } catch (IOException e) {
            Check.contains(e.getMessage(), "no.such.host.invalid", "message");
        }
    }
}
