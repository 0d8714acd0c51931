package com.vandrik.runtime;

import com.vandrik.probes.watch.Watches;
import com.vandrik.util.Strings;
import com.vandrik.util.ThreadUtil;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/**
 * The agent leaves a JVM that goes on, step by step, on the request thread, which ends behind it.
 * What fails in one step is told, and the others follow.
 */
final class Detach {
    /** Longest wait for the ends of the agent's threads. */
    private static final long THREADS_MS = 10000;

    /** The parts, in their order. */
    private static final String[] PARTS = {"triggers", "watches", "recordings",
                                           "classes",  "threads", "HeapDumpOnOutOfMemoryError",
                                           "port",     "JVM",     "log"};

    private final List<String> myFailures = new ArrayList<String>();
    private long[] myClasses = new long[5];

    private Detach() {
    }

    /** Null if the agent is not there, or the JVM ends. Otherwise {@link #run} has to follow. */
    static Detach begin() {
        return Callback.beginDetach() ? new Detach() : null;
    }

    /** Progress goes to the socket. Afterwards the caller is the agent's only thread. */
    void run(int socket) {
        for (int part = 0; part < PARTS.length; part++) {
            String failure;
            try {
                failure = runPart(part, socket);
            } catch (Throwable e) {
                failure = Strings.messageOf(e);
            }
            if (failure != null) {
                myFailures.add(PARTS[part] + ": " + failure);
            }
        }
    }

    /** Gives the text of a failure, or null. */
    private String runPart(int part, int socket) {
        switch (part) {
        case 0:
            return Core.setTriggers("", false, false);
        case 1:
            Watches.stopAll();
            JvmEvents.endPauses();
            return null;
        case 2:
            Callback.stopRecordings();
            return null;
        case 3:
            myClasses = Callback.giveClassesBack(socket);
            return myClasses[1] == 0 ? null
                                     : "the JVM refused " + myClasses[1] + " of them, which keep"
                                               + " calls that do nothing; the log names them";
        case 4:
            String left = ThreadUtil.endAgentThreads(THREADS_MS);
            String leftNative = Callback.awaitAgentThreads(THREADS_MS);
            String all = left + (left.isEmpty() || leftNative.isEmpty() ? "" : ", ") + leftNative;
            return all.isEmpty() ? null : "not ended yet: " + all;
        case 5:
            return OOMEDumper.takeBack() ? null : "the JVM did not take the value of before";
        case 6:
            Core.stopListening();
            return null;
        case 7:
            Callback.endDetach();
            return null;
        default:
            Callback.messageToLogFile("Detached; classes given back: " + myClasses[0] +
                                      ", parts not done: " + myFailures);
            return null;
        }
    }

    void write(DataOutputStream out) throws IOException {
        for (int i = 0; i < 4; i++) {
            Packet.writeInt(out, (int) myClasses[i]);
        }
        Packet.writeLong(out, myClasses[4]);
        Packet.writeInt(out, myFailures.size());
        for (String failure : myFailures) {
            Packet.writeStringNotNull(out, failure);
        }
    }
}
