package com.vandrik.runtime;

import com.vandrik.Constants;
import com.vandrik.api.ProfilingModes;
import com.vandrik.probes.builtin.Messages;
import com.vandrik.util.Strings;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.Arrays;

/**
 * Serves the requests of one connection. A request is read in full before anything is done, and
 * what is answered is computed before the answer begins, so that a failing native can still be
 * answered with an error.
 */
public final class RequestProcessing {
    // Keep in sync with db/Records.h.
    private static final int TABLE_COUNT = 128;
    private static final int FIRST_USER_TABLE = 32;

    /** Lives in memory only and can't be written. */
    private static final int ALLOCATOR_TABLE = 12;

    /** Stamps of the client's last fetch by table. The request thread alone uses it. */
    private static final int[] ourStamps = new int[TABLE_COUNT];

    private final DataInputStream myIn;
    private final DataOutputStream myOut;
    private final ControlSocket mySocket;

    /** Whether the client keeps the connection for more requests. */
    private boolean mySequence;

    private RequestProcessing(DataInputStream in, DataOutputStream out, ControlSocket socket) {
        myIn = in;
        myOut = out;
        mySocket = socket;
    }

    /** Serves one request, or a sequence of them. The caller closes everything. */
    static void dispatchRequest(DataInputStream in, DataOutputStream out, ControlSocket socket)
            throws IOException, PresentableException {
        new RequestProcessing(in, out, socket).run();
    }

    private void run() throws IOException, PresentableException {
        mySocket.expectRequest(ControlSocket.ourFirstRequestMs);
        do {
            int type = Packet.readHeader(myIn, Protocol.INCOMPATIBLE_AGENT_MESSAGE);
            int written = myOut.size();
            try {
                dispatch(type);
            } catch (RuntimeException e) {
                if (hasAnswerBegun(written)) {
                    throw e;
                }
                Packet.writeError(myOut, Strings.messageOf(e));
            } catch (LinkageError e) {
                if (hasAnswerBegun(written)) {
                    throw e;
                }
                Packet.writeError(myOut, Strings.messageOf(e));
            }
            myOut.flush();
            mySocket.expectRequest(ControlSocket.NEXT_REQUEST_MS);
        } while (mySequence);
    }

    /** The counter of the stream stops at its largest value. */
    private boolean hasAnswerBegun(int writtenBefore) {
        return myOut.size() != writtenBefore || writtenBefore == Integer.MAX_VALUE;
    }

    private void dispatch(int type) throws IOException, PresentableException {
        if (!dispatchRecording(type) && !dispatchData(type) && !dispatchService(type) &&
            !dispatchWatches(type)) {
            refuse(Protocol.UNKNOWN_PACKET_TYPE + " " + type +
                   ". Reason: profiler agent and client version mismatch");
        }
    }

    /** Switching of what is recorded. */
    private boolean dispatchRecording(int type) throws IOException, PresentableException {
        switch (type) {
        case Protocol.PACKET_START_ALLOCATION_RECORDING_REQ:
            startAllocationRecording();
            return true;
        case Protocol.PACKET_START_SAMPLED_ALLOCATION_RECORDING_REQ:
            startSampledAllocationRecording();
            return true;
        case Protocol.PACKET_PREPARE_RECORDING_REQ:
            prepareRecording();
            return true;
        case Protocol.PACKET_STOP_ALLOCATION_RECORDING_REQ:
            Callback.stopAllocationRecording();
            break;
        case Protocol.PACKET_START_CPU_PROFILING_REQ:
            startCPUProfiling();
            return true;
        case Protocol.PACKET_START_SAMPLING_REQ:
            startSampling();
            return true;
        case Protocol.PACKET_START_WALL_SAMPLING_REQ:
            startWallSampling();
            return true;
        case Protocol.PACKET_STOP_CPU_PROFILING_REQ:
            Callback.stopCPUProfiling(true);
            break;
        case Protocol.PACKET_START_MONITOR_PROFILING:
            okOrError(Callback.startMonitorProfiling());
            return true;
        case Protocol.PACKET_STOP_MONITOR_PROFILING:
            Callback.stopMonitorProfiling();
            break;
        case Protocol.PACKET_ENABLE_STACK_TELEMETRY:
            Callback.enableStackTelemetry();
            break;
        case Protocol.PACKET_DISABLE_STACK_TELEMETRY:
            Callback.disableStackTelemetry();
            break;
        case Protocol.PACKET_ENABLE_EXCEPTION_TELEMETRY:
            Callback.enableExceptionTelemetry();
            break;
        case Protocol.PACKET_DISABLE_EXCEPTION_TELEMETRY:
            Callback.disableExceptionTelemetry();
            break;
        case Protocol.PACKET_CALIBRATE:
            if (Packet.readBoolean(myIn) || Callback.getCalibrationResult() == 0) {
                Core.calibrate();
            }
            break;
        default:
            return false;
        }
        Packet.writeHeader(myOut);
        return true;
    }

