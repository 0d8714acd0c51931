package com.vandrik.runtime;

import java.io.IOException;
import java.io.OutputStream;

/** What a client is sent. */
final class ControlOutputStream extends OutputStream {
    private final ControlSocket mySocket;
    private final byte[] myOne = new byte[1];

    ControlOutputStream(ControlSocket socket) {
        mySocket = socket;
    }

    @Override
    public void write(int value) throws IOException {
        myOne[0] = (byte) value;
        write(myOne, 0, 1);
    }

    @Override
    public void write(byte[] bytes, int offset, int length) throws IOException {
        mySocket.write(bytes, offset, length);
    }
}
