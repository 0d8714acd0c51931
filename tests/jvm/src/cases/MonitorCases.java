package cases;

import fixtures.Waits;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.HashMap;
import java.util.Map;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;

/** Waits for monitors: who waited for whom, for how long, and where. */
public final class MonitorCases {
    private static final String DOOR = "fixtures.Waits$Door";
    private static final String HALL = "fixtures.Waits$Hall";
    private static final String GATE = "fixtures.Waits$Gate";
    private static final String LOCK = "java.util.concurrent.locks.ReentrantLock$NonfairSync";
    private static final String CONDITION =
            "java.util.concurrent.locks.AbstractQueuedSynchronizer$ConditionObject";
    private static final String SEMAPHORE = "java.util.concurrent.Semaphore$NonfairSync";
    private static final String PARK = "jdk.internal.misc.Unsafe.park";

    /** What the fixture is told, and the row that must come of it. */
    private static final String[][] WAITS = {
            {"block 2 300", "blocked", "on block", DOOR, "fixtures.Waits$Door.pass"},
            // The class is a monitor and the class of monitors at once.
            {"class 1 300", "outside", "on class", "java.lang.Class", "fixtures.Waits$Door.enter"},
            {"jni 1 300", "native", "on jni", DOOR, "fixtures.JniCalls.enters"},
            {"wait 1 300", "on wait", "itself", HALL, "java.lang.Object.wait"},
            {"lock 2 300", "locked", "on lock", LOCK, PARK},
            {"condition 1 300", "on condition", "itself", CONDITION, PARK},
            {"semaphore 1 300", "refused", "nobody", SEMAPHORE, PARK},
            {"take 1 300", "idle", "itself", CONDITION, PARK},
    };

    /** Where virtual threads give up their carriers at monitors. */
    private static final String[][] WAITS_BEHIND_VIRTUAL = {
            {"behind 1 300", "behind", "nobody", DOOR, "fixtures.Waits$Door.pass"},
            {"behindlock 1 300", "behind", "<Virtual threads>", LOCK, PARK},
    };

    private static final long HELD_UP_NS = 50_000_000;
    private static final String MERGED = "<Oldest finished threads>";
    private static final int TABLES = 1 | 1 << Tables.THREAD | 1 << Tables.METHOD |
                                      1 << Tables.MONITOR | 1 << Tables.FRAME |
                                      1 << Tables.GENERATIONS_OF_TABLES | 1 << Tables.PROPERTIES;

    private MonitorCases() {
    }

    /** What waiter, owner, class and innermost method have in common: time and number of waits. */
    private static final class Sums {
        private final Map<String, long[]> sums = new HashMap<>();
        private final Tables tables;

        Sums(Target target) throws Exception {
            tables = new Tables();
            try (AgentClient client = target.client()) {
                client.updateTables(TABLES, tables);
            }
            Map<Integer, String> names = tables.namesByNumber();
            for (Object[] row : tables.rows.get(Tables.MONITOR).values()) {
                String waiter = names.get((Integer) row[1]);
                String owner = row[3].equals(0)        ? "nobody"
                               : row[1].equals(row[3]) ? "itself"
                                                       : names.get((Integer) row[3]);
                String key =
                        waiter + " < " + owner + " < " + tables.text((Integer) row[4]) + " < " +
                        tables.frameMethod((Integer) row[2]).replace("Object.wait0", "Object.wait");
                long[] sum =
                        sums.computeIfAbsent(key.replaceAll("crowd-\\d+", "crowd")
                                                     .replaceAll("AtGate\\$\\d+", "AtGate\\$*"),
                                             k -> new long[2]);
                sum[0] += (Long) row[5];
                sum[1] += (Long) row[6];
            }
        }

        long[] of(String... parts) {
            return sums.getOrDefault(String.join(" < ", parts), new long[2]);
        }

        /** Of the class as a whole. */
        long[] ofClass(String className) {
            long[] all = new long[2];
            sums.forEach((key, sum) -> {
                if (key.contains(" < " + className + " < ")) {
                    all[0] += sum[0];
                    all[1] += sum[1];
                }
            });
            return all;
        }

        @Override
        public String toString() {
            StringBuilder text = new StringBuilder();
            sums.forEach((key, sum)
                                 -> text.append(key)
                                            .append(": ")
                                            .append(sum[0])
                                            .append(" ns, ")
                                            .append(sum[1])
                                            .append(" times\n"));
            return text.toString();
        }
    }

    /** Runs a line of the fixture; gives the least and the most that its waits took. */
    private static long[] run(Target target, String line) throws Exception {
        String name = "done " + line.split(" ")[0] + " ";
        int before = target.output().split(name, -1).length;
        target.send(line);
        Check.await(() -> {
            String[] parts = target.output().split(name, -1);
            return parts.length > before && parts[before].contains("\n");
        }, name);
        String[] bounds = target.output().split(name, -1)[before].split("\n")[0].split(" ");
        return new long[] {Long.parseLong(bounds[0]), Long.parseLong(bounds[1])};
    }