    /** Reading and clearing of what was recorded. */
    private boolean dispatchData(int type) throws IOException, PresentableException {
        switch (type) {
        case Protocol.PACKET_UPDATE_DATABASE_TABLES:
            updateDatabaseTables();
            return true;
        case Protocol.PACKET_UPDATE_CUSTOM_TABLE_INFO:
            updateCustomTableInfo();
            return true;
        case Protocol.PACKET_GET_DATABASE_STATISTICS:
            okWithString(Callback.getDatabaseStatistics());
            return true;
        case Protocol.PACKET_CAPTURE_SNAPSHOT_REQ:
            captureSnapshot();
            return true;
        case Protocol.PACKET_TRANSFER_SNAPSHOT_REQ:
            transfer(false);
            return true;
        case Protocol.PACKET_TRANSFER_SNAPSHOT_COMPRESSED_REQ:
            transfer(true);
            return true;
        case Protocol.PACKET_GET_TRANSFERRABLE_SNAPSHOTS:
            SnapshotTransfer.writeList(myOut, Core.getTransferrableSnapshots());
            return true;
        case Protocol.PACKET_CLEAR_CPU_DATA:
            Callback.clearCPUData(true);
            break;
        case Protocol.PACKET_CLEAR_MONITOR_DATA:
            Callback.clearMonitorData();
            break;
        case Protocol.PACKET_CLEAR_ALLOCATION_DATA:
            Callback.clearAllocationData();
            break;
        case Protocol.PACKET_CLEAR_EXCEPTIONS:
            Callback.clearExceptions();
            break;
        case Protocol.PACKET_FREE_UNUSED_ROWS:
            Callback.freeUnusedRows();
            break;
        case Protocol.PACKET_ADVANCE_GENERATION_REQ:
            Callback.advanceGeneration(Packet.readStringNotNull(myIn));
            break;
        default:
            return false;
        }
        Packet.writeHeader(myOut);
        return true;
    }

    private boolean dispatchWatches(int type) throws IOException, PresentableException {
        switch (type) {
        case Protocol.PACKET_WATCH_START:
            WatchRequests.start(myIn, myOut);
            return true;
        case Protocol.PACKET_WATCH_READ:
            WatchRequests.read(myIn, myOut);
            return true;
        case Protocol.PACKET_WATCH_STOP:
            WatchRequests.stop(myIn, myOut);
            return true;
        default:
            return false;
        }
    }

    /** Questions about agent and JVM, and what changes the agent itself. */
    private boolean dispatchService(int type) throws IOException, PresentableException {
        switch (type) {
        case Protocol.PACKET_PACKET_SEQUENCE_START:
            mySequence = true;
            return true;
        case Protocol.PACKET_PACKET_SEQUENCE_END:
            mySequence = false;
            return true;
        case Protocol.PACKET_GET_STATUS_REQ:
            getStatus();
            return true;
        case Protocol.PACKET_GET_AGENT_INFO_REQ:
            getAgentInfo();
            return true;
        case Protocol.PACKET_ALLOCATION_RECORDING_SETTINGS_GET_REQ:
            getAllocationRecordingSettings();
            return true;
        case Protocol.PACKET_OOME_DUMPER_GET_STATUS_REQ:
            getOOMEDumperStatus();
            return true;
        case Protocol.PACKET_GET_JVM_THREAD_DUMP_REQ:
            TelemetryThreadJVMTI.processGetJVMThreadDumpImpl(myOut);
            return true;
        case Protocol.PACKET_FORCE_GC_REQ:
            forceGC();
            return true;
        case Protocol.PACKET_MESSAGE:
            message();
            return true;
        case Protocol.PACKET_GET_PROBES:
            ProbeRequests.getProbes(myOut);
            return true;
        case Protocol.PACKET_SET_PROBES:
            ProbeRequests.setProbes(myIn, myOut);
            return true;
        case Protocol.PACKET_REGISTER_AND_LOAD_PROBES_BY_BYTECODE:
            ProbeRequests.registerByBytecode(myIn, myOut);
            return true;
        case Protocol.PACKET_RETRANSFORM_CLASSES_LOADED_BEFORE_AGENT_WAS_ATTACHED:
            retransformClasses();
            return true;
        case Protocol.PACKET_GET_TRIGGERS:
            okWithString(Core.getTriggersText());
            return true;
        case Protocol.PACKET_SET_TRIGGERS:
            setTriggers();
            return true;
        case Protocol.PACKET_DETACH_REQ:
            detach();
            return true;
        default:
            return false;
        }
    }

