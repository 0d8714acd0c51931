package com.vandrik.runtime;

import java.io.IOException;

/**
 * One connection of the control channel, on a descriptor of its own that native code writes to as
 * well. All waits are bounded, because one client at a time is served: a client that falls silent,
 * sends a request byte by byte, or stops reading an answer loses its connection. So is what a
 * request may hold.
 */
final class ControlSocket {
    /** Longest wait for the first byte of a request, unless a sequence of requests is running. */
    static final int FIRST_REQUEST_MS = 10000;

    /** Longest wait for the next request of a sequence. */
    static final int NEXT_REQUEST_MS = 60000;

    /** Longest wait for more bytes of a request that has begun. */
    static final int READ_STALL_MS = 10000;

    /** Longest time from the first byte of a request to its last. */
    static final int REQUEST_MS = 60000;

    /** Longest wait until a client takes more of an answer; also the send timeout of the socket. */
    static final int WRITE_STALL_MS = 10000;

    /** An answer that waited this long for the client must flow at MIN_BYTES_PER_SECOND. */
    private static final long SLOW_ANSWER_MS = 30000;

    private static final int MIN_BYTES_PER_SECOND = 4096;

    /** A request may hold several texts of the largest size. */
    private static final int MAX_REQUEST_BYTES = 4 * Packet.MAX_LENGTH;

    /** Longest wait for the end of a refused request, so that the refusal isn't lost. */
    private static final int FINISH_MS = 1000;

    // The limits in force; tests shorten them.
    static volatile int ourFirstRequestMs = FIRST_REQUEST_MS;
    static volatile int ourReadStallMs = READ_STALL_MS;
    static volatile int ourRequestMs = REQUEST_MS;
    static volatile int ourWriteStallMs = WRITE_STALL_MS;

    private final int myDescriptor;
    private boolean myClosed;
    private int myFirstByteMs = ourFirstRequestMs;

    /** When the request must have arrived, on the scale of System.nanoTime; 0 while none began. */
    private long myRequestDeadlineNs;

    private final long myAcceptedNs = System.nanoTime();

    private int myHeaderState;
    private long myReadBytes;
    private long myWrittenBytes;
    private long myWriteWaitNs;

    ControlSocket(int descriptor) {
        myDescriptor = descriptor;
    }

    /** For native code that writes to this connection; 0 once it is closed. */
    synchronized int getDescriptor() {
        return myClosed ? 0 : myDescriptor;
    }

    /** A new request is due; its first byte may take {@code firstByteMs}. */
    void expectRequest(int firstByteMs) {
        myFirstByteMs = firstByteMs;
        myRequestDeadlineNs = 0;
        myReadBytes = 0;
        myWrittenBytes = 0;
        myWriteWaitNs = 0;
    }

    /** Whether the client can be served without a wait for its first request. */
    boolean hasSpoken() {
        myHeaderState = lookForHeader(myDescriptor, Protocol.MAGIC);
        return myHeaderState > 0;
    }

    /** Whether the last look found that the client is gone. */
    boolean isGone() {
        return myHeaderState < 0;
    }

    /** Why the client is not served; null if it is. */
    String getRefusal() {
        return getRefusal(myDescriptor);
    }

    boolean isFirstRequestOverdue() {
        return System.nanoTime() - myAcceptedNs > ourFirstRequestMs * 1000000L;
    }

    /** As in InputStream: at least one byte, or -1 at the end. */
    int read(byte[] bytes, int offset, int length) throws IOException {
        if (length == 0) {
            return 0;
        }
        long now = System.nanoTime();
        int limit = myFirstByteMs;
        if (myRequestDeadlineNs != 0) {
            long leftMs = (myRequestDeadlineNs - now) / 1000000;
            if (leftMs <= 0) {
                throw new IOException("the request took longer than " + ourRequestMs + " ms");
            }
            limit = (int) Math.min(ourReadStallMs, leftMs);
        }
        if (myReadBytes > MAX_REQUEST_BYTES) {
            throw new IOException("the request is longer than " + MAX_REQUEST_BYTES + " bytes");
        }
        int count = read(myDescriptor, bytes, offset, length, limit);
        myReadBytes += count;
        if (myRequestDeadlineNs == 0) {
            myRequestDeadlineNs = System.nanoTime() + ourRequestMs * 1000000L;
        }
        return count;
    }

    void write(byte[] bytes, int offset, int length) throws IOException {
        long start = System.nanoTime();
        write(myDescriptor, bytes, offset, length, ourWriteStallMs);
        myWriteWaitNs += System.nanoTime() - start;
        myWrittenBytes += length;
        long waitMs = myWriteWaitNs / 1000000;
        if (waitMs > SLOW_ANSWER_MS && myWrittenBytes < waitMs / 1000 * MIN_BYTES_PER_SECOND) {
            throw new IOException("the client reads too slowly");
        }
    }

    /**
     * Tells the client that no more comes and takes in what it has yet to send. Closing with unread
     * bytes would reset the connection, and the answer could be lost with it.
     */
    void finish() {
        finish(myDescriptor, FINISH_MS);
    }

    /**
     * The same for a client that may not hold up others at all: what it sent so far is taken in.
     */
    void finishAtOnce() {
        finish(myDescriptor, 0);
    }

    synchronized void close() {
        if (!myClosed) {
            myClosed = true;
            close(myDescriptor);
        }
    }

    // Natives in ControlSocketNatives.cpp, registered by name.

    /** Gives the port in the upper half and the descriptor in the lower. */
    static native long listen(String host, boolean onlyLocal, boolean ipv4Only, int port,
                              int backlog) throws IOException;

    /** A descriptor, or -1 if nobody waits. */
    static native int accept(int server, int sendTimeoutMs) throws IOException;

    /**
     * 1 if a header with this magic, or what can't become one, waits to be read; 0 if it may come
     * yet; -1 if nothing came and nothing will.
     */
    static native int lookForHeader(int descriptor, long magic);

    /** Why this client is not served; null if it is. */
    static native String getRefusal(int descriptor);

    /** Whether clients of other users are refused. */
    static native boolean servesOnlyItsUser();

    static native int read(int descriptor, byte[] bytes, int offset, int length, int timeoutMs)
            throws IOException;

    static native void write(int descriptor, byte[] bytes, int offset, int length, int stallMs)
            throws IOException;

    static native void finish(int descriptor, int timeoutMs);

    static native void close(int descriptor);
}
