package com.vandrik.runtime;

import com.vandrik.Constants;
import com.vandrik.api.ProfilingModesExt;
import com.vandrik.probes.triggers.EventListener;
import com.vandrik.probes.watch.Watches;
import com.vandrik.util.Asserts;
import com.vandrik.util.Strings;
import com.vandrik.util.ThreadUtil;
import java.io.BufferedInputStream;
import java.io.BufferedOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import jdk.internal.misc.Unsafe;

/**
 * The Java half of the agent's start-up, and what native code calls afterwards. The native side
 * finds this class by name and calls {@link #init} once; keep its parameters in sync with
 * agentInit.
 *
 * <p>On load this runs ahead of the application's main method. What main may still configure must
 * not be initialised here: no java.net, logging, MBean server, formatting or default locale.
 */
public final class Core {
    private static final EventListener[] NO_LISTENERS = {};
    private static final int BUFFER_SIZE = 65536;
    private static final int ACCEPT_RETRY_MS = 100;

    /** -1 until the agent listens. */
    public static volatile int ourPort = -1;

    /** Replaced as a whole; the telemetry thread reads it without a lock. */
    public static volatile EventListener[] ourListeners = NO_LISTENERS;

    /** That of the last probe class made for a method listener. */
    static int ourTemplateNumber;

    public static String ourSessionName;
    public static long ourSessionID;
    public static int ourTelemetryLimit;
    public static int ourProbeTableLengthLimit;

    /** The option "dir="; may be null or empty. */
    public static String ourAlternateSnapshotDir;

    /** The rest of a start that was put off until {@link #startProfilerThreads}. */
    public static Runnable ourDelayedRunnable;

    public static int ourDelayedPort = -1;

    /** Null until the agent listens. */
    private static ControlServerSocket ourServer;

    private Core() {
    }

    /** Called by native code. False stops the agent; the user has been told the reason. */
    public static boolean init(int port, String host, String sessionName,
                               String alternateSnapshotDir, String profilerUIPath, int idePort,
                               boolean onlyLocal, long sessionID, int delay, int telemetryLimit,
                               int probeTableLengthLimit, boolean enableOOMEDumper,
                               String triggers) {
        Asserts.assertNotNull(sessionName, "session name");
        Asserts.assertNotNull(triggers, "triggers");
        ourSessionName = sessionName;
        ourAlternateSnapshotDir = alternateSnapshotDir;
        ourSessionID = sessionID;
        ourTelemetryLimit = telemetryLimit;
        ourProbeTableLengthLimit = probeTableLengthLimit;
        String refusal = JvmRequirements.getRefusal();
        if (refusal != null) {
            return refuse(refusal, null);
        }
        try {
            boolean attached = isAttached();
            String failure = setTriggers(triggers, attached, false);
            if (failure != null) {
                return refuse(failure, null);
            }
        } catch (Throwable e) {
            return refuse("", e);
        }
        boolean goesOn = startNowOrLater(port, host, profilerUIPath, idePort, onlyLocal,
                                         enableOOMEDumper, delay);
        if (!goesOn) {
            setTriggers("", false, false);
        }
        return goesOn;
    }

    private static boolean startNowOrLater(final int port, final String host,
                                           final String profilerUIPath, final int idePort,
                                           final boolean onlyLocal, final boolean enableOOMEDumper,
                                           final int delay) {
        if (delay == 0) {
            return _init(port, host, profilerUIPath, idePort, onlyLocal, enableOOMEDumper);
        }
        if (delay == -1) {
            ourDelayedRunnable = new Runnable() {
                @Override
                public void run() {
                    _init(ourDelayedPort, host, profilerUIPath, idePort, onlyLocal,
                          enableOOMEDumper);
                }
            };
            return true;
        }
        ThreadUtil
                .createDaemon("VDKAgent-TelemetryDelay",
                              new Runnable() {
                                  @Override
                                  public void run() {
                                      ThreadUtil.sleep(delay);
                                      _init(port, host, profilerUIPath, idePort, onlyLocal,
                                            enableOOMEDumper);
                                  }
                              })
                .start();
        return true;
    }

    /** Finishes a start that the option "delay=-1" has put off; once done, it does nothing. */
    public static void startProfilerThreads(int port) {
        Runnable rest;
        synchronized (Core.class) {
            rest = ourDelayedRunnable;
            ourDelayedRunnable = null;
            ourDelayedPort = port;
        }
        if (rest != null) {
            rest.run();
        }
    }

