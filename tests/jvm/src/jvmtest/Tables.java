package jvmtest;

import java.io.DataInputStream;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;

/** A client's copy of the core tables, read from the little-endian table stream. */
public final class Tables {
    /** Fields of a row behind the stamp, one letter each: i int, l long, s string. */
    private static final String[] FIELDS = {
            "s",    "iiiil", "iiii", "ii", "iiiill", "iiiill", "ll", "iil",
            "iiii", "",      "il",   "ll", "",       "iil",    "ii", "iiiiiiiiiiiiiiiii",
            "iiil", "iiiil", "ii"};

    public static final int STRING = 0;
    public static final int THREAD = 1;
    public static final int METHOD = 2;
    public static final int THREADFRAME = 3;
    public static final int J2EE = 4;
    public static final int MONITOR = 5;
    public static final int CPU = 6;
    public static final int INSTANCES = 7;
    public static final int FRAME = 8;
    public static final int GENERATIONS_OF_TABLES = 9;
    public static final int SNAPSHOT = 10;
    public static final int GENERATION = 13;
    public static final int PROPERTIES = 14;
    public static final int TELE = 15;
    public static final int THREADSTATE = 16;
    public static final int EXCEPTION = 17;
    public static final int TELE_EXT = 18;

    /** Live rows by index; element 0 of a row is its stamp. */
    public final List<TreeMap<Integer, Object[]>> rows = new ArrayList<>();

    /** Rows that came with the last read, deletions included. */
    public int lastRead;

    public int lastDeleted;
    private final int[] stamps = new int[128];

    public Tables() {
        for (int slot = 0; slot < FIELDS.length; slot++) {
            rows.add(new TreeMap<>());
        }
    }

    public int stamp(int slot) {
        return stamps[slot];
    }

    public void read(DataInputStream in) throws IOException {
        lastRead = 0;
        lastDeleted = 0;
        for (int slot = readInt(in); slot != -1; slot = readInt(in)) {
            Check.isTrue(slot >= 0 && slot < FIELDS.length, "table slot " + slot);
            int count = readInt(in);
            for (int i = 0; i < count; i++) {
                readRow(in, slot);
            }
            lastRead += count;
        }
    }

    private void readRow(DataInputStream in, int slot) throws IOException {
        int index = readInt(in);
        String fields = FIELDS[slot];
        Object[] row = new Object[fields.length() + 1];
        int stamp = readInt(in);
        row[0] = stamp;
        for (int f = 0; f < fields.length(); f++) {
            char type = fields.charAt(f);
            row[f + 1] = type == 'i'   ? (Object) readInt(in)
                         : type == 'l' ? readLong(in)
                                       : readText(in);
        }
        stamps[slot] = Math.max(stamps[slot], Math.abs(stamp));
        Check.isTrue(stamp != 0, "a row that is not there: " + slot + "/" + index);
        if (stamp < 0) {
            lastDeleted++;
            rows.get(slot).remove(index);
        } else {
            rows.get(slot).put(index, row);
        }
    }

    private static int readInt(DataInputStream in) throws IOException {
        return Integer.reverseBytes(in.readInt());
    }

    private static long readLong(DataInputStream in) throws IOException {
        return Long.reverseBytes(in.readLong());
    }

    private static String readText(DataInputStream in) throws IOException {
        int length = readInt(in);
        if (length < 0) {
            return null;
        }
        byte[] bytes = new byte[length];
        in.readFully(bytes);
        return new String(bytes, StandardCharsets.UTF_8);
    }

    public String text(int index) {
        Object[] row = rows.get(STRING).get(index);
        return row == null ? null : (String) row[1];
    }

    /** The last value of this name that telemetry has brought beside its fixed ones, or null. */
    public Integer extraValue(String name) {
        for (Object[] row : rows.get(TELE_EXT).descendingMap().values()) {
            if (name.equals(text((Integer) row[1]))) {
                return (Integer) row[2];
            }
        }
        return null;
    }

    public int intAt(int slot, int index, int field) {
        return (Integer) rows.get(slot).get(index)[field];
    }

    /** "class.method" of a method row. */
    public String methodName(int method) {
        return text(intAt(METHOD, method, 3)) + "." + text(intAt(METHOD, method, 1));
    }

    /** Name of the method that a frame stands for. */
    public String frameMethod(int frame) {
        return methodName(intAt(FRAME, frame, 2));
    }

    public int parent(int frame) {
        return frame <= 0 ? -1 : intAt(FRAME, frame, 1);
    }

    /** Outermost first. */
    public List<String> stack(int frame) {
        List<String> stack = new ArrayList<>();
        for (int f = frame; f > 0; f = parent(f)) {
            stack.add(0, frameMethod(f));
        }
        return stack;
    }

