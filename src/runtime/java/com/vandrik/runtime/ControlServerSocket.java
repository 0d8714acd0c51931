package com.vandrik.runtime;

import com.vandrik.util.ThreadUtil;
import java.io.IOException;

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

    private final int myDescriptor;
    private final int myPort;

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
     * Waits for the next client, asleep between looks. A thread that waits in native code would
     * hold up the end of the JVM: it gives such threads 0.3 s to come back.
     */
    ControlSocket accept() throws IOException {
        while (true) {
            int descriptor = ControlSocket.accept(myDescriptor, ControlSocket.ourWriteStallMs);
            if (descriptor >= 0) {
                myLooks = 0;
                return new ControlSocket(descriptor);
            }
            ThreadUtil.sleep(Math.min(1 << myLooks / LOOKS_PER_WAIT, LONGEST_WAIT_MS));
            myLooks = Math.min(myLooks + 1, LOOKS_WHEN_IDLE);
        }
    }

    void close() {
        ControlSocket.close(myDescriptor);
    }
}