    static boolean _init(int port, String host, String profilerUIPath, int idePort,
                         boolean onlyLocal, boolean enableOOMEDumper) {
        try {
            if (enableOOMEDumper) {
                OOMEDumper.enable();
            }
            TelemetryThreadJVMTI telemetry = new TelemetryThreadJVMTI();
            ControlServerSocket server = listen(onlyLocal, port, host);
            if (server == null) {
                return false;
            }
            ourPort = server.getLocalPort();
            startThreads(server, telemetry);
            tellOfStart(host, onlyLocal, profilerUIPath, idePort);
            if (ourListeners.length != 0) {
                Triggers.runOnStart();
            }
            return true;
        } catch (Throwable e) {
            return refuse("", e);
        }
    }

    /**
     * Tells why the agent does not start: in the log with the stack trace, and in one line on
     * standard error, whatever the option "quiet" says. Gives false.
     */
    private static boolean refuse(String reason, Throwable cause) {
        try {
            String text = "Cannot start: " + reason;
            Callback.messageToLogFile(cause == null ? text : text + Strings.stackTrace(cause));
            String message = cause == null ? "" : Strings.messageOf(cause);
            Callback.messageToStderr(text + message + "\n");
        } catch (Throwable full) {
            // Both take memory for their text.
        }
        return false;
    }

    /** Either all that listens and runs is there afterwards, or nothing: threads may be refused. */
    private static void startThreads(ControlServerSocket server, TelemetryThreadJVMTI telemetry) {
        boolean complete = false;
        try {
            telemetry.start();
            Callback.createMarker(ourPort, 1);
            ourServer = server;
            startRequestThread(server);
            complete = true;
        } finally {
            if (!complete) {
                telemetry.end();
                Callback.createMarker(0, 0); // in no state that others look for
                server.close();
                ourPort = -1;
            }
        }
    }

    /** Nobody finds the agent any more. For the request thread. */
    static void stopListening() {
        Callback.createMarker(0, 0);
        ourServer.close();
        ourServer = null;
        ourPort = -1;
    }

    /** The agent runs by now: whatever fails here, even for lack of memory, must not undo that. */
    private static void tellOfStart(String host, boolean onlyLocal, String profilerUIPath,
                                    int idePort) {
        try {
            Callback.message(Strings.isEmpty(host)
                                     ? "Profiler agent is listening on port " + ourPort
                                     : "Profiler agent is listening on " + host + ":" + ourPort,
                             getWhoIsLetIn(host, onlyLocal));
            if (Strings.isEmpty(profilerUIPath)) {
                Callback.messageToLogFile("*** HINT ***: To get profiling results, connect to the"
                                          + " application from the profiler UI");
            } else {
                UILauncher.start(profilerUIPath, idePort, ourPort);
            }
        } catch (Throwable e) {
            logIfMemoryAllows("Start is not told: ", e);
        }
    }

    /** Null where only the agent's own user and root are served. */
    private static String getWhoIsLetIn(String host, boolean onlyLocal) {
        if (ControlSocket.servesOnlyItsUser()) {
            return null;
        }
        if (!Strings.isEmpty(host)) {
            return "open to all who reach this address";
        }
        return onlyLocal ? "open to all users of this machine"
                         : "open to all who reach this machine";
    }

    /**
     * For threads of the agent that end: what leaves one of them is printed in the middle of what
     * the application prints.
     */
    public static void logIfMemoryAllows(String what, Throwable cause) {
        try {
            Callback.messageToLogFile(what + Strings.stackTrace(cause));
        } catch (Throwable full) {
            // The log gets its text from the heap, and the native side's memory may be out as well.
        }
    }

    /** Null, with the reason in the log, if the port can't be had. */
    private static ControlServerSocket listen(boolean onlyLocal, int port, String host) {
        int fixedPort = port;
        if (port == -1) {
            for (int i = 0; i < Constants.DEFAULT_PORTS.length; i++) {
                try {
                    return createServerSocket(onlyLocal, Constants.DEFAULT_PORTS[i], host);
                } catch (IOException taken) {
                    // the next one, and at last any port that is free
                }
            }
            fixedPort = 0;
        }
        try {
            return createServerSocket(onlyLocal, fixedPort, host);
        } catch (IOException e) {
            refuse("cannot listen on port " + fixedPort + ": ", e);
            return null;
        }
    }

    private static ControlServerSocket createServerSocket(boolean onlyLocal, int port, String host)
            throws IOException {
        return new ControlServerSocket(onlyLocal, port, Strings.isEmpty(host) ? null : host);
    }

