package cases;

import fixtures.Burn;
import fixtures.Idle;
import fixtures.ThreadStarts;
import java.io.IOException;
import java.net.Socket;
import java.net.SocketTimeoutException;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;

/** The control channel under clients of all kinds. */
public final class ProtocolCases {
    private static final int ALL = 0x7efff;

    private ProtocolCases() {
    }

    private static void checkServes(Target target, String after) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.GET_STATUS).ok();
            Check.isTrue((client.in.readLong() & 0x200) != 0, "status after " + after);
        }
    }

    @Case(fixture = Idle.class, agent = "sessionname=a b")
    static void tellsAboutItself(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.AGENT_INFO).ok();
            Check.equal(client.in.readInt(), 20110815, "protocol version");
            Check.equal(client.readString(), Tool.PRODUCT, "product");
            long capabilities = client.in.readLong();
            Check.equal((capabilities & 0x400) != 0, target.attached,
                        "attached bit of " + capabilities);
            Check.equal(client.readString(), "a b", "session name");
            client.in.readLong();
            client.readString();
            Check.equal(client.readString(), target.folder.toString(), "snapshot directory");
            Check.equal((long) client.in.readInt(), target.pid(), "process id");
            Check.equal(client.in.readInt(), 3600, "telemetry limit");
            Check.equal(client.in.read(), -1, "bytes behind");
        }
        Check.equal(heapDumpStatus(target), 2, "heap dumps are switched on");
        target.finish();
    }

    private static int heapDumpStatus(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            return client.request(AgentClient.HEAP_DUMP_STATUS).ok().in.readInt();
        }
    }

    @Case(fixture = Idle.class)
    static void survivesGarbageHalfPacketsAndHugeLengths(Target target) throws Exception {
        Random random = new Random(7);
        for (int i = 0; i < 100; i++) {
            byte[] garbage = new byte[random.nextInt(3000)];
            random.nextBytes(garbage);
            try (AgentClient client = target.client()) {
                if (i % 3 > 0) {
                    client.out.writeLong(AgentClient.MAGIC);
                }
                if (i % 3 > 1) {
                    int[] types = {100102, 100300, 101000, 101001, 102301, 103500,
                                   104006, 104700, 104800, 105000, 105101, 105201,
                                   105300, 105400, 105500, 99,     0,      1};
                    client.out.writeInt(types[random.nextInt(types.length)]);
                }
                client.out.write(garbage);
                client.out.flush();
                if (i % 5 == 0) {
                    client.socket.setSoLinger(true, 0);
                }
            } catch (IOException closedMeanwhile) {
                continue; // the agent has hung up already, which it may
            }
        }
        checkServes(target, "garbage");
        for (int length : new int[] {0x7fffffff, -2, 0x1000001}) {
            try (AgentClient client = target.client()) {
                client.request(AgentClient.TRANSFER).out.writeInt(length);
                client.out.flush();
                Check.isTrue(client.isHungUp(), "no bytes for the length " + length);
            }
        }
        checkServes(target, "a huge length");
        try (AgentClient client = target.client()) {
            client.out.writeBytes("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
            client.out.flush();
            Check.isTrue(client.isHungUp(), "no bytes for a wrong magic number");
        }
        try (AgentClient client = target.client()) {
            client.request(99).out.write(new byte[20000]);
            Check.equal(
                    client.error(),
                    "Unknown packet type: 99. Reason: profiler agent and client version mismatch",
                    "unknown packet");
        }
        try (AgentClient client = target.client()) {
            client.request(AgentClient.UPDATE_TABLES);
            for (int word : new int[] {2, 0, 40, 1, 127, 2, -1}) { // one core table, two of probes
                client.out.writeInt(word);
            }
            client.ok();
        }
        for (int[] request : new int[][] {{0, 128}, {0, 31}, {0, 0}, {0, -2}, {1 << 12, 12}}) {
            try (AgentClient client = target.client()) {
                client.request(AgentClient.UPDATE_TABLES).out.writeInt(request[0]);
                client.out.writeInt(request[0] == 0 ? request[1] : 0);
                client.out.writeInt(-1);
                Check.equal(client.error(), "Invalid table index: " + request[1], "table index");
            }
        }
        target.finish();
    }

    @Case(fixture = Burn.class)
    static void serves100ClientsInTurnAndSomeThatVanish(Target target) throws Exception {
        try (AgentClient client = target.client()) {
            client.startSampling("", "");
        }
        for (int i = 0; i < 100; i++) {
            try (AgentClient client = target.client()) {
                if (i % 2 == 0) {
                    client.updateTables(ALL, new Tables());
                } else {
                    client.request(AgentClient.UPDATE_TABLES).out.writeInt(0);
                    client.out.flush();
                    client.socket.setSoLinger(true, 0);
                }
            }
        }
        checkServes(target, "100 clients");
        target.finish();
    }

    @Case(fixture = Idle.class, attach = false)
    static void silentClientsDoNotHoldThePort(Target target) throws Exception {
        List<AgentClient> silent = new ArrayList<>();
        try {
            for (int i = 0; i < 100; i++) {
                AgentClient client = target.client();
                silent.add(client);
                if (i % 2 == 0) {
                    client.out.writeInt(0); // the begin of a header
                    client.out.flush();
                }
            }
            checkServes(target, "silent clients");
            Socket last = silent.get(silent.size() - 1).socket;
            last.setSoTimeout(1);
            try {
                Check.isTrue(last.getInputStream().read() >= 0,
                             "served only after the silent ones");
            } catch (SocketTimeoutException e) {
                // as it should be: it may still speak
            }
            Check.equal(silent.get(1).in.read(), -1, "bytes for a silent client");
        } finally {
            for (AgentClient client : silent) {
                client.close();
            }
        }
        target.finish();
    }

    /**
     * One that another program stopped, for instance: the kernel takes what fits into its buffers.
     */
    @Case(fixture = ThreadStarts.class, attach = false)
    static void aClientThatReadsNothingHoldsNoThreadUp(Target target) throws Exception {
        fillTables(target, 16000, 2000);
        try (AgentClient stopped = target.client()) {
            stopped.request(AgentClient.UPDATE_TABLES).out.writeInt(1);
            stopped.out.writeInt(0);
            stopped.out.writeInt(-1);
            stopped.ok();
            stopped.in.mark(1);
            stopped.in.read(); // the tables are on their way
            stopped.in.reset();
            target.ask("start", "heard start");
            String took = target.output().replaceAll("(?s).*start took (\\d+)\n.*", "$1");
            Check.isTrue(Long.parseLong(took) < 5000, "a thread started in " + took + " ms");
            Tables tables = new Tables();
            tables.read(stopped.in);
            Check.isTrue(tables.rows.get(Tables.STRING).size() > 16000, "the tables are whole");
        }
        target.finish();
    }

    /** Texts of messages, each its own. */
    private static void fillTables(Target target, int count, int length) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.SEQUENCE_START);
            for (int i = 0; i < count; i++) {
                client.request(AgentClient.MESSAGE);
                client.string("test");
                client.string(i + "x".repeat(length));
                client.string(null);
                client.ok();
            }
            client.request(AgentClient.SEQUENCE_END).out.flush();
            Check.equal(client.in.read(), -1, "bytes behind the sequence");
        }
    }

    /** What the JVM was told about heap dumps is left to who told it. */
    @Case(fixture = Burn.class, jvm = "-XX:-HeapDumpOnOutOfMemoryError")
    static void dumpsThreadsAndCollectsGarbage(Target target) throws Exception {
        Check.equal(heapDumpStatus(target), 1, "heap dumps are left off");
        try (AgentClient client = target.client()) {
            String dump = client.request(AgentClient.THREAD_DUMP).ok().readString();
            for (String part : new String[] {"\"waiter\" daemon prio=5 id=", " WAITING\n",
                                             "\t- waiting on <0x", "fixtures.Burn.await"}) {
                Check.contains(dump, part, "thread dump");
            }
        }
        try (AgentClient client = target.client()) {
            client.request(AgentClient.FORCE_GC).ok();
            long before = client.in.readLong();
            long after = client.in.readLong();
            Check.isTrue(before > 0 && after > 0, before + " " + after);
        }
        target.finish();
    }
}
