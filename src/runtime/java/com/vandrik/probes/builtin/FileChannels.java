package com.vandrik.probes.builtin;

import com.vandrik.probes.JVM;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.ObjectRowIndexMap;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Param;
import com.vandrik.probes.Params;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.Table;
import com.vandrik.probes.This;
import java.io.FileInputStream;
import java.io.FileOutputStream;
import java.io.RandomAccessFile;
import java.nio.channels.FileChannel;
import java.nio.channels.ReadableByteChannel;
import java.nio.channels.WritableByteChannel;
import java.nio.file.StandardOpenOption;
import java.util.Set;

/**
 * Channels of files. Each belongs to the row of the stream or the random access file that gave it;
 * a channel that was opened by itself has a row there too, by what it may do: read, write, or both.
 *
 * <p>What goes from one channel to another has a row at either end, if it belongs to one.
 */
public final class FileChannels {
    private static final int READS = 0;
    private static final int WRITES = 1;
    private static final int TRANSFERS_FROM = 2;
    private static final int TRANSFERS_TO = 3;

    private static final int INPUT = 0;
    private static final int OUTPUT = 1;
    private static final int RANDOM_ACCESS = 2;
    private static final int OWNERS = 3;

    /** The owner of each channel: its row and which of the above it is, in one number. */
    private static final ObjectRowIndexMap CHANNELS = new ObjectRowIndexMap();

    /** By owner and what is done; null where an owner can't do that. */
    private static final Transfers[][] TRANSFERS = {
            {FileStreams.CHANNEL_READS, null, null, FileStreams.TRANSFERS_TO},
            {null, FileStreams.CHANNEL_WRITES, FileStreams.TRANSFERS_FROM, null},
            {RandomAccessFiles.CHANNEL_READS, RandomAccessFiles.CHANNEL_WRITES,
             RandomAccessFiles.TRANSFERS_FROM, RandomAccessFiles.TRANSFERS_TO}};

    private FileChannels() {
    }

    private static FileTables tablesOf(int owner) {
        switch (owner) {
        case INPUT:
            return FileStreams.INPUT;
        case OUTPUT:
            return FileStreams.OUTPUT;
        default:
            return RandomAccessFiles.FILES;
        }
    }

    static void belongs(FileChannel channel, int owner, Object file) {
        if (channel == null || !JVM.isLivePhase()) {
            return;
        }
        int row = tablesOf(owner).myRows.get(file);
        if (Rows.exists(row)) {
            CHANNELS.put(channel, row * OWNERS + owner);
        }
    }

    /** The second parameter is the path, then two tell what it may do; a stream is the last. */
    static void opened(FileChannel channel, Object[] parameters) {
        if (channel == null || parameters.length < 4 || parameters[parameters.length - 1] != null) {
            return;
        }
        boolean reads = Boolean.TRUE.equals(parameters[2]);
        boolean writes = Boolean.TRUE.equals(parameters[3]);
        int owner = !writes ? INPUT : reads ? RANDOM_ACCESS : OUTPUT;
        int row = tablesOf(owner).opened(channel, (String) parameters[1]);
        if (Rows.exists(row)) {
            CHANNELS.put(channel, row * OWNERS + owner);
        }
    }

    static void openFailed(Object path, Set<?> options) {
        boolean writes = options != null && (options.contains(StandardOpenOption.WRITE) ||
                                             options.contains(StandardOpenOption.APPEND));
        boolean reads = options != null && options.contains(StandardOpenOption.READ);
        tablesOf(!writes ? INPUT : reads ? RANDOM_ACCESS : OUTPUT).failed(String.valueOf(path));
    }

    /** A channel of a stream has no row of its own: it ends with its stream. */
    static void closed(Object channel) {
        if (!JVM.isLivePhase()) {
            return;
        }
        int owner = CHANNELS.remove(channel);
        if (owner >= 0) {
            tablesOf(owner % OWNERS).closed(channel);
        }
    }

    static int begin(Object channel, int kind) {
        int owner = CHANNELS.get(channel);
        Transfers table = owner < 0 ? null : TRANSFERS[owner % OWNERS][kind];
        return table == null ? Table.NO_ROW : table.begin(channel, owner / OWNERS);
    }

    /** The other channel's row begins behind that of the channel, and ends with it. */
    static int begin(Object channel, int kind, Object other, int kindOfOther) {
        int row = begin(channel, kind);
        if (row != Table.NO_ROW && CHANNELS.containsKey(other)) {
            begin(other, kindOfOther);
        } else if (row != Table.NO_ROW) {
            Sockets.beginTransfer(other, kindOfOther == TRANSFERS_TO);
        }
        return row;
    }

    @MethodPattern("java.io.FileInputStream:getChannel()")
    public static final class InputChannel {
        private InputChannel() {
        }