    /** Time of each method itself, without callees, over all threads, in nanoseconds. */
    public Map<String, Long> ownTimes() {
        Map<String, Long> own = new HashMap<>();
        Map<Long, Long> timeByThreadAndFrame = new HashMap<>();
        forEachCpuRow((thread, frame, time) -> timeByThreadAndFrame.put(key(thread, frame), time));
        forEachCpuRow((thread, frame, time) -> {
            own.merge(frameMethod(frame), time, Long::sum);
            int parent = parent(frame);
            if (parent > 0 && timeByThreadAndFrame.containsKey(key(thread, parent))) {
                own.merge(frameMethod(parent), -time, Long::sum);
            }
        });
        return own;
    }

    /**
     * Time inside each method, callees included, over all threads, in nanoseconds; not for
     * recursive ones.
     */
    public Map<String, Long> totalTimes() {
        Map<String, Long> total = new HashMap<>();
        forEachCpuRow((thread, frame, time) -> total.merge(frameMethod(frame), time, Long::sum));
        return total;
    }

    /** The time of a frame is never negative and never below that of the frames called from it. */
    public void checkTimes() {
        Map<Long, Long> times = new HashMap<>();
        Map<Long, Long> callees = new HashMap<>();
        forEachCpuRow((thread, frame, time) -> {
            times.put(key(thread, frame), time);
            callees.merge(key(thread, parent(frame)), time, Long::sum);
        });
        times.forEach((key, time) -> {
            long below = callees.getOrDefault(key, 0L);
            // No text beforehand: a stack may be 10000 frames deep.
            if (time < 0 || time < below) {
                throw new AssertionError(frameMethod(key.intValue()) + " has " + time +
                                         " ns, its callees " + below);
            }
        });
    }

    /** Receives one row of CPU time: the thread's key, the frame and nanoseconds. */
    public interface CpuRow {
        void accept(int thread, int frame, long time);
    }

    /** Leaves out rows without time and calls, such as cleared ones that were merged later. */
    public void forEachCpuRow(CpuRow consumer) {
        for (Map.Entry<Integer, Object[]> entry : rows.get(CPU).entrySet()) {
            Object[] pair = rows.get(THREADFRAME).get(entry.getKey());
            boolean used = (Long) entry.getValue()[1] != 0 || (Long) entry.getValue()[2] != 0;
            if (pair != null && used && (Integer) pair[2] > 0) {
                consumer.accept((Integer) pair[1], (Integer) pair[2], (Long) entry.getValue()[1]);
            }
        }
    }

    /**
     * Number of calls of each method over all threads: by "class.method" for all overloads, and by
     * "class.method(parameters)".
     */
    public Map<String, Long> callCounts() {
        return callCounts("");
    }

    /** The same of the threads whose name begins so. */
    public Map<String, Long> callCounts(String threadPrefix) {
        Map<Integer, String> names = threadNames();
        Map<String, Long> counts = new HashMap<>();
        for (Map.Entry<Integer, Object[]> entry : rows.get(CPU).entrySet()) {
            Object[] pair = rows.get(THREADFRAME).get(entry.getKey());
            if (pair != null && (Integer) pair[2] > 0 &&
                String.valueOf(names.get((Integer) pair[1])).startsWith(threadPrefix)) {
                int method = intAt(FRAME, (Integer) pair[2], 2);
                long count = (Long) entry.getValue()[2];
                counts.merge(methodName(method), count, Long::sum);
                counts.merge(methodName(method) + text(intAt(METHOD, method, 2)), count, Long::sum);
            }
        }
        return counts;
    }

    /** By the key of rows of CPU time. */
    public String threadName(int key) {
        return String.valueOf(threadNames().get(key));
    }

    private Map<Integer, String> threadNames() {
        return threadNames(3);
    }

    /** Names of the threads by their running numbers. */
    public Map<Integer, String> namesByNumber() {
        return threadNames(4);
    }

    private Map<Integer, String> threadNames(int keyField) {
        Map<Integer, String> names = new HashMap<>();
        for (Object[] row : rows.get(THREAD).values()) {
            names.put((Integer) row[keyField], text((Integer) row[1]));
        }
        return names;
    }

    private static long key(int thread, int frame) {
        return (long) thread << 32 | frame;
    }

    /** CPU time of a thread's outermost frames, by the thread's name. */
    public Map<String, Long> timeByThread() {
        Map<Integer, String> names = threadNames();
        Map<String, Long> times = new HashMap<>();
        forEachCpuRow((thread, frame, time) -> {
            if (parent(frame) <= 0) {
                times.merge(String.valueOf(names.get(thread)), time, Long::sum);
            }
        });
        return times;
    }
}
