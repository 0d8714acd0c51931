package com.vandrik.probes.builtin;

import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Param;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.Table;
import com.vandrik.probes.This;
import java.io.FileInputStream;
import java.io.FileOutputStream;

/**
 * Files that are read and written through streams. Streams of a file descriptor, such as those of
 * the console and of child processes, have no row, and their transfers have none either.
 */
public final class FileStreams {
    static final FileTables INPUT = new FileTables("File Input Streams");
    static final FileTables OUTPUT = new FileTables("File Output Streams");

    static final Transfers READS = new StreamTransfers("Reads", INPUT.myOpened);
    static final Transfers WRITES = new StreamTransfers("Writes", OUTPUT.myOpened);

    static final Transfers CHANNEL_READS = new ChannelTransfers("Channel Reads", INPUT.myOpened);
    static final Transfers CHANNEL_WRITES = new ChannelTransfers("Channel Writes", OUTPUT.myOpened);
    static final Transfers TRANSFERS_FROM =
            new ChannelTransfers("Transfers from Channel", OUTPUT.myOpened);
    static final Transfers TRANSFERS_TO =
            new ChannelTransfers("Transfers to Channel", INPUT.myOpened);

    private FileStreams() {
    }

    @MethodPattern("java.io.FileInputStream:open(String)")
    public static final class InputOpen {
        private InputOpen() {
        }

        public static void onReturn(@This FileInputStream stream, @Param(1) String name) {
            try {
                INPUT.opened(stream, name);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }

        public static void onUncaughtException(@Param(1) String name) {
            try {
                INPUT.failed(name);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern({"java.io.FileOutputStream:open(String)",
                    "java.io.FileOutputStream:open(String, boolean)"})
    public static final class OutputOpen {
        private OutputOpen() {
        }

        public static void onReturn(@This FileOutputStream stream, @Param(1) String name) {
            try {
                OUTPUT.opened(stream, name);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }

        public static void onUncaughtException(@Param(1) String name) {
            try {
                OUTPUT.failed(name);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.io.FileInputStream:close()")
    public static final class InputClose {
        private InputClose() {
        }

        public static void onEnter(@This FileInputStream stream) {
            try {
                INPUT.closed(stream);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.io.FileOutputStream:close()")
    public static final class OutputClose {
        private OutputClose() {
        }

        public static void onEnter(@This FileOutputStream stream) {
            try {
                OUTPUT.closed(stream);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.io.FileInputStream:read()")
    public static final class Read {
        private Read() {
        }

        public static int onEnter(@This FileInputStream object) {
            try {
                return READS.begin(object, INPUT.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This FileInputStream object, @OnEnterResult int row,
                                    @ReturnValue int value) {
            Transfers.end(object, row, value < 0 ? 0 : 1);
        }

        public static void onUncaughtException(@This FileInputStream object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern({"java.io.FileInputStream:readBytes(byte[], int, int)",
                    "java.io.FileInputStream:read(byte[])",
                    "java.io.FileInputStream:read(byte[], int, int)"})
    public static final class ReadBytes {
        private ReadBytes() {
        }

        public static int onEnter(@This FileInputStream object) {
            try {
                return READS.begin(object, INPUT.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This FileInputStream object, @OnEnterResult int row,
                                    @ReturnValue int bytes) {
            Transfers.end(object, row, bytes);
        }

        public static void onUncaughtException(@This FileInputStream object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern("java.io.FileOutputStream:write(int)")
    public static final class Write {
        private Write() {
        }

        public static int onEnter(@This FileOutputStream object) {
            try {
                return WRITES.begin(object, OUTPUT.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This FileOutputStream object, @OnEnterResult int row) {
            Transfers.end(object, row, 1);
        }

        public static void onUncaughtException(@This FileOutputStream object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern("java.io.FileOutputStream:write(byte[])")
    public static final class WriteArray {
        private WriteArray() {
        }

        public static int onEnter(@This FileOutputStream object) {
            try {
                return WRITES.begin(object, OUTPUT.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This FileOutputStream object, @OnEnterResult int row,
                                    @Param(1) byte[] bytes) {
            Transfers.end(object, row, bytes.length);
        }

        public static void onUncaughtException(@This FileOutputStream object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }

    @MethodPattern({"java.io.FileOutputStream:writeBytes(byte[], int, int)",
                    "java.io.FileOutputStream:write(byte[], int, int)"})
    public static final class WriteBytes {
        private WriteBytes() {
        }

        public static int onEnter(@This FileOutputStream object) {
            try {
                return WRITES.begin(object, OUTPUT.myRows);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@This FileOutputStream object, @OnEnterResult int row,
                                    @Param(3) int length) {
            Transfers.end(object, row, length);
        }

        public static void onUncaughtException(@This FileOutputStream object,
                                               @OnEnterResult int row) {
            Transfers.end(object, row, 0);
        }
    }
}
