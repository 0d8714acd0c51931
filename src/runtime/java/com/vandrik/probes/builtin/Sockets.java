package com.vandrik.probes.builtin;

import com.vandrik.probes.JVM;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.ObjectRowIndexMap;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Param;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;
import com.vandrik.probes.This;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.InetSocketAddress;
import java.net.Socket;
import java.net.SocketAddress;
import java.nio.channels.SocketChannel;

/**
 * Connections of sockets: made, accepted, and what is sent and received. A connection that can't be
 * made has no row. The streams of a socket count where the program calls them, below a layer of
 * TLS; a socket that stands on a channel counts in the channel.
 */
public final class Sockets {
    private static final Connections CONNECTIONS = new Connections();

    /** Connections by socket or channel, and by the streams of a socket. */
    private static final ObjectRowIndexMap ROWS = new ObjectRowIndexMap();

    private static final Transfers READS = new StreamTransfers("Stream Reads", CONNECTIONS);
    private static final Transfers WRITES = new StreamTransfers("Stream Writes", CONNECTIONS);
    private static final Transfers CHANNEL_READS =
            new ChannelTransfers("Channel Reads", CONNECTIONS);
    private static final Transfers CHANNEL_WRITES =
            new ChannelTransfers("Channel Writes", CONNECTIONS);

    private Sockets() {
    }

    /** An application's class could do anything when it is asked for its text. */
    static String textOf(SocketAddress address) {
        return address == null || address.getClass().getClassLoader() != null ? null
                                                                              : address.toString();
    }

    static void opened(SocketChannel channel) throws IOException {
        if (channel != null && JVM.isLivePhase() && !ROWS.containsKey(channel)) {
            opened(channel, textOf(channel.getRemoteAddress()));
        }
    }

    static void accepted(Socket socket) {
        if (socket == null || !JVM.isLivePhase() || ROWS.containsKey(socket)) {
            return;
        }
        boolean isOfJdk = socket.getClass().getClassLoader() == null;
        opened(socket, isOfJdk ? textOf(socket.getRemoteSocketAddress()) : null);
    }

    /** Once for each connection, though several woven methods may tell of it. */
    static void opened(Object connection, String address) {
        if (!JVM.isLivePhase()) {
            return;
        }
        synchronized (ROWS) {
            if (ROWS.containsKey(connection)) {
                return;
            }
            int row = CONNECTIONS.createRow();
            if (Rows.exists(row)) {
                CONNECTIONS.myAddress.setValue(row, address);
                ROWS.put(connection, row);
            }
        }
    }

    static void belongs(Object stream, Object socket) {
        if (stream == null || !JVM.isLivePhase()) {
            return;
        }
        int row = ROWS.get(socket);
        if (Rows.exists(row)) {
            ROWS.put(stream, row);
        }
    }

    static void closed(Object connection) {
        if (!JVM.isLivePhase()) {
            return;
        }
        int row = ROWS.remove(connection);
        if (Rows.exists(row)) {
            CONNECTIONS.closeRow(row);
        }
    }

    /** What goes from a file to a connection, or comes from one, without its own methods. */
    static void beginTransfer(Object channel, boolean isRead) {
        (isRead ? CHANNEL_READS : CHANNEL_WRITES).begin(channel, ROWS);
    }

    static final class Connections extends Table {
        final StringColumn myAddress = new StringColumn("Address");

        Connections() {
            super("Socket Connections", MASK_FOR_GENERIC_LASTING_EVENTS);
        }
    }

    @MethodPattern("java.net.Socket:connect(java.net.SocketAddress, int)")
    public static final class Connect {
        private Connect() {
        }