    /**
     * By the waiters' own clocks; at a lock a thread may park more than once. A thread is seen to
     * wait before it tells so, and on a busy machine may be held up in between.
     */
    private static void checkTime(long[] sum, int count, long[] bounds, Object sums) {
        Check.isTrue(sum[1] >= count && sum[1] <= count + 2, sum[1] + " waits in " + sums);
        Check.isTrue(sum[0] >= bounds[0] - count * HELD_UP_NS && sum[0] <= bounds[1],
                     sum[0] + " ns of " + bounds[0] + " to " + bounds[1] + " in " + sums);
    }

    private static void checkWaits(Target target, String[][] rows) throws Exception {
        for (String[] row : rows) {
            long[] bounds = run(target, row[0]);
            Sums sums = new Sums(target);
            checkTime(sums.of(Arrays.copyOfRange(row, 1, row.length)),
                      Integer.parseInt(row[0].split(" ")[1]), bounds, sums);
        }
    }

    private static String pid(Target target) {
        return Long.toString(target.pid());
    }

    /** Each thread of a crowd once for who holds it first, or for another one of them. */
    private static void checkCrowd(Sums sums, String line, String className, String method,
                                   long[] bounds) {
        long[] first = sums.of("crowd", "on " + line, className, method);
        long[] rest = sums.of("crowd", "crowd", className, method);
        // On a machine that is busy for long one may ask just when nobody holds it.
        Check.isTrue(first[1] >= 45, "waits for the first in " + sums);
        long all = first[0] + rest[0];
        Check.isTrue(all <= bounds[1] && all >= bounds[1] * first[1] / 50 * 0.95,
                     all + " ns of " + bounds[1] + " by the program's clock in " + sums);
    }

    /** They are one waiter; the carriers, between which they change, wait for nothing. */
    private static void checkVirtual(Target target, Sums before) throws Exception {
        long[] bounds = run(target, "virtual 20 200");
        Sums sums = new Sums(target);
        String all = "<Virtual threads>";
        String method = "fixtures.Waits.passAndWait";
        Check.equal(sums.of(all, "on virtual", GATE, method)[1], 20L, "blocked in " + sums);
        Check.equal(sums.of(all, "itself", GATE, "java.lang.Object.wait")[1], 20L,
                    "in wait() in " + sums);
        long[] gate = sums.ofClass(GATE);
        long[] old = before.ofClass(GATE);
        // Getting the monitor back may be a wait for another one of them.
        Check.isTrue(gate[1] - old[1] <= 60, "waits of virtual threads in " + sums);
        Check.isTrue(gate[0] - old[0] >= bounds[0] * 0.95 && gate[0] - old[0] <= bounds[1],
                     bounds[0] + " to " + bounds[1] + " ns of virtual threads in " + sums);
    }

    @Case(fixture = Waits.class, agent = "noexceptionevents,deadthreadlimit=200")
    static void tellsWhoWaitedForWhomAndHowLong(Target target) throws Exception {
        run(target, "block 1 20");
        Check.equal(new Sums(target).toString(), "", "rows before the start");
        Tool.vdk("monitors", "start", pid(target));
        try (AgentClient client = target.client()) {
            Check.equal(client.request(AgentClient.START_MONITORS).error(),
                        "Cannot start monitor profiling: Already started", "a second start");
        }
        checkWaits(target, WAITS);
        long[] bounds = run(target, "crowd 50 2");
        Sums crowd = new Sums(target);
        checkCrowd(crowd, "crowd", GATE, "fixtures.Waits.lambda$crowdAtGate$*", bounds);
        bounds = run(target, "lockcrowd 50 2");
        checkCrowd(new Sums(target), "lockcrowd", LOCK, PARK, bounds);
        if (target.jdk.release >= 25) {
            checkVirtual(target, crowd);
            checkWaits(target, WAITS_BEHIND_VIRTUAL);
        }
        checkClient(target);
        checkStopAndClear(target);
        checkDeadlock(target);
        Check.equal(target.output().replaceAll("(ready|done .*|bye)\n", ""), "",
                    "what the JVM says to its natives being taken over");
        target.finish();
    }

    private static void checkClient(Target target) throws Exception {
        Path snapshot = target.folder.resolve("waits.snapshot");
        Tool.vdk("snapshot", pid(target), "--out", snapshot.toString());
        for (String source : new String[] {pid(target), snapshot.toString()}) {
            // On a busy machine the JDK's own waits are many, too.
            String text = Tool.vdk("report", source, "--show", "monitors", "--min-percent", "0",
                                   "--top", "1000");
            for (String part : new String[] {"crowd-*", "on block", DOOR, "Waits$Door.pass",
                                             "recorded for", "Where threads were in Object.wait",
                                             "FOR WORK", "parked for others", LOCK, "Waits.lock"}) {
                Check.contains(text, part, "report on " + source);
            }
            Check.contains(Tool.vdk("report", source, "--show", "monitors", "--json"),
                           "\"ownerTrn\"", "JSON of " + source);
        }
        Tool.checkTopIsLikeReport(pid(target), "monitors", "method");
        Tool.checkTopIsLikeReport(pid(target), "monitors", "thread");
    }

