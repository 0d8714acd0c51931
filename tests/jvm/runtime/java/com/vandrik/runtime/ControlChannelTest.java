package com.vandrik.runtime;

import java.io.File;
import java.io.IOException;
import jvmtest.AgentClient;
import jvmtest.Check;

/**
 * The limits of the control channel, in this JVM: on one of its own nobody can wait for them. All
 * else is tried on profiled JVMs.
 */
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

    static void testSilentClientsAreDroppedAndTheNextIsServed() throws Exception {
        ControlSocket.ourFirstRequestMs = 300;
        ControlSocket.ourReadStallMs = 300;
        try (AgentClient silent = client(); AgentClient half = client();
             AgentClient inside = client()) {
            half.out.writeInt(0);
            half.out.flush();
            inside.request(Protocol.PACKET_SET_TRIGGERS).out.writeInt(1000);
            inside.out.flush();
            Check.isTrue(silent.isHungUp(), "the silent one");
            Check.isTrue(half.isHungUp(), "half a header");
            Check.isTrue(inside.isHungUp(), "half a request");
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
        File large = Files.write(new File(DIRECTORY, "Public/large"), new byte[64 * 1024 * 1024]);
        ControlSocket.ourWriteStallMs = 300;
        try (AgentClient deaf = client()) {
            deaf.request(Protocol.PACKET_TRANSFER_SNAPSHOT_REQ).string(large.getPath()).ok();
            checkServes("a client that doesn't read");
        } finally {
            beServedPatiently();
        }
    }

    static void testACalibrationThatFailsIsNoLongerUnderWay() throws Exception {
        try (AgentClient client = client()) {
            client.request(Protocol.PACKET_CALIBRATE).out.writeBoolean(true);
            Check.equal(client.error(), "CPU tracing is not available in this version of the agent",
                        "calibration");
        }
        Check.equal(Callback.getCalibrationResult(), 0L, "calibration is no longer under way");
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
