package com.vandrik.runtime;

import java.io.IOException;
import java.io.InputStream;

/** What a client sends. */
final class ControlInputStream extends InputStream {
    private final ControlSocket mySocket;
    private final byte[] myOne = new byte[1];

    ControlInputStream(ControlSocket socket) {
        mySocket = socket;
    }

    @Override
    public int read() throws IOException {
        return read(myOne, 0, 1) < 0 ? -1 : myOne[0] & 255;
    }

    @Override
    public int read(byte[] bytes, int offset, int length) throws IOException {
        return mySocket.read(bytes, offset, length);
    }
}