    private static void startRequestThread(final ControlServerSocket server) {
        final int stay = ThreadUtil.getStay();
        Thread thread = ThreadUtil.createDaemon("VDKAgent-RequestListener", new Runnable() {
            @Override
            public void run() {
                while (!ThreadUtil.isOver(stay)) {
                    try {
                        acceptAndServe(server);
                    } catch (Throwable full) {
                        // no memory even for what follows a failure; it may be back next time
                    }
                }
            }
        });
        thread.setPriority(Thread.MIN_PRIORITY);
        thread.start();
    }

    private static void acceptAndServe(ControlServerSocket server) {
        ControlSocket socket;
        try {
            socket = server.accept();
        } catch (Throwable e) {
            // the process may be out of descriptors or memory; both can pass
            ThreadUtil.sleep(ACCEPT_RETRY_MS);
            return;
        }
        try {
            serve(socket);
        } catch (Throwable badClient) {
            // nothing that a client does ends the agent; the connection is closed by now
        }
    }

    private static void serve(ControlSocket socket) throws IOException, PresentableException {
        try {
            OutputStream out =
                    new BufferedOutputStream(new ControlOutputStream(socket), BUFFER_SIZE);
            String refusal = socket.getRefusal();
            if (refusal != null) {
                Packet.writeError(new DataOutputStream(out), refusal);
                socket.finishAtOnce();
                return;
            }
            InputStream in = new BufferedInputStream(new ControlInputStream(socket), BUFFER_SIZE);
            AgentProperties.makeSurePropertiesInitialized();
            Watches.noteServing(true);
            RequestProcessing.dispatchRequest(new DataInputStream(in), new DataOutputStream(out),
                                              socket);
        } finally {
            Watches.noteServing(false);
            socket.close();
        }
    }

    /** Called by native code when the JVM ends. */
    public static void runOnJVMExitTriggers() {
        if (ourListeners.length != 0) {
            Triggers.runOnExit();
        }
        ourListeners = NO_LISTENERS;
    }

    /**
     * Replaces the listeners, or adds to them. Gives the text of a failure, which leaves all as it
     * was, or null. A text without listeners loads no class of theirs.
     */
    public static synchronized String setTriggers(String text, boolean append, boolean flag) {
        boolean isEmpty = !hasListeners(text);
        if (isEmpty && (append || ourListeners.length == 0)) {
            return null;
        }
        try {
            Triggers.put(isEmpty ? NO_LISTENERS : Triggers.parse(text), append, flag);
            return null;
        } catch (RuntimeException e) {
            return Strings.messageOf(e);
        }
    }

    /**
     * What {@link #setTriggers} would say to a text. Called by native code for the file that lies
     * in the home directory: nobody named it, so it can't stop the agent.
     */
    static String checkTriggers(String text) {
        try {
            if (hasListeners(text)) {
                Triggers.parse(text);
            }
            return null;
        } catch (RuntimeException e) {
            return Strings.messageOf(e);
        }
    }

    /**
     * Whether a trigger text names any event. Comments and empty lines don't, nor do actions that
     * stand ahead of the first event.
     */
    private static boolean hasListeners(String text) {
        for (String line : text.split("\n")) {
            String trimmed = line.trim();
            if (!trimmed.isEmpty() && trimmed.charAt(0) != '#' && line.charAt(0) > ' ') {
                return true;
            }
        }
        return false;
    }

    public static synchronized EventListener[] getListeners() {
        return ourListeners;
    }

    static String getTriggersText() {
        EventListener[] listeners = getListeners();
        return listeners.length == 0 ? "" : EventListener.serializeListeners(listeners);
    }

    public static String getSessionName() {
        return ourSessionName;
    }

    static boolean isAttached() {
        return (Callback.getCapabilities() & Constants.CAPABILITY_ATTACHED_AGENT) != 0;
    }

    public static int getOOMEDumperStatus() {
        return OOMEDumper.getStatus();
    }