        public static void onReturn(@This Socket socket, @Param(1) SocketAddress address) {
            try {
                opened(socket, textOf(address));
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.net.Socket:close()")
    public static final class Close {
        private Close() {
        }

        public static void onEnter(@This Socket socket) {
            try {
                closed(socket);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.net.ServerSocket:accept()")
    public static final class Accept {
        private Accept() {
        }

        public static void onReturn(@ReturnValue Socket socket) {
            try {
                accepted(socket);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.net.ServerSocket:implAccept(java.net.Socket)")
    public static final class ImplAccept {
        private ImplAccept() {
        }

        public static void onReturn(@Param(1) Socket socket) {
            try {
                accepted(socket);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.net.Socket:getInputStream()")
    public static final class Input {
        private Input() {
        }

        public static void onReturn(@This Socket socket, @ReturnValue InputStream stream) {
            try {
                belongs(stream, socket);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.net.Socket:getOutputStream()")
    public static final class Output {
        private Output() {
        }

        public static void onReturn(@This Socket socket, @ReturnValue OutputStream stream) {
            try {
                belongs(stream, socket);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern({"java.net.SocketInputStream:read(byte[], int, int)",
                    "java.net.Socket$SocketInputStream:read(byte[], int, int)"})
    public static final class Read {
        private Read() {
        }

        public static int onEnter(@This Object object) {
            try {
                return READS.begin(object, ROWS);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object object, @OnEnterResult int row,
                                    @ReturnValue int bytes) {
            Transfers.end(object, row, bytes);
        }

        public static void onUncaughtException(@This Object object, @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern({"java.net.SocketOutputStream:socketWrite(byte[], int, int)",
                    "java.net.Socket$SocketOutputStream:write(byte[], int, int)"})
    public static final class Write {
        private Write() {
        }

        public static int onEnter(@This Object object) {
            try {
                return WRITES.begin(object, ROWS);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object object, @OnEnterResult int row,
                                    @Param(3) int length) {
            Transfers.end(object, row, length);
        }

        public static void onUncaughtException(@This Object object, @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern({"sun.nio.ch.SocketChannelImpl:connect(java.net.SocketAddress)",
                    "sun.nio.ch.SocketChannelImpl:finishConnect()"})
    public static final class ChannelConnect {
        private ChannelConnect() {
        }

        public static void onReturn(@This Object channel, @ReturnValue boolean connected) {
            try {
                if (connected) {
                    opened((SocketChannel) channel);
                }
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("sun.nio.ch.SocketChannelImpl:blockingConnect(*)")
    public static final class BlockingConnect {
        private BlockingConnect() {
        }

        public static void onReturn(@This Object channel) {
            try {
                opened((SocketChannel) channel);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern({"sun.nio.ch.ServerSocketChannelImpl:accept()",
                    "sun.nio.ch.ServerSocketChannelImpl:blockingAccept(*)"})
    public static final class ChannelAccept {
        private ChannelAccept() {
        }

        public static void onReturn(@ReturnValue SocketChannel channel) {
            try {
                opened(channel);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("sun.nio.ch.SocketChannelImpl:implCloseSelectableChannel()")
    public static final class ChannelClose {
        private ChannelClose() {
        }

        public static void onEnter(@This Object channel) {
            try {
                closed(channel);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern({"sun.nio.ch.SocketChannelImpl:read(*) int",
                    "sun.nio.ch.SocketChannelImpl:blockingRead(*) int"})
    public static final class ChannelRead {
        private ChannelRead() {
        }

        public static int onEnter(@This Object object) {
            try {
                return CHANNEL_READS.begin(object, ROWS);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object object, @OnEnterResult int row,
                                    @ReturnValue int bytes) {
            Transfers.end(object, row, bytes);
        }

        public static void onUncaughtException(@This Object object, @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern("sun.nio.ch.SocketChannelImpl:read(*) long")
    public static final class ChannelReadMany {
        private ChannelReadMany() {
        }

        public static int onEnter(@This Object object) {
            try {
                return CHANNEL_READS.begin(object, ROWS);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object object, @OnEnterResult int row,
                                    @ReturnValue long bytes) {
            Transfers.end(object, row, bytes);
        }

        public static void onUncaughtException(@This Object object, @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern("sun.nio.ch.SocketChannelImpl:write(*) int")
    public static final class ChannelWrite {
        private ChannelWrite() {
        }

        public static int onEnter(@This Object object) {
            try {
                return CHANNEL_WRITES.begin(object, ROWS);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object object, @OnEnterResult int row,
                                    @ReturnValue int bytes) {
            Transfers.end(object, row, bytes);
        }

        public static void onUncaughtException(@This Object object, @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern("sun.nio.ch.SocketChannelImpl:write(*) long")
    public static final class ChannelWriteMany {
        private ChannelWriteMany() {
        }

        public static int onEnter(@This Object object) {
            try {
                return CHANNEL_WRITES.begin(object, ROWS);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object object, @OnEnterResult int row,
                                    @ReturnValue long bytes) {
            Transfers.end(object, row, bytes);
        }

        public static void onUncaughtException(@This Object object, @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern("sun.nio.ch.SocketChannelImpl:blockingWriteFully(byte[], int, int)")
    public static final class ChannelWriteFully {
        private ChannelWriteFully() {
        }

        public static int onEnter(@This Object object) {
            try {
                return CHANNEL_WRITES.begin(object, ROWS);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object object, @OnEnterResult int row,
                                    @Param(3) int length) {
            Transfers.end(object, row, length);
        }

        public static void onUncaughtException(@This Object object, @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }
}