    private void startAllocationRecording() throws IOException {
        boolean eachEnabled = Packet.readBoolean(myIn);
        int each = Packet.readInt(myIn);
        boolean sizeLimitEnabled = Packet.readBoolean(myIn);
        int sizeLimit = Packet.readInt(myIn);
        boolean perClassGarbage = Packet.readBoolean(myIn);
        okOrError(Callback.startAllocationRecording(eachEnabled, each, sizeLimitEnabled, sizeLimit,
                                                    perClassGarbage));
    }

    private void startSampledAllocationRecording() throws IOException {
        int intervalBytes = Packet.readInt(myIn);
        boolean perClassGarbage = Packet.readBoolean(myIn);
        okOrError(Callback.startSampledAllocationRecording(intervalBytes, perClassGarbage));
    }

    /** What stands in the way comes as an exception, and goes out as an error. */
    private void prepareRecording() throws IOException, PresentableException {
        int recording = Packet.readInt(myIn);
        String patterns = Packet.readString(myIn);
        String filters = Packet.readString(myIn);
        long[] result = Callback.prepareRecording(recording, patterns, filters,
                                                  getSocketFileDescriptor(mySocket));
        Packet.writeHeader(myOut);
        Packet.writeInt(myOut, (int) result[0]);
        Packet.writeLong(myOut, result[1]);
        Packet.writeLong(myOut, result[2]);
    }

    private void getAllocationRecordingSettings() throws IOException {
        boolean eachEnabled = Callback.getAllocationRecordingSettingsRecordEachEnabled();
        int each = Callback.getAllocationRecordingSettingsRecordEach();
        boolean sizeLimitEnabled = Callback.getAllocationRecordingSettingsSizeLimitEnabled();
        int sizeLimit = Callback.getAllocationRecordingSettingsSizeLimit();
        boolean perClassGarbage = Callback.getAllocationRecordingSettingsPerClassGarbage();
        Packet.writeHeader(myOut);
        Packet.writeBoolean(myOut, eachEnabled);
        Packet.writeInt(myOut, each);
        Packet.writeBoolean(myOut, sizeLimitEnabled);
        Packet.writeInt(myOut, sizeLimit);
        Packet.writeBoolean(myOut, perClassGarbage);
    }

    private void startCPUProfiling() throws IOException, PresentableException {
        long mode = Packet.readLong(myIn);
        String filters = Packet.readString(myIn);
        String wallTimeSpec = Packet.readString(myIn);
        okOrError(Callback.startCPUProfiling(mode, filters, wallTimeSpec));
    }

    private void startSampling() throws IOException, PresentableException {
        String sampler = Packet.readString(myIn);
        long mode = Packet.readLong(myIn);
        String filters = Packet.readString(myIn);
        String wallTimeSpec = Packet.readString(myIn);
        okOrError(Callback.startSampling(sampler, mode, filters, wallTimeSpec, null));
    }

    private void startWallSampling() throws IOException, PresentableException {
        String filters = Packet.readString(myIn);
        String threadPattern = Packet.readString(myIn);
        okOrError(Callback.startSampling("wall", ProfilingModes.CPU_SAMPLING, filters, null,
                                         threadPattern));
    }

    private void getStatus() throws IOException {
        long status = Callback.getStatus();
        Packet.writeHeader(myOut);
        Packet.writeLong(myOut, status);
    }

    private void getAgentInfo() throws IOException {
        long capabilities = Callback.getCapabilities();
        String hostID = Callback.getHostID();
        String directory = Core.getSnapshotDirectory(null).getAbsolutePath();
        int pid = Callback.getPID();
        Packet.writeHeader(myOut);
        Packet.writeInt(myOut, Protocol.VERSION);
        Packet.writeString(myOut, Constants.APP_FULL_NAME);
        Packet.writeLong(myOut, capabilities);
        Packet.writeString(myOut, Core.getSessionName());
        Packet.writeLong(myOut, Core.ourSessionID);
        Packet.writeString(myOut, hostID);
        Packet.writeString(myOut, directory);
        Packet.writeInt(myOut, pid);
        Packet.writeInt(myOut, Core.ourTelemetryLimit);
    }

    private void getOOMEDumperStatus() throws IOException {
        int status = Core.getOOMEDumperStatus();
        Packet.writeHeader(myOut);
        Packet.writeInt(myOut, status);
    }

