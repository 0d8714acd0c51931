package com.vandrik.runtime;

import com.vandrik.api.TelemetryRecord;
import com.vandrik.util.Strings;
import com.vandrik.util.ThreadUtil;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.Arrays;

/** Polls the JVM once a telemetry period and hands the numbers to the native store. */
final class TelemetryThreadJVMTI implements Runnable {
    /** The thread wakes at this step, so that records can come faster while an event is overdue. */
    private static final int STEP_MS = 20;

    /** Place of the wall clock, in seconds since 1970, among the extra values; pools follow it. */
    private static final int CLOCK_PLACE = 0;

    private final int[] myTelec = new int[TelemetryRecord.TELEC_FIELD_COUNT];
    private final int[] myTele = new int[TelemetryRecord.TELE_FIELD_COUNT];
    private final int[] myExtNames = new int[TelemetryRecord.TELE_EXT_MAX_COUNT];
    private final int[] myExtValues = new int[TelemetryRecord.TELE_EXT_MAX_COUNT];

    /** Row of the clock's name. The records alone would not keep it: they are evicted. */
    private int myClockNameID;

    /** Null before the start, or if the system gave no thread. */
    private Thread myThread;

    private final int myStay = ThreadUtil.getStay();
    private volatile boolean myIsEnding;

    private boolean myFailureIsTold;

    /** Null as long as there was no listener. */
    private TelemetryTriggers myTriggers;

    void start() {
        Thread thread = ThreadUtil.createDaemon("VDKAgent-Telemetry", this);
        thread.start();
        myThread = thread;
    }

    /** For a start that failed. Afterwards the thread uses nothing of the agent any more. */
    void end() {
        myIsEnding = true;
        while (myThread != null && myThread.isAlive()) {
            ThreadUtil.sleep(STEP_MS);
        }
    }

    @Override
    public void run() {
        try {
            if (Callback.getTelemetryPeriodMs() > 0) {
                while (!prepareIfMemoryAllows() && !isEnding()) {
                    ThreadUtil.sleep(STEP_MS);
                }
                poll();
            }
        } catch (Throwable e) {
            Core.logIfMemoryAllows("Telemetry ended: ", e);
        }
    }

    /** An attach may find the heap full. */
    private boolean prepareIfMemoryAllows() {
        try {
            if (Core.isAttached()) {
                Callback.correctUptimeMs(JvmFacts.get().getUptimeMs());
            }
            myClockNameID = Callback.setProperty("tele.clock_sec", "keep_against_string_gc");
            return true;
        } catch (Throwable full) {
            tellFirstFailure(full);
            return false;
        }
    }

    private void poll() {
        boolean first = true;
        int steps = 0;
        while (!isEnding()) {
            ThreadUtil.sleep(STEP_MS);
            steps++;
            if ((first && !Callback.isFirstRecordPutOff()) ||
                steps >= Callback.getTelemetryPeriodMs() / STEP_MS ||
                Callback.isFrequentSampling()) {
                first = false;
                steps = 0;
                storeRecordIfMemoryAllows();
                runTriggers();
            }
        }
    }

    private boolean isEnding() {
        return myIsEnding || ThreadUtil.isOver(myStay);
    }

    private void runTriggers() {
        if (Core.ourListeners.length == 0) {
            return;
        }
        try {
            if (myTriggers == null) {
                myTriggers = new TelemetryTriggers();
            }
            myTriggers.run(myTelec, myTele, Callback.getUptimeMs());
        } catch (VirtualMachineError full) {
            tellFirstFailure(full);
        }
    }

    /** While the application has filled its heap records are left out; they go on afterwards. */
    private void storeRecordIfMemoryAllows() {
        try {
            storeRecord();
        } catch (Throwable full) {
            tellFirstFailure(full);
        }
    }

    /** The heap, or the native side's memory, may be out; that can pass. */
    private void tellFirstFailure(Throwable full) {
        if (myFailureIsTold) {
            return;
        }
        try {
            Core.logIfMemoryAllows("Telemetry is incomplete: ", full);
            myFailureIsTold = true;
        } catch (Throwable stillFull) {
            // The JVM makes even a constant text when it is first used: another time, then.
        }
    }

    private void storeRecord() {
        Arrays.fill(myTelec, 0);
        Arrays.fill(myTele, 0);
        Arrays.fill(myExtNames, 0);
        Arrays.fill(myExtValues, 0);
        JvmFacts.get().fillValues(myTelec, myTele, myExtNames, myExtValues);
        myExtNames[CLOCK_PLACE] = myClockNameID;
        myExtValues[CLOCK_PLACE] = (int) (System.currentTimeMillis() / 1000);
        myTele[TelemetryRecord.TELE_CPU_TIME_MS] = (int) (Callback.getProcessCPUTimeNs() / 1000000);
        myTele[TelemetryRecord.TELE_PROCESSOR_COUNT] = Runtime.getRuntime().availableProcessors();
        Callback.storeTelemetryRecord(myTelec, myTele, myExtNames, myExtValues);
    }

    /** Answers a request for a thread dump with its text. */
    static void processGetJVMThreadDumpImpl(DataOutputStream out) throws IOException {
        String text = ThreadDump.getText();
        Packet.writeHeader(out);
        Packet.writeStringNotNull(out, text);
    }

    /** Where the actions of a listener go on, and when. */
    static final class WaitingActions {
        final int myNextAction;
        final long myEndMs;
        final boolean myWaitsForEvent;

        WaitingActions(int nextAction, long endMs, boolean waitsForEvent) {
            myNextAction = nextAction;
            myEndMs = endMs;
            myWaitsForEvent = waitsForEvent;
        }
    }
}