        public static void onReturn(@This FileInputStream file, @ReturnValue FileChannel channel) {
            try {
                belongs(channel, INPUT, file);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.io.FileOutputStream:getChannel()")
    public static final class OutputChannel {
        private OutputChannel() {
        }

        public static void onReturn(@This FileOutputStream file, @ReturnValue FileChannel channel) {
            try {
                belongs(channel, OUTPUT, file);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.io.RandomAccessFile:getChannel()")
    public static final class RandomAccessChannel {
        private RandomAccessChannel() {
        }

        public static void onReturn(@This RandomAccessFile file, @ReturnValue FileChannel channel) {
            try {
                belongs(channel, RANDOM_ACCESS, file);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("sun.nio.ch.FileChannelImpl:open(*)")
    public static final class Open {
        private Open() {
        }

        public static void onReturn(@Params Object[] parameters, @ReturnValue FileChannel channel) {
            try {
                opened(channel, parameters);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("sun.nio.fs.UnixChannelFactory:newFileChannel(int, sun.nio.fs.UnixPath, *)")
    public static final class OpenFails {
        private OpenFails() {
        }

        public static void onUncaughtException(@Param(2) Object path, @Param(3) Set<?> options,
                                               @Param(4) Set<?> optionsOf17) {
            try {
                openFailed(path, options == null ? optionsOf17 : options);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("sun.nio.ch.FileChannelImpl:implCloseChannel()")
    public static final class Close {
        private Close() {
        }

        public static void onEnter(@This Object channel) {
            try {
                closed(channel);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("sun.nio.ch.FileChannelImpl:read(*) int")
    public static final class Read {
        private Read() {
        }

        public static int onEnter(@This Object channel) {
            try {
                return begin(channel, READS);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object channel, @OnEnterResult int row,
                                    @ReturnValue int bytes) {
            Transfers.end(channel, row, bytes);
        }

        public static void onUncaughtException(@This Object channel, @OnEnterResult int row) {
            Transfers.end(channel, row, 0);
        }
    }

    @MethodPattern("sun.nio.ch.FileChannelImpl:read(*) long")
    public static final class ReadMany {
        private ReadMany() {
        }

        public static int onEnter(@This Object channel) {
            try {
                return begin(channel, READS);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object channel, @OnEnterResult int row,
                                    @ReturnValue long bytes) {
            Transfers.end(channel, row, bytes);
        }

        public static void onUncaughtException(@This Object channel, @OnEnterResult int row) {
            Transfers.end(channel, row, 0);
        }
    }

    @MethodPattern("sun.nio.ch.FileChannelImpl:write(*) int")
    public static final class Write {
        private Write() {
        }

        public static int onEnter(@This Object channel) {
            try {
                return begin(channel, WRITES);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object channel, @OnEnterResult int row,
                                    @ReturnValue int bytes) {
            Transfers.end(channel, row, bytes);
        }

        public static void onUncaughtException(@This Object channel, @OnEnterResult int row) {
            Transfers.end(channel, row, 0);
        }
    }

    @MethodPattern("sun.nio.ch.FileChannelImpl:write(*) long")
    public static final class WriteMany {
        private WriteMany() {
        }

        public static int onEnter(@This Object channel) {
            try {
                return begin(channel, WRITES);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object channel, @OnEnterResult int row,
                                    @ReturnValue long bytes) {
            Transfers.end(channel, row, bytes);
        }

        public static void onUncaughtException(@This Object channel, @OnEnterResult int row) {
            Transfers.end(channel, row, 0);
        }
    }

    @MethodPattern("sun.nio.ch.FileChannelImpl:transferTo(*)")
    public static final class TransferTo {
        private TransferTo() {
        }

        public static int onEnter(@This Object channel, @Param(3) WritableByteChannel other) {
            try {
                return begin(channel, TRANSFERS_TO, other, TRANSFERS_FROM);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object channel, @Param(3) WritableByteChannel other,
                                    @OnEnterResult int row, @ReturnValue long bytes) {
            Transfers.end(channel, row, other, bytes);
        }

        public static void onUncaughtException(@This Object channel,
                                               @Param(3) WritableByteChannel other,
                                               @OnEnterResult int row) {
            Transfers.end(channel, row, other, 0);
        }
    }

    @MethodPattern("sun.nio.ch.FileChannelImpl:transferFrom(*)")
    public static final class TransferFrom {
        private TransferFrom() {
        }

        public static int onEnter(@This Object channel, @Param(1) ReadableByteChannel other) {
            try {
                return begin(channel, TRANSFERS_FROM, other, TRANSFERS_TO);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This Object channel, @Param(1) ReadableByteChannel other,
                                    @OnEnterResult int row, @ReturnValue long bytes) {
            Transfers.end(channel, row, other, bytes);
        }

        public static void onUncaughtException(@This Object channel,
                                               @Param(1) ReadableByteChannel other,
                                               @OnEnterResult int row) {
            Transfers.end(channel, row, other, 0);
        }
    }
}