    private static void checkStopAndClear(Target target) throws Exception {
        Tool.vdk("monitors", "stop", pid(target));
        long[] before = new Sums(target).ofClass(DOOR);
        run(target, "block 1 20");
        Check.equal(new Sums(target).ofClass(DOOR)[1], before[1], "waits after the stop");
        Tool.vdk("clear", "--monitors", pid(target));
        Sums cleared = new Sums(target);
        Check.equal(cleared.toString(), "", "rows after clearing");
        Check.isTrue(
                cleared.tables.rows.get(Tables.GENERATIONS_OF_TABLES).containsKey(Tables.MONITOR),
                "the clear is told by the generation of the table");
        Tool.vdk("monitors", "start", pid(target));
        long[] block = run(target, "block 1 300");
        Sums sums = new Sums(target);
        checkTime(sums.of("blocked", "on block", DOOR, "fixtures.Waits$Door.pass"), 1, block, sums);
    }

    /** Of monitors and of locks, with who waits for what and who holds it. */
    private static void checkDeadlock(Target target) throws Exception {
        run(target, "deadlock 2 0");
        String text = Tool.vdk("dump", pid(target));
        text = text.substring(text.indexOf("Found a deadlock of 4 threads:"));
        for (String[] row : new String[][] {{"left", "waiting to lock", GATE, "right"},
                                            {"right", "waiting to lock", DOOR, "left"},
                                            {"one", "waiting on", LOCK, "other"},
                                            {"other", "waiting on", LOCK, "one"}}) {
            String pattern = "(?s).*\"deadlock " + row[0] + "\" id=\\d+\n\\s+" + row[1] +
                             " <0x[0-9a-f]+> \\(a \\Q" + row[2] + "\\E\\) owned by \"deadlock " +
                             row[3] + "\" id=.*";
            Check.isTrue(text.matches(pattern), pattern + " in " + text);
        }
        String json = Tool.vdk("dump", pid(target), "--json").replaceAll("\\s", "");
        Check.isTrue(json.matches(".*\"deadlocked\":\\[\\d+,\\d+,\\d+,\\d+\\].*"), json);
    }

    /** The native of parks comes and goes under threads that are in it, compiled callers too. */
    @Case(fixture = Waits.class, agent = "noexceptionevents", jvm = "-Xcheck:jni", attach = false)
    static void startsAndStopsUnderLoad(Target target) throws Exception {
        target.send("load 6 0");
        target.awaitOutput("loading");
        long begin = System.nanoTime();
        for (int i = 0; i < 100; i++) {
            for (int packet : new int[] {AgentClient.START_MONITORS, AgentClient.STOP_MONITORS}) {
                try (AgentClient client = target.client()) {
                    client.request(packet).ok();
                }
            }
        }
        long passed = System.nanoTime() - begin;
        Sums sums = new Sums(target);
        Check.isTrue(sums.ofClass(LOCK)[1] > 0 && sums.ofClass("<no blocker>")[1] > 0, "" + sums);
        Check.isTrue(sums.ofClass(LOCK)[0] <= passed * 6, passed + " ns passed, and " + sums);
        // The program counts what it does, and would end with an error.
        target.send("stopload");
        target.awaitOutput("done load");
        Check.equal(new Sums(target).toString(), sums.toString(), "rows after the last stop");
        Check.isTrue(!target.output().contains("WARNING") && target.errors().isEmpty(),
                     target.state());
        target.finish();
    }

    /** From the start on, as an option asks. */
    @Case(fixture = Waits.class, agent = "noexceptionevents,monitors,noparks,deadthreadlimit=1",
          attach = false)
    static void
    threadsThatEndedAreMerged(Target target) throws Exception {
        run(target, "lock 1 20");
        long[] bounds = run(target, "block 20 60");
        Sums sums = new Sums(target);
        Check.equal(sums.ofClass(LOCK)[1], 0L, "parks, which the option leaves out, in " + sums);
        // On a busy machine the monitor may be free before the waiter asks who has it.
        long[] all = sums.ofClass(DOOR);
        Check.isTrue(all[1] >= 10 && all[1] <= 20 && all[0] <= bounds[1], "waits in " + sums);
        Check.isTrue(sums.of(MERGED, "on block", DOOR, "fixtures.Waits$Door.pass")[1] >= 5,
                     "waits of merged threads in " + sums);
        target.finish();
    }
}
