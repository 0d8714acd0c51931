package com.vandrik.probes.builtin;

import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Param;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.Table;
import com.vandrik.probes.This;
import java.io.RandomAccessFile;

/**
 * Files that are read and written at random. How many methods one transfer passes differs between
 * releases of the JDK: the outermost makes the row.
 */
public final class RandomAccessFiles {
    static final FileTables FILES = new FileTables("Random Access Files");

    static final Transfers READS = new StreamTransfers("Reads", FILES.myOpened);
    static final Transfers WRITES = new StreamTransfers("Writes", FILES.myOpened);

    static final Transfers CHANNEL_READS = new ChannelTransfers("Channel Reads", FILES.myOpened);
    static final Transfers CHANNEL_WRITES = new ChannelTransfers("Channel Writes", FILES.myOpened);
    static final Transfers TRANSFERS_FROM =
            new ChannelTransfers("Transfers from Channel", FILES.myOpened);
    static final Transfers TRANSFERS_TO =
            new ChannelTransfers("Transfers to Channel", FILES.myOpened);

    private RandomAccessFiles() {
    }

    @MethodPattern("java.io.RandomAccessFile:open(String, int)")
    public static final class Open {
        private Open() {
        }

        public static void onReturn(@This RandomAccessFile file, @Param(1) String name) {
            try {
                FILES.opened(file, name);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }

        public static void onUncaughtException(@Param(1) String name) {
            try {
                FILES.failed(name);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.io.RandomAccessFile:close()")
    public static final class Close {
        private Close() {
        }

        public static void onEnter(@This RandomAccessFile file) {
            try {
                FILES.closed(file);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.io.RandomAccessFile:read()")
    public static final class Read {
        private Read() {
        }

        public static int onEnter(@This RandomAccessFile object) {
            try {
                return READS.begin(object, FILES.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This RandomAccessFile object, @OnEnterResult int row,
                                    @ReturnValue int value) {
            Transfers.end(object, row, value < 0 ? 0 : 1);
        }

        public static void onUncaughtException(@This RandomAccessFile object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern({"java.io.RandomAccessFile:readBytes(byte[], int, int)",
                    "java.io.RandomAccessFile:read(byte[])",
                    "java.io.RandomAccessFile:read(byte[], int, int)"})
    public static final class ReadBytes {
        private ReadBytes() {
        }

        public static int onEnter(@This RandomAccessFile object) {
            try {
                return READS.begin(object, FILES.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This RandomAccessFile object, @OnEnterResult int row,
                                    @ReturnValue int bytes) {
            Transfers.end(object, row, bytes);
        }

        public static void onUncaughtException(@This RandomAccessFile object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern("java.io.RandomAccessFile:write(int)")
    public static final class Write {
        private Write() {
        }

        public static int onEnter(@This RandomAccessFile object) {
            try {
                return WRITES.begin(object, FILES.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This RandomAccessFile object, @OnEnterResult int row) {
            Transfers.end(object, row, 1);
        }

        public static void onUncaughtException(@This RandomAccessFile object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern("java.io.RandomAccessFile:write(byte[])")
    public static final class WriteArray {
        private WriteArray() {
        }

        public static int onEnter(@This RandomAccessFile object) {
            try {
                return WRITES.begin(object, FILES.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This RandomAccessFile object, @OnEnterResult int row,
                                    @Param(1) byte[] bytes) {
            Transfers.end(object, row, bytes.length);
        }

        public static void onUncaughtException(@This RandomAccessFile object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern({"java.io.RandomAccessFile:writeBytes(byte[], int, int)",
                    "java.io.RandomAccessFile:write(byte[], int, int)"})
    public static final class WriteBytes {
        private WriteBytes() {
        }

        public static int onEnter(@This RandomAccessFile object) {
            try {
                return WRITES.begin(object, FILES.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This RandomAccessFile object, @OnEnterResult int row,
                                    @Param(3) int length) {
            Transfers.end(object, row, length);
        }

        public static void onUncaughtException(@This RandomAccessFile object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    /** A byte for each character. */
    @MethodPattern("java.io.RandomAccessFile:writeBytes(String)")
    public static final class WriteText {
        private WriteText() {
        }

        public static int onEnter(@This RandomAccessFile object) {
            try {
                return WRITES.begin(object, FILES.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This RandomAccessFile object, @OnEnterResult int row,
                                    @Param(1) String text) {
            Transfers.end(object, row, text.length());
        }

        public static void onUncaughtException(@This RandomAccessFile object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern("java.io.RandomAccessFile:writeChars(String)")
    public static final class WriteChars {
        private WriteChars() {
        }

        public static int onEnter(@This RandomAccessFile object) {
            try {
                return WRITES.begin(object, FILES.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This RandomAccessFile object, @OnEnterResult int row,
                                    @Param(1) String text) {
            Transfers.end(object, row, 2L * text.length());
        }

        public static void onUncaughtException(@This RandomAccessFile object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }
}