    /**
     * Measures what a traced call costs and hands the result to native code. Called by native code
     * as well, ahead of the first tracing. While CPU profiling runs this is refused: it would have
     * to stop it.
     */
    public static synchronized void calibrate() {
        if ((Callback.getStatus() & ProfilingModesExt.CPU_TIMES_BIT) != 0) {
            throw new IllegalStateException(
                    "Cannot calibrate: CPU sampling or CPU tracing already started");
        }
        final long[] result = {Callback.getCalibrationResult()};
        final Throwable[] failure = new Throwable[1];
        Thread thread = ThreadUtil.createDaemon("VDKAgent-Calibration", new Runnable() {
            @Override
            public void run() {
                try {
                    result[0] = Calibrator.calibrateImpl();
                } catch (Throwable e) {
                    failure[0] = e;
                }
            }
        });
        thread.start();
        ThreadUtil.joinUninterruptibly(thread);
        // In any case: otherwise calibration would count as under way, and no application thread
        // be traced.
        Callback.setCalibrationResult(result[0]);
        if (failure[0] != null) {
            throw new IllegalStateException(Strings.messageOf(failure[0]));
        }
        Callback.message("CPU tracing calibration performed", Long.toString(result[0]));
    }

    /**
     * Lets Callback keep calls, in memory of the library. Whether it can read there, and a thread's
     * id without a call that the program's classes could override.
     */
    public static boolean prepareKeptCalls(long filteredMethods, long runs) {
        try {
            Unsafe memory = Unsafe.getUnsafe();
            long offset = memory.objectFieldOffset(Thread.class, "tid");
            Thread thread = Thread.currentThread();
            if (memory.getLong(thread, offset) != thread.getId() ||
                memory.getLong(null, runs) != 0 || memory.getByte(null, filteredMethods) != 0) {
                return false;
            }
            memory.putInt(null, runs, memory.getInt(null, runs));
            Callback.ourMemory = memory;
            Callback.ourThreadIdOffset = offset;
            Callback.ourFilteredMethods = filteredMethods;
            Callback.ourRuns = runs;
            return true;
        } catch (Throwable e) {
            return false; // a JVM that has these no more, or keeps them from us
        }
    }

    /** The directory of snapshots that a request names; see {@link SnapshotDirectory0}. */
    public static File getSnapshotDirectory(String directory) {
        if (Strings.isEmpty(directory)) {
            return SnapshotDirectory0.getSnapshotDirectory(ourAlternateSnapshotDir);
        }
        if (directory.equals("public")) {
            return getPublicSnapshotDirectory();
        }
        File chosen = new File(directory);
        SnapshotDirectory0.mkdirsSafe(chosen);
        return chosen;
    }

    /** Where snapshots lie that every client may fetch. */
    public static File getPublicSnapshotDirectory() {
        return SnapshotDirectory0.getPublicDirectory(getSnapshotDirectory(null));
    }

    public static boolean isPublicDirectory(File directory) {
        return SnapshotDirectory0.isPublicDirectory(directory);
    }

    /** Gives the text of a failure, or null and the path in {@code result[0]}. */
    public static String captureSnapshot1(String pattern, int progressSocket, long flags,
                                          String directory, String[] result) {
        return SnapshotCapture.capture(pattern, progressSocket, flags, directory, result);
    }

    /** Called by native code when the JVM ends. */
    public static void captureSnapshotOnExit(long flags) {
        captureSnapshotOnExit(flags, "");
    }

    /**
     * The same into a file, beside one that is there, or where snapshots lie if it is "". Gives the
     * path of the snapshot, or null if there is none; the reason is in the log.
     */
    public static String captureSnapshotOnExit(long flags, String file) {
        String[] path = new String[1];
        try {
            long all = flags | Constants.SNAPSHOT_CAUSE_SHUTDOWN;
            String failure;
            if (Strings.isEmpty(file)) {
                failure = captureSnapshot1("<sessionname>-<date>-shutdown", 0, all, "", path);
            } else {
                // JVMs that one script started may end at the same moment: each first writes under
                // a name of its own.
                File chosen = new File(file).getAbsoluteFile();
                failure = captureSnapshot1("<sessionname>-" + System.nanoTime(), 0, all,
                                           chosen.getParent(), path);
                if (failure == null) {
                    path[0] = SnapshotCapture.moveTo(new File(path[0]), chosen);
                }
            }
            if (failure != null) {
                Callback.messageToLogFile("No snapshot at the end of the JVM: " + failure);
                Callback.messageToStderr("No snapshot at the end of the JVM: " + failure + "\n");
                return null;
            }
        } catch (Throwable e) {
            logIfMemoryAllows("No snapshot at the end of the JVM: ", e);
        }
        return path[0];
    }

    /**
     * Called by native code, to be between it and the native: the JVM warns of its own natives
     * being bound anew if nobody of its own loader is seen to ask for it.
     */
    public static void bindPark() {
        Callback.bindPark();
    }

    public static TransferrableSnapshotInfo[] getTransferrableSnapshots() {
        return SnapshotCapture.getTransferrableSnapshots();
    }
}
