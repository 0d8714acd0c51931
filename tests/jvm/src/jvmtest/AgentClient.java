package jvmtest;

import java.io.BufferedInputStream;
import java.io.BufferedOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.net.InetAddress;
import java.net.Socket;
import java.net.SocketException;
import java.nio.charset.StandardCharsets;

/** One connection to an agent, framed by hand and apart from the product's own code. */
public final class AgentClient implements AutoCloseable {
    public static final long MAGIC = 123456789L;
    public static final int GET_STATUS = 100000;
    public static final int START_CPU = 100300;
    public static final int STOP_CPU = 100400;
    public static final int FORCE_GC = 100500;
    public static final int TRANSFER = 101000;
    public static final int TRANSFER_COMPRESSED = 101001;
    public static final int THREAD_DUMP = 101300;
    public static final int HEAP_DUMP_STATUS = 101700;
    public static final int AGENT_INFO = 102400;
    public static final int START_MONITORS = 102600;
    public static final int STOP_MONITORS = 102700;
    public static final int SEQUENCE_START = 103300;
    public static final int SEQUENCE_END = 103400;
    public static final int UPDATE_TABLES = 103500;
    public static final int CLEAR_CPU = 103700;
    public static final int CAPTURE_SNAPSHOT = 104006;
    public static final int MESSAGE = 104800;
    public static final int SET_PROBES = 105000;
    public static final int RETRANSFORM = 105201;
    public static final int REGISTER_PROBES = 105300;
    public static final int GET_TRIGGERS = 105400;
    public static final int SET_TRIGGERS = 105500;
    public static final int LIST_SNAPSHOTS = 105600;
    public static final int FREE_UNUSED = 105700;
    public static final int PREPARE_RECORDING = 105900;
    public static final int CALLS_PROGRESS = 105910;
    public static final int PROGRESS = 100600;

    public final Socket socket;
    public final DataInputStream in;
    public final DataOutputStream out;

    public AgentClient(int port) throws IOException {
        socket = new Socket(InetAddress.getLoopbackAddress(), port);
        socket.setSoTimeout(Check.LIMIT_SECONDS * 1000);
        in = new DataInputStream(new BufferedInputStream(socket.getInputStream()));
        out = new DataOutputStream(new BufferedOutputStream(socket.getOutputStream()));
    }

    public AgentClient request(int type) throws IOException {
        out.writeLong(MAGIC);
        out.writeInt(type);
        return this;
    }

    public AgentClient string(String text) throws IOException {
        if (text == null) {
            out.writeInt(-1);
            return this;
        }
        byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
        out.writeInt(bytes.length);
        out.write(bytes);
        return this;
    }

    public String readString() throws IOException {
        int length = in.readInt();
        if (length < 0) {
            return null;
        }
        byte[] bytes = new byte[length];
        in.readFully(bytes);
        return new String(bytes, StandardCharsets.UTF_8);
    }

    /** Type of the next packet. */
    public int header() throws IOException {
        out.flush();
        Check.equal(in.readLong(), MAGIC, "magic");
        return in.readInt();
    }

    /** Type of the next packet that tells no progress. */
    public int headerBehindProgress() throws IOException {
        int type = header();
        while (type == PROGRESS) {
            in.readInt();
            type = header();
        }
        return type;
    }

    /** Reads a header that must say OK; fails with the agent's words otherwise. */
    public AgentClient ok() throws IOException {
        int type = headerBehindProgress();
        if (type == 0) {
            throw new AssertionError("the agent answers: " + readString());
        }
        Check.equal(type, 1, "packet type");
        return this;
    }

    /** The agent hangs up without an answer; what it had not read yet makes that a reset. */
    public boolean isHungUp() throws IOException {
        try {
            return in.read() == -1;
        } catch (SocketException reset) {
            return true;
        }
    }

    /** Reads a header that must say error; gives its text. */
    public String error() throws IOException {
        Check.equal(headerBehindProgress(), 0, "packet type of an error");
        return readString();
    }

    public void startSampling(String filters, String wallTime) throws IOException {
        startCPU(4, filters, wallTime);
    }

    public void startTracing(String filters, String wallTime) throws IOException {
        startCPU(12, filters, wallTime);
    }

    public void startCPU(long mode, String filters, String wallTime) throws IOException {
        request(START_CPU);
        out.writeLong(mode);
        string(filters);
        string(wallTime);
        ok();
    }

    /** Asks for a snapshot; its answer is the path. */
    public AgentClient capture(long flags, String directory, String pattern) throws IOException {
        request(CAPTURE_SNAPSHOT).out.writeLong(flags);
        string(directory);
        string(pattern);
        return this;
    }

    /** Asks for the core tables of mask, each from its stamp, and applies what comes to tables. */
    public void updateTables(int mask, Tables tables) throws IOException {
        request(UPDATE_TABLES);
        out.writeInt(mask);
        for (int slot = 0; slot < 32; slot++) {
            if ((mask >>> slot & 1) != 0) {
                out.writeInt(tables.stamp(slot));
            }
        }
        out.writeInt(-1);
        ok();
        tables.read(in);
    }

    @Override
    public void close() throws IOException {
        socket.close();
    }
}
