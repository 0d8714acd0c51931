package com.vandrik.runtime;

import com.vandrik.probes.JVM;
import com.vandrik.probes.Probes;
import com.vandrik.util.Strings;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;

/** The requests that list, register and unregister probes. */
final class ProbeRequests {
    private static final int MAX_PROBES = 10000;

    private ProbeRequests() {
    }

    /** Names with status: 0 for all known probes, then 1 for those that are registered. */
    static void getProbes(DataOutputStream out) throws IOException {
        String[][] names = {Callback.getProbes(0), Callback.getProbes(1)};
        Packet.writeHeader(out);
        for (int status = 0; status < names.length; status++) {
            for (int i = 0; i < names[status].length; i++) {
                Packet.writeString(out, names[status][i]);
                Packet.writeInt(out, status);
            }
        }
        Packet.writeString(out, null);
    }

    static void setProbes(DataInputStream in, DataOutputStream out)
            throws IOException, PresentableException {
        List<String> toRegister = new ArrayList<String>();
        List<String> toUnregister = new ArrayList<String>();
        int count = readCount(in);
        for (int i = 0; i < count; i++) {
            String name = Packet.readStringNotNull(in);
            int status = Packet.readInt(in);
            (status == 0 ? toUnregister : toRegister).add(name);
        }
        try {
            if (!toUnregister.isEmpty()) {
                Probes.unregisterProbes(toUnregister.toArray(new String[0]));
            }
            if (!toRegister.isEmpty()) {
                Probes.registerProbes(toRegister.toArray(new String[0]));
            }
        } catch (Throwable e) {
            Packet.writeError(out, Strings.messageOf(e));
            return;
        }
        Packet.writeHeader(out);
    }

    static void registerByBytecode(DataInputStream in, DataOutputStream out)
            throws IOException, PresentableException {
        byte[][] classes = new byte[readCount(in)][];
        long total = 0;
        for (int i = 0; i < classes.length; i++) {
            int length = Packet.readInt(in);
            total += length;
            if (total > Packet.MAX_LENGTH) {
                throw Packet.incorrectData("Cannot allocate " + total + " bytes");
            }
            classes[i] = length == 0 ? null : Packet.readBlock(in, length, "class");
        }
        String failure;
        try {
            checkDynamicProbesSupported();
            failure = Callback.registerProbesByBytecode(classes, true, false);
        } catch (Throwable e) {
            failure = Strings.messageOf(e);
        }
        if (failure != null) {
            Packet.writeError(out, failure);
        } else {
            Packet.writeHeader(out);
        }
    }

    /** Classes can be defined and retransformed only between start and end of the JVM. */
    private static void checkDynamicProbesSupported() {
        if (!JVM.isLivePhase()) {
            throw new IllegalStateException(
                    "probes can be registered only while the application runs");
        }
    }

    private static int readCount(DataInputStream in) throws IOException, PresentableException {
        int count = Packet.readInt(in);
        if (count < 0 || count > MAX_PROBES) {
            throw Packet.incorrectData("Cannot take " + count + " probes");
        }
        return count;
    }
}
