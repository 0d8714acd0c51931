package cases;

import fixtures.Waits;
import java.nio.file.Path;
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
                String owner = row[1].equals(row[3]) ? "itself" : names.get((Integer) row[3]);
                String key = waiter + " < " + owner + " < " + tables.text((Integer) row[4]) +
                             " < " + tables.frameMethod((Integer) row[2]);
                long[] sum = sums.computeIfAbsent(key.replaceAll("crowd-\\d+", "crowd"),
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

    /** The most is exact; what a busy machine keeps from a handler is missing at the start. */
    private static void checkTime(long[] sum, int count, long[] bounds, Sums sums) {
        Check.equal(sum[1], (long) count, "number of waits in " + sums);
        Check.isTrue(sum[0] > bounds[0] / 2 && sum[0] <= bounds[1],
                     sum[0] + " ns of " + bounds[0] + " to " + bounds[1] + " in " + sums);
    }

    private static String pid(Target target) {
        return Long.toString(target.pid());
    }

    private static void checkCrowd(Sums sums, int threads, long[] bounds) {
        long[] first = sums.of("crowd", "on crowd", GATE, "fixtures.Waits.lambda$crowd$1");
        long[] rest = sums.of("crowd", "crowd", GATE, "fixtures.Waits.lambda$crowd$1");
        long[] all = sums.ofClass(GATE);
        // One that asks just when nobody holds the monitor opens no wait.
        Check.isTrue(all[1] >= threads / 5 && all[1] <= threads, "waits of the crowd in " + sums);
        Check.isTrue(all[0] <= bounds[1], all[0] + " ns of " + bounds[1] + " in " + sums);
        Check.equal(first[1] + rest[1], all[1], "known waiters and owners in " + sums);
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
        long[] block = run(target, "block 2 150");
        long[] outside = run(target, "class 1 150");
        long[] again = run(target, "block 1 150");
        long[] wait = run(target, "wait 2 150");
        Sums sums = new Sums(target);
        checkTime(sums.of("blocked", "on block", DOOR, "fixtures.Waits$Door.pass"), 3,
                  new long[] {block[0] + again[0], block[1] + again[1]}, sums);
        // The class is a monitor and the class of monitors at once.
        checkTime(sums.of("outside", "on class", "java.lang.Class", "fixtures.Waits$Door.enter"), 1,
                  outside, sums);
        checkTime(sums.ofClass(HALL), 2, wait, sums);
        Check.equal(sums.of("on wait", "itself", HALL,
                            target.jdk.release < 21 ? "java.lang.Object.wait"
                                                    : "java.lang.Object.wait0")[1],
                    2L, "waits for nobody in " + sums);
        long[] bounds = run(target, "crowd 50 2");
        Sums crowd = new Sums(target);
        checkCrowd(crowd, 50, bounds);
        if (target.jdk.release >= 21) {
            Tool.vdk("sample", "start", pid(target));
            run(target, "virtual 20 5");
            Check.equal(new Sums(target).ofClass(GATE)[1], crowd.ofClass(GATE)[1],
                        "rows for virtual threads and their carriers");
        }
        checkClient(target);
        checkStopAndClear(target);
        target.finish();
    }

    private static void checkClient(Target target) throws Exception {
        Path snapshot = target.folder.resolve("waits.snapshot");
        Tool.vdk("snapshot", pid(target), "--out", snapshot.toString());
        for (String source : new String[] {pid(target), snapshot.toString()}) {
            String text = Tool.vdk("report", source, "--show", "monitors");
            for (String part : new String[] {"crowd-*", "on block", DOOR, "Waits$Door.pass",
                                             "recorded for", "Where threads were in Object.wait"}) {
                Check.contains(text, part, "report on " + source);
            }
            Check.contains(Tool.vdk("report", source, "--show", "monitors", "--json"),
                           "\"ownerTrn\"", "JSON of " + source);
        }
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
        long[] block = run(target, "block 1 150");
        Sums sums = new Sums(target);
        checkTime(sums.of("blocked", "on block", DOOR, "fixtures.Waits$Door.pass"), 1, block, sums);
    }

    /** From the start on, as an option asks. */
    @Case(fixture = Waits.class, agent = "noexceptionevents,monitors,deadthreadlimit=1",
          attach = false)
    static void
    threadsThatEndedAreMerged(Target target) throws Exception {
        long[] bounds = run(target, "block 20 60");
        Sums sums = new Sums(target);
        // On a busy machine the monitor may be free before the waiter asks who has it.
        long[] all = sums.ofClass(DOOR);
        Check.isTrue(all[1] >= 10 && all[1] <= 20 && all[0] <= bounds[1], "waits in " + sums);
        Check.isTrue(sums.of(MERGED, "on block", DOOR, "fixtures.Waits$Door.pass")[1] >= 5,
                     "waits of merged threads in " + sums);
        target.finish();
    }
}
