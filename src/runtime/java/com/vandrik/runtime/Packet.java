package com.vandrik.runtime;

import com.vandrik.util.Strings;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.EOFException;
import java.io.IOException;
import java.util.Arrays;

/**
 * Framing and primitive types of the control channel, all big-endian. A packet is the magic, a type
 * and the fields of that type; there is no length, so a reader knows from the type what follows.
 */
public final class Packet {
    /** Longest string or block that is accepted; a longer one can only be a broken request. */
    public static final int MAX_LENGTH = 16 * 1024 * 1024;

    /** An array of this size is made on the word of the other side; a larger one grows. */
    private static final int TRUSTED_LENGTH = 64 * 1024;

    private Packet() {
    }

    public static void writeInt(DataOutputStream out, int value) throws IOException {
        out.writeInt(value);
    }

    public static int readInt(DataInputStream in) throws IOException {
        return in.readInt();
    }

    public static void writeLong(DataOutputStream out, long value) throws IOException {
        out.writeLong(value);
    }

    public static long readLong(DataInputStream in) throws IOException {
        return in.readLong();
    }

    public static void writeBoolean(DataOutputStream out, boolean value) throws IOException {
        out.writeByte(value ? 1 : 0);
    }

    /** Only 1 is true. */
    public static boolean readBoolean(DataInputStream in) throws IOException {
        return in.readByte() == 1;
    }

    public static void writeString(DataOutputStream out, String text) throws IOException {
        if (text == null) {
            out.writeInt(-1);
        } else {
            writeStringNotNull(out, text);
        }
    }

    public static void writeStringNotNull(DataOutputStream out, String text) throws IOException {
        byte[] bytes = text.getBytes(Strings.UTF8);
        out.writeInt(bytes.length);
        out.write(bytes);
    }

    /** May give null. */
    public static String readString(DataInputStream in) throws IOException, PresentableException {
        int length = in.readInt();
        if (length == -1) {
            return null;
        }
        return new String(readBlock(in, length, "string"), Strings.UTF8);
    }

    public static String readStringNotNull(DataInputStream in)
            throws IOException, PresentableException {
        String text = readString(in);
        if (text == null) {
            throw incorrectData("Unexpected null string");
        }
        return text;
    }

    public static void writeBytes(DataOutputStream out, byte[] bytes, int count)
            throws IOException {
        out.write(bytes, 0, count);
    }

    /** One read; gives the number of bytes read, which may be less than the array's size. */
    public static int readBytes(DataInputStream in, byte[] bytes) throws IOException {
        return in.read(bytes);
    }

    /**
     * Reads exactly {@code length} bytes. Memory grows with what really arrives, so that a large
     * length alone costs nothing.
     */
    static byte[] readBlock(DataInputStream in, int length, String what)
            throws IOException, PresentableException {
        if (length < 0) {
            throw incorrectData("Negative " + what + " length: " + length);
        }
        if (length > MAX_LENGTH) {
            throw incorrectData("Cannot allocate " + length + " bytes");
        }
        byte[] bytes = new byte[Math.min(length, TRUSTED_LENGTH)];
        int used = 0;
        while (used < length) {
            if (used == bytes.length) {
                bytes = grow(bytes, length);
            }
            int count = in.read(bytes, used, bytes.length - used);
            if (count < 0) {
                throw new EOFException("connection ended inside a " + what);
            }
            used += count;
        }
        return bytes;
    }

    private static byte[] grow(byte[] bytes, int limit) throws PresentableException {
        try {
            return Arrays.copyOf(bytes, (int) Math.min(2L * bytes.length, limit));
        } catch (OutOfMemoryError e) {
            throw incorrectData("Cannot allocate " + limit + " bytes");
        }
    }

    static PresentableException incorrectData(String detail) {
        return new PresentableException(Protocol.INCORRECT_DATA_MESSAGE, detail);
    }

    public static void writeHeader(DataOutputStream out) throws IOException {
        writeHeader(out, Protocol.PACKET_OK_RESP);
    }

    public static void writeHeader(DataOutputStream out, int type) throws IOException {
        out.writeLong(Protocol.MAGIC);
        out.writeInt(type);
    }

    /** Gives the type of the packet; an error packet becomes an exception with its text. */
    public static int readHeader(DataInputStream in, String incompatibleMessage)
            throws IOException, PresentableException {
        long magic = in.readLong();
        if (magic != Protocol.MAGIC) {
            throw new IOException("Invalid header magic number:" + magic);
        }
        int type = in.readInt();
        if (type != Protocol.PACKET_ERROR_RESP) {
            return type;
        }
        String text = readStringNotNull(in);
        if (text.startsWith(Protocol.UNKNOWN_PACKET_TYPE)) {
            throw new PresentableException(incompatibleMessage, text);
        }
        throw new PresentableException(text);
    }

    public static void readHeader(DataInputStream in, int expected, String incompatibleMessage)
            throws IOException, PresentableException {
        int type = readHeader(in, incompatibleMessage);
        if (type != expected) {
            throw new PresentableException(incompatibleMessage,
                                           "Wrong packet type: " + type + ", expected " + expected);
        }
    }

    public static void readHeaderWithStandardResponse(DataInputStream in)
            throws IOException, PresentableException {
        readHeader(in, Protocol.PACKET_OK_RESP, Protocol.INCOMPATIBLE_AGENT_MESSAGE);
    }

    /** Answers with an error and flushes. */
    public static void writeError(DataOutputStream out, String text) throws IOException {
        writeHeader(out, Protocol.PACKET_ERROR_RESP);
        writeString(out, text);
        out.flush();
    }
}