    /** The last request of all: with it the thread that serves them ends. */
    private void detach() throws IOException, PresentableException {
        Detach detach = Detach.begin();
        if (detach == null) {
            refuse("The agent cannot leave: the JVM ends, or the agent has left it");
            return;
        }
        mySequence = false;
        detach.run(getSocketFileDescriptor(mySocket));
        Packet.writeHeader(myOut);
        detach.write(myOut);
    }

    private void forceGC() throws IOException {
        Runtime runtime = Runtime.getRuntime();
        long before = runtime.totalMemory() - runtime.freeMemory();
        Callback.forceGC();
        long after = runtime.totalMemory() - runtime.freeMemory();
        Packet.writeHeader(myOut);
        Packet.writeLong(myOut, before);
        Packet.writeLong(myOut, after);
    }

    private void message() throws IOException, PresentableException {
        String category = Packet.readStringNotNull(myIn);
        String message = Packet.readStringNotNull(myIn);
        String detail = Packet.readString(myIn);
        Callback.setThreadTemporaryEnabled(true);
        try {
            Messages.message(category, message, detail);
        } finally {
            Callback.setThreadTemporaryEnabled(false);
        }
        Packet.writeHeader(myOut);
    }

    private void retransformClasses() throws IOException, PresentableException {
        boolean useFilter = Packet.readBoolean(myIn);
        String filterFile = Packet.readString(myIn);
        Callback.retransformClassesLoadedBeforeAgentWasAttached0(useFilter, filterFile);
        Packet.writeHeader(myOut);
    }

    private void setTriggers() throws IOException, PresentableException {
        String text = Packet.readStringNotNull(myIn);
        boolean append = Packet.readBoolean(myIn);
        okOrError(Core.setTriggers(text, append, false));
    }

    private void updateDatabaseTables() throws IOException {
        Arrays.fill(ourStamps, 0);
        int mask = Packet.readInt(myIn);
        for (int table = 0; table < 32; table++) {
            if ((mask & 1 << table) != 0) {
                ourStamps[table] = Packet.readInt(myIn);
            }
        }
        int limit = FIRST_USER_TABLE;
        for (int table = Packet.readInt(myIn); table != -1; table = Packet.readInt(myIn)) {
            if (table < FIRST_USER_TABLE || table >= TABLE_COUNT) {
                invalidTable(table);
                return;
            }
            ourStamps[table] = Packet.readInt(myIn);
            limit = Math.max(limit, table + 1);
        }
        if ((mask & 1 << ALLOCATOR_TABLE) != 0) {
            invalidTable(ALLOCATOR_TABLE);
            return;
        }
        Packet.writeHeader(myOut);
        myOut.flush();
        Callback.writeTables(getSocketFileDescriptor(mySocket), mask, limit, ourStamps);
    }

    /** What the client sends behind the bad index can't be told from a request any more. */
    private void invalidTable(int table) throws IOException {
        mySequence = false;
        refuse("Invalid table index: " + table);
    }

    private void updateCustomTableInfo() throws IOException {
        int first = Packet.readInt(myIn);
        Packet.writeHeader(myOut);
        int table = first;
        String description = Callback.getUserTableDescription(table);
        while (description != null) {
            Packet.writeInt(myOut, table);
            Packet.writeString(myOut, description);
            description = Callback.getUserTableDescription(++table);
        }
        Packet.writeInt(myOut, -1);
    }

    private void captureSnapshot() throws IOException, PresentableException {
        long flags = Packet.readLong(myIn);
        String directory = Packet.readString(myIn);
        String pattern = Packet.readString(myIn);
        String[] path = new String[1];
        String failure = Core.captureSnapshot1(pattern, getSocketFileDescriptor(mySocket), flags,
                                               directory, path);
        if (failure != null) {
            Packet.writeError(myOut, failure);
        } else {
            okWithString(path[0]);
        }
    }

    private void transfer(boolean compressed) throws IOException, PresentableException {
        String failure = SnapshotTransfer.send(myOut, Packet.readStringNotNull(myIn), compressed);
        if (failure != null) {
            Packet.writeError(myOut, failure);
        }
    }

    /** The number behind a socket, for native code; 0 if there is none. */
    private static int getSocketFileDescriptor(ControlSocket socket) {
        return socket.getDescriptor();
    }

    private void okWithString(String text) throws IOException {
        Packet.writeHeader(myOut);
        Packet.writeString(myOut, text);
    }

    private void okOrError(String failure) throws IOException {
        if (failure != null) {
            Packet.writeError(myOut, failure);
        } else {
            Packet.writeHeader(myOut);
        }
    }

    /** Answers a request of which parts may be unread. */
    private void refuse(String text) throws IOException {
        Packet.writeError(myOut, text);
        if (!mySequence) {
            mySocket.finish();
        }
    }
}
