package com.vandrik.runtime;

import com.vandrik.util.ThreadUtil;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/**
 * The listening socket of the control channel. The agent starts ahead of the application's main
 * method, which may still choose between IPv4 and IPv6 or install a socket factory; a
 * java.net.ServerSocket made here would settle both, so the socket is a native one.
 */
final class ControlServerSocket {
    private static final int BACKLOG = 50;

    // Waits between two looks for a client: 1 ms after the last client, doubled every 8 looks.
    private static final int LOOKS_PER_WAIT = 8;
    private static final int LONGEST_WAIT_MS = 100;
    private static final int LOOKS_WHEN_IDLE = 7 * LOOKS_PER_WAIT;

    /** Connections that have not sent a header yet. One more costs the oldest its place. */
    private static final int MAX_SILENT = 64;

    private final int myDescriptor;
    private final int myPort;

    /** Those connections, the oldest first. The request thread alone uses it. */
    private final List<ControlSocket> mySilent = new ArrayList<ControlSocket>();

    /** Looks since the last client. */
    private int myLooks = LOOKS_WHEN_IDLE;

    /**
     * Listens on the address of {@code host}, or on the loopback address, or without either on
     * every address of the machine. Port 0 takes any free one.
     */
    ControlServerSocket(boolean onlyLocal, int port, String host) throws IOException {
        boolean ipv4Only = "true".equals(System.getProperty("java.net.preferIPv4Stack"));
        long result = ControlSocket.listen(host, onlyLocal, ipv4Only, port, BACKLOG);
        myPort = (int) (result >>> 32);
        myDescriptor = (int) result;
    }

    int getLocalPort() {
        return myPort;
    }

    /**
     * Waits for the next client that speaks, asleep between looks. A thread that waits in native
     * code would hold up the end of the JVM: it gives such threads 0.3 s to come back.
     */
    ControlSocket accept() throws IOException {
        while (true) {
            boolean isSomeoneNew = takeNext();
            ControlSocket speaking = takeSpeaking();
            if (speaking != null) {
                myLooks = 0;
                return speaking;
            }
            if (isSomeoneNew) {
                myLooks = 0;
                continue;
            }
            dropSilent();
            ThreadUtil.sleep(Math.min(1 << myLooks / LOOKS_PER_WAIT, LONGEST_WAIT_MS));
            myLooks = Math.min(myLooks + 1, LOOKS_WHEN_IDLE);
        }
    }

    /** Takes in one connection, if somebody connects. */
    private boolean takeNext() throws IOException {
        int descriptor = ControlSocket.accept(myDescriptor, ControlSocket.ourWriteStallMs);
        if (descriptor < 0) {
            return false;
        }
        if (mySilent.size() >= MAX_SILENT) {
            mySilent.remove(0).close();
        }
        mySilent.add(new ControlSocket(descriptor));
        return true;
    }

    private ControlSocket takeSpeaking() {
        for (int i = 0; i < mySilent.size(); i++) {
            if (mySilent.get(i).hasSpoken()) {
                return mySilent.remove(i);
            }
        }
        return null;
    }

    private void dropSilent() {
        for (int i = mySilent.size() - 1; i >= 0; i--) {
            if (mySilent.get(i).isGone() || mySilent.get(i).isFirstRequestOverdue()) {
                mySilent.remove(i).close();
            }
        }
    }

    /** Those that have not spoken yet lose their connections. */
    void close() {
        ControlSocket.close(myDescriptor);
        for (ControlSocket silent : mySilent) {
            silent.close();
        }
        mySilent.clear();
    }
}
