package com.vandrik.probes.builtin;

import com.vandrik.probes.IntColumn;
import com.vandrik.probes.JVM;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.ObjectRowIndexMap;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Param;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;
import com.vandrik.probes.This;
import java.io.FileInputStream;
import java.io.FileOutputStream;
import java.io.InputStream;
import java.io.OutputStream;
import java.util.Map;

/**
 * Child processes: what was started, how it ended, and what went through its pipes. The bytes are
 * those that the pipes carried: the streams that a program gets have buffers, and what a child has
 * written is taken from its pipe when it ends, whether it is read or not.
 */
public final class Processes {
    /** In "Exit Code" while it is not known. */
    private static final int UNKNOWN = -1;

    private static final ProcessTable PROCESSES = new ProcessTable();
    private static final ObjectRowIndexMap ROWS = new ObjectRowIndexMap();

    /** Exit codes of those that ended before they had a row. */
    private static final ObjectRowIndexMap EXIT_CODES = new ObjectRowIndexMap();

    /** Rows of processes by their streams. */
    private static final ObjectRowIndexMap STREAMS = new ObjectRowIndexMap();

    /** Most programs start no process, and then reads and writes of files cost little. */
    private static volatile boolean ourHasStreams;

    private static final Transfers INPUT = new StreamTransfers("Input Operations", PROCESSES);
    private static final Transfers OUTPUT = new StreamTransfers("Output Operations", PROCESSES);

    /** What the current thread is about to start. */
    private static final ThreadLocal<Start> STARTING = new ThreadLocal<Start>();

    private Processes() {
    }

    /** The child runs by now, and nobody waits for its end yet: all that it writes will count. */
    static void addPipe(Object stream) {
        Start start = STARTING.get();
        if (start != null && Rows.exists(start.getRow())) {
            remember(stream, start.getRow());
        }
    }

    private static void remember(Object stream, int row) {
        STREAMS.put(stream, row);
        ourHasStreams = true;
    }

    static int begin(Transfers table, Object stream) {
        return ourHasStreams ? table.begin(stream, STREAMS) : Table.NO_ROW;
    }

    static void started(Process process) {
        Start start = STARTING.get();
        STARTING.remove();
        if (!JVM.isLivePhase() || start == null || process == null ||
            !Rows.exists(start.getRow())) {
            return;
        }
        if (!hasEnded(process, start.getRow())) {
            ExitWatch.watch(process, start.getRow());
        }
    }

    /** Remembers the row; gives whether the process has ended already. */
    private static boolean hasEnded(Object process, int row) {
        synchronized (ROWS) {
            ROWS.put(process, row);
            if (!EXIT_CODES.containsKey(process)) {
                return false;
            }
        }
        ended(process, EXIT_CODES.remove(process));
        return true;
    }

    static void ended(Object process, int exitCode) {
        if (!JVM.isLivePhase()) {
            return;
        }
        int row;
        synchronized (ROWS) {
            row = ROWS.remove(process);
            if (row == Table.NO_ROW) {
                EXIT_CODES.put(process, exitCode);
                return;
            }
        }
        PROCESSES.myExitCode.setValue(row, exitCode);
        PROCESSES.closeRow(row);
    }

    /** The system says that it has ended; what the JVM says comes first or not at all. */
    static void endedUnseen(int row) {
        if (!PROCESSES.isRowClosed(row)) {
            PROCESSES.closeRow(row);
        }
    }

    /** For JVMs whose processes give streams of files without buffers. */
    static void belongs(Object stream, Object process) {
        if (!JVM.isLivePhase() ||
            !(stream instanceof FileInputStream || stream instanceof FileOutputStream)) {
            return;
        }
        int row = ROWS.get(process);
        if (Rows.exists(row)) {
            remember(stream, row);
        }
    }

    /** Makes the row when the child is there: a start that fails has none. */
    private static final class Start {
        private final String[] myCommand;
        private final Map<?, ?> myEnvironment;
        private final String myDirectory;
        private boolean myHasRow;
        private int myRow;

