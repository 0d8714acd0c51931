package cases;

import fixtures.Thrown;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;

/** Exceptions, counted by class and by the methods that threw and caught them. */
public final class ExceptionCases {
    private static final String THROWN = "fixtures.Thrown";
    private static final int TABLES = 1 | 1 << Tables.THREAD | 1 << Tables.METHOD |
                                      1 << Tables.FRAME | 1 << Tables.GENERATIONS_OF_TABLES |
                                      1 << Tables.EXCEPTION;

    private ExceptionCases() {
    }

    private static Tables fetch(Target target) throws Exception {
        Tables tables = new Tables();
        try (AgentClient client = target.client()) {
            client.updateTables(TABLES, tables);
        }
        return tables;
    }

    private static String method(Tables tables, Object frame) {
        return (Integer) frame == 0 ? "nobody" : tables.frameMethod((Integer) frame);
    }

    /** Throws by "class < thrower < catcher", of the fixture's threads. */
    private static Map<String, Long> counts(Target target) throws Exception {
        Tables tables = fetch(target);
        Map<String, Long> counts = new TreeMap<>();
        for (Object[] row : tables.rows.get(Tables.EXCEPTION).values()) {
            // The JVM makes some for itself, which nobody throws, as it looks for methods.
            boolean isLookUp = method(tables, row[2]).startsWith("java.lang.invoke.");
            if ((Long) row[5] != 0 && !isLookUp &&
                tables.stack((Integer) row[2]).contains(THROWN + ".body")) {
                String key = tables.text((Integer) row[4]) + " < " + method(tables, row[2]) +
                             " < " + method(tables, row[3]);
                counts.merge(key.replace(THROWN, "T"), (Long) row[5], Long::sum);
            }
        }
        return counts;
    }

    private static void run(Target target, String line) throws Exception {
        String name = "done " + line.split(" ")[0] + "\n";
        int before = target.output().split(name, -1).length;
        target.send(line);
        Check.await(() -> target.output().split(name, -1).length > before, name);
    }

    /**
     * What is thrown, at which site it counts by events and by inserted calls, where it is caught,
     * and how often. An inserted call sees who creates an exception and not who throws it, and
     * catches only in classes that the filters let through.
     */
    private static Map<String, Long> expected(Target target, boolean byCalls) {
        String reflection = target.jdk.release < 18
                                    ? "jdk.internal.reflect.NativeMethodAccessorImpl.invoke0"
                                    : "jdk.internal.reflect.DirectMethodHandleAccessor.invoke";
        // A native method catches without a handler that the JVM's event could name.
        boolean isCaught = target.jdk.release >= 18 && !byCalls;
        Object[][] rows = {
                {"T$Plain", "T.inItsOwnFrame", "T.inItsOwnFrame", "T.inItsOwnFrame", 4000},
                {"T$Plain", "T.thrower", "T.inTheCaller", "T.inTheCaller", 200},
                // Caught, thrown on and caught again is one exception, of the first throw.
                {"T$Again", "T.thrower", "T.thrownOn", "T.twice", 50},
                {"T$Deadly", "T.thrower", "T.dies", "nobody", 3},
                {"java.lang.NumberFormatException", "java.lang.Integer.parseInt",
                 "java.lang.NumberFormatException.forInputString", "T.byTheJdk", 5},
                {"java.lang.ClassNotFoundException",
                 "jdk.internal.loader.BuiltinClassLoader.loadClass",
                 "jdk.internal.loader.BuiltinClassLoader.loadClass", "T.byTheJdk", 5},
                {"java.lang.ArrayStoreException", "T.byNativeCode", "java.lang.System.arraycopy",
                 "T.byNativeCode", 5},
                {"java.lang.reflect.InvocationTargetException", reflection, reflection,
                 "T.byNativeCode", 5},
                {"T$Plain", "T.thrower", "T.inner", isCaught ? reflection : "nobody", 5},
        };
        Map<String, Long> expected = new TreeMap<>();
        for (Object[] row : rows) {
            expected.put(row[0] + " < " + row[byCalls ? 2 : 1] + " < " + row[3],
                         ((Integer) row[4]).longValue());
        }
        return expected;
    }

    private static void checkKinds(Target target, boolean byCalls) throws Exception {
        run(target, "own 8 500");
        run(target, "caller 2 100");
        run(target, "twice 1 50");
        run(target, "dies 3 1");
        run(target, "jdk 1 5");
        // Fewer than make the JVM replace the native method behind reflection.
        run(target, "native 1 5");
        if (target.jdk.release >= 21) {
            run(target, "virtual 1 1");
        }
        Check.equal(counts(target), expected(target, byCalls), "exceptions");
    }

    private static void listen(Target target, String properties, String file) throws Exception {
        List<String> words =
                new ArrayList<>(List.of("triggers", ":" + target.port, "add", "ExceptionListener"));
        words.addAll(List.of(properties.split(" ")));
        words.addAll(List.of("PrintMessage", "message=${EXCEPTION_COUNT} ${EXCEPTION_CLASS}",
                             "output=" + target.folder.resolve(file)));
        Tool.vdk(words.toArray(new String[0]));
    }

    private static List<String> told(Target target, String file) throws Exception {
        Path path = target.folder.resolve(file);
        return Files.exists(path) ? Files.readAllLines(path) : List.of();
    }

    private static long heard(Target target) throws Exception {
        long sum = 0;
        for (String line : told(target, "each")) {
            sum += Long.parseLong(line.substring(0, line.indexOf(' ')));
        }
        return sum;
    }

