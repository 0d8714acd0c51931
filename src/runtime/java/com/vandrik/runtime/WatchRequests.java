package com.vandrik.runtime;

import com.vandrik.probes.watch.CallSums;
import com.vandrik.probes.watch.Watch;
import com.vandrik.probes.watch.WatchEvent;
import com.vandrik.probes.watch.WatchSettings;
import com.vandrik.probes.watch.Watches;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.util.Collections;
import java.util.List;

/** The requests that start, read and stop watches. */
final class WatchRequests {
    private static final int DEFAULT_EVENTS = 1000;

    private WatchRequests() {
    }

    static void start(DataInputStream in, DataOutputStream out)
            throws IOException, PresentableException {
        String pattern = Packet.readStringNotNull(in);
        String instanceOf = Packet.readStringNotNull(in);
        int flags = Packet.readInt(in);
        long shortestNs = Packet.readLong(in);
        long mostEvents = Packet.readLong(in);
        int room = Packet.readInt(in);
        int stackDepth = Packet.readInt(in);
        int leaseMs = Packet.readInt(in);
        String where = Packet.readStringNotNull(in);
        String masks = Packet.readStringNotNull(in);
        Watch watch =
                Watches.start(new WatchSettings(pattern, instanceOf, flags, shortestNs, mostEvents,
                                                room, stackDepth, leaseMs, where, masks));
        Packet.writeHeader(out);
        Packet.writeInt(out, watch.getID());
        Packet.writeInt(out, watch.getClassCount());
    }

    static void stop(DataInputStream in, DataOutputStream out) throws IOException {
        Watches.stop(find(Packet.readInt(in)));
        Packet.writeHeader(out);
    }

    static void read(DataInputStream in, DataOutputStream out) throws IOException {
        int id = Packet.readInt(in);
        int most = Packet.readInt(in);
        Watch watch = find(id);
        // Asked before the events are taken: what comes meanwhile is left for the next read.
        boolean isComplete = watch.isComplete();
        List<WatchEvent> events = watch.take(most <= 0 ? DEFAULT_EVENTS : most);
        List<CallSums.Row> rows = watch.getSums() == null ? Collections.<CallSums.Row>emptyList()
                                                          : watch.getSums().getRows();
        Packet.writeHeader(out);
        for (long count : watch.getCounts()) {
            Packet.writeLong(out, count);
        }
        Packet.writeInt(out, isComplete ? 1 : 0);
        Packet.writeInt(out, watch.getWaiting());
        Packet.writeInt(out, events.size());
        for (WatchEvent event : events) {
            write(out, event);
        }
        Packet.writeInt(out, rows.size());
        for (CallSums.Row row : rows) {
            write(out, row);
        }
    }

    private static Watch find(int id) {
        Watch watch = Watches.find(id);
        if (watch == null) {
            throw new IllegalArgumentException("there is no watch " + id +
                                               ": it was stopped, or nobody read it for too long");
        }
        return watch;
    }

    private static void write(DataOutputStream out, WatchEvent event) throws IOException {
        Packet.writeLong(out, event.number);
        Packet.writeLong(out, event.endMs);
        Packet.writeLong(out, event.durationNs);
        Packet.writeLong(out, event.threadID);
        Packet.writeString(out, event.threadName);
        Packet.writeString(out, event.type);
        Packet.writeString(out, event.objectType);
        Packet.writeString(out, event.method);
        Packet.writeString(out, event.signature);
        Packet.writeInt(out, event.exception == null ? 0 : 1);
        Packet.writeString(out, event.object);
        Packet.writeInt(out, event.arguments == null ? -1 : event.arguments.length);
        for (int i = 0; event.arguments != null && i < event.arguments.length; i++) {
            Packet.writeString(out, event.arguments[i]);
        }
        Packet.writeString(out, event.result);
        Packet.writeString(out, event.exception);
        Packet.writeInt(out, event.frames == null ? 0 : event.frames.length);
        for (int i = 0; event.frames != null && i < event.frames.length; i++) {
            StackTraceElement frame = event.frames[i];
            Packet.writeString(out, frame.getClassName() + "." + frame.getMethodName() + "(" +
                                            sourceOf(frame) + ")");
        }
    }

    private static String sourceOf(StackTraceElement frame) {
        if (frame.isNativeMethod()) {
            return "Native Method";
        }
        String file = frame.getFileName() == null ? "Unknown Source" : frame.getFileName();
        return frame.getLineNumber() < 0 ? file : file + ":" + frame.getLineNumber();
    }

    private static void write(DataOutputStream out, CallSums.Row row) throws IOException {
        long[] buckets = row.getBuckets();
        long calls = 0;
        int used = 0;
        for (long count : buckets) {
            calls += count;
            used += count == 0 ? 0 : 1;
        }
        Packet.writeString(out, row.type.getName());
        Packet.writeString(out, row.method);
        Packet.writeString(out, row.signature);
        Packet.writeLong(out, calls);
        Packet.writeLong(out, row.getErrors());
        Packet.writeLong(out, row.getTotalNs());
        Packet.writeLong(out, row.getShortestNs());
        Packet.writeLong(out, row.getLongestNs());
        Packet.writeInt(out, used);
        for (int i = 0; i < buckets.length; i++) {
            if (buckets[i] != 0) {
                Packet.writeInt(out, i);
                Packet.writeLong(out, buckets[i]);
            }
        }
    }
}