        Start(String[] command, Map<?, ?> environment, String directory) {
            myCommand = command;
            myEnvironment = environment;
            myDirectory = directory;
        }

        int getRow() {
            if (!myHasRow) {
                myHasRow = true;
                myRow = PROCESSES.createRow();
                if (Rows.exists(myRow)) {
                    PROCESSES.myCommand.setValue(myRow, CommandLine.join(myCommand));
                    PROCESSES.myDirectory.setValue(myRow, myDirectory);
                    PROCESSES.myEnvironment.setValue(myRow, CommandLine.changesOf(myEnvironment));
                    PROCESSES.myExitCode.setValue(myRow, UNKNOWN);
                }
            }
            return myRow;
        }
    }

    static final class ProcessTable extends Table {
        final StringColumn myCommand = new StringColumn("Command");
        final StringColumn myDirectory = new StringColumn("Directory");
        final StringColumn myEnvironment = new StringColumn("Environment");
        final IntColumn myExitCode = new IntColumn("Exit Code");

        ProcessTable() {
            super("Processes", MASK_FOR_POINT_EVENTS | LASTING_EVENTS);
        }
    }

    @MethodPattern("java.lang.ProcessImpl:start(String[], java.util.Map, String, *)")
    public static final class Launch {
        private Launch() {
        }

        public static void onEnter(@Param(1) String[] command, @Param(2) Map<?, ?> environment,
                                   @Param(3) String directory) {
            try {
                if (JVM.isLivePhase()) {
                    STARTING.set(new Start(command, environment, directory));
                }
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }

        public static void onReturn(@ReturnValue Process process) {
            try {
                started(process);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }

        public static void onUncaughtException() {
            try {
                STARTING.remove();
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern({"java.io.FileInputStream:<init>(java.io.FileDescriptor)",
                    "java.io.FileOutputStream:<init>(java.io.FileDescriptor)"})
    public static final class Pipe {
        private Pipe() {
        }

        public static void onReturn(@This Object stream) {
            try {
                addPipe(stream);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern(
            {"java.lang.ProcessImpl:getInputStream()", "java.lang.ProcessImpl:getErrorStream()",
             "java.lang.UNIXProcess:getInputStream()", "java.lang.UNIXProcess:getErrorStream()"})
    public static final class Input {
        private Input() {
        }

        public static void onReturn(@This Object process, @ReturnValue InputStream stream) {
            try {
                belongs(stream, process);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern(
            {"java.lang.ProcessImpl:getOutputStream()", "java.lang.UNIXProcess:getOutputStream()"})
    public static final class Output {
        private Output() {
        }

        public static void onReturn(@This Object process, @ReturnValue OutputStream stream) {
            try {
                belongs(stream, process);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern({"java.lang.ProcessImpl:waitFor() int", "java.lang.UNIXProcess:waitFor() int"})
    public static final class WaitFor {
        private WaitFor() {
        }

        public static void onReturn(@This Object process, @ReturnValue int exitCode) {
            try {
                ended(process, exitCode);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.lang.UNIXProcess:waitForProcessExit(int)")
    public static final class Wait {
        private Wait() {
        }

        public static void onReturn(@This Object process, @ReturnValue int exitCode) {
            try {
                ended(process, exitCode);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern(
            "java.lang.ProcessImpl:lambda$initStreams$*(java.lang.Integer, java.lang.Throwable)")
    public static final class Exit {
        private Exit() {
        }

        public static void onEnter(@This Object process, @Param(1) Integer exitCode) {
            try {
                ended(process, exitCode == null ? UNKNOWN : exitCode);
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
                return begin(INPUT, object);
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
                return begin(INPUT, object);
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
                return begin(OUTPUT, object);
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
                return begin(OUTPUT, object);
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
                return begin(OUTPUT, object);
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