    private static void awaitHeard(Target target, long count) throws Exception {
        Check.await(20, () -> heard(target) >= count, () -> count + " heard: " + target.state());
        Check.equal(heard(target), count, "exceptions that a listener heard of");
    }

    /**
     * Listeners hear of each exception once, on virtual threads too, whether rows are on or not.
     */
    private static long checkListeners(Target target) throws Exception {
        listen(target, "classPattern=" + THROWN + "$* moreThan=0 within=1h", "each");
        listen(target, "classPattern=*$Deadly moreThan=2 within=1h maxTriggerCount=1", "third");
        listen(target, "classPattern=*$Deadly moreThan=3 within=1h", "fourth");
        run(target, "own 4 300");
        run(target, "twice 1 50");
        run(target, "dies 3 1");
        long count = 1253;
        if (target.jdk.release >= 21) {
            run(target, "virtual 1 1");
            count += 1000;
        }
        awaitHeard(target, count);
        // Each listener writes to a file of its own, not all at the same moment.
        Check.await(20, () -> !told(target, "third").isEmpty(), () -> "third: " + target.state());
        Check.equal(told(target, "third"), List.of("3 " + THROWN + "$Deadly"), "one too many");
        Check.equal(told(target, "fourth"), List.of(), "a limit that is not passed");
        return count;
    }

    @Case(fixture = Thrown.class, attach = false, agent = "telemetryperiod=100")
    static void countsThrowsByClassAndSite(Target target) throws Exception {
        String pid = Long.toString(target.pid());
        checkListeners(target);
        Tool.vdk("triggers", ":" + target.port, "clear");
        Tool.vdk("clear", "--exceptions", pid);
        checkKinds(target, false);
        checkReport(pid, "THROWN IN");
        checkSwitching(target);
        target.finish();
    }

    /** The same counts where the JVM sends no events, and nothing before somebody asks. */
    @Case(fixture = Thrown.class, agent = "noexceptionevents,telemetryperiod=100")
    static void countsWithoutEventsByInsertedCalls(Target target) throws Exception {
        String pid = Long.toString(target.pid());
        run(target, "own 2 10");
        long heard = checkListeners(target);
        Check.isTrue(fetch(target).rows.get(Tables.EXCEPTION).isEmpty(), "rows before the start");
        Tool.vdk("exceptions", "on", pid);
        Tool.vdk("exceptions", "off", pid);
        run(target, "own 1 5");
        awaitHeard(target, heard + 5);
        Tool.vdk("exceptions", "on", pid);
        Tool.vdk("triggers", ":" + target.port, "clear");
        Check.contains(Tool.vdk("status", pid), "by inserted calls", "the road");
        checkKinds(target, true);
        checkReport(pid, "CREATED IN");
        Tool.checkTopIsLikeReport(pid, "exceptions", "class");
        checkSwitching(target);
        target.finish();
    }

    private static void checkReport(String source, String title) throws Exception {
        String text = Tool.vdk("report", source, "--show", "exceptions");
        for (String part : new String[] {title, "T$Again", "own-*", "twice"}) {
            Check.contains(text.replace(THROWN, "T"), part, "report");
        }
    }

    private static void checkSwitching(Target target) throws Exception {
        String pid = Long.toString(target.pid());
        Tool.vdk("exceptions", "off", pid);
        Map<String, Long> before = counts(target);
        run(target, "own 1 10");
        Check.equal(counts(target), before, "exceptions while nobody counts");
        Tool.vdk("clear", "--exceptions", pid);
        Tool.vdk("exceptions", "on", pid);
        Tables cleared = fetch(target);
        Check.isTrue(cleared.rows.get(Tables.GENERATIONS_OF_TABLES).containsKey(Tables.EXCEPTION),
                     "the clear is told by the generation of the table");
        Check.equal(counts(target), Map.of(), "after clearing");
        run(target, "own 1 10");
        Check.equal(counts(target), Map.of("T$Plain < T.inItsOwnFrame < T.inItsOwnFrame", 10L),
                    "after clearing and a start");
    }

    /** An exception that outlives its thread's rows takes nothing from whoever has them now. */
    @Case(fixture = Thrown.class, attach = false, agent = "deadthreadlimit=1")
    static void threadsThatEndedAreMerged(Target target) throws Exception {
        run(target, "first 1 2");
        run(target, "own 40 10");
        run(target, "later 1 2");
        Check.equal(counts(target),
                    Map.of("T$Plain < T.first < T.first", 1L,
                           "T$Plain < T.inItsOwnFrame < T.inItsOwnFrame", 400L,
                           "T$Plain < T.later < T.later", 1L),
                    "exceptions of all threads");
        Tables tables = fetch(target);
        Map<Integer, String> names = tables.namesByNumber();
        long merged = 0;
        for (Object[] row : tables.rows.get(Tables.EXCEPTION).values()) {
            boolean isOurs = tables.stack((Integer) row[2]).contains(THROWN + ".body");
            if (isOurs && "<Oldest finished threads>".equals(names.get((Integer) row[1]))) {
                merged += (Long) row[5];
            }
        }
        Check.isTrue(merged >= 250, "exceptions of merged threads: " + merged);
        target.finish();
    }

    @Case(fixture = Thrown.class, attach = false,
          agent = "disableexceptiontelemetry,telemetryperiod=100")
    static void
    isOffWhereTheOptionSaysSo(Target target) throws Exception {
        checkListeners(target);
        Check.isTrue(fetch(target).rows.get(Tables.EXCEPTION).isEmpty(), "rows");
        target.finish();
    }
}
