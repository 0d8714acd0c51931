package com.vandrik.probes.watch;

import java.math.BigDecimal;
import java.util.List;
import jvmtest.Check;

/** Conditions, values, masks and buckets, without a JVM that is watched. */
public final class WatchTest {
    private static final Object[] ARGUMENTS = {"Anna \"A\"",
                                               5,
                                               2.5,
                                               null,
                                               Thread.State.NEW,
                                               new int[] {1, 2},
                                               'c',
                                               new BigDecimal("10.50"),
                                               Boolean.TRUE,
                                               new Object(),
                                               Double.NaN};

    /** Of a call with these arguments that took 1.5 ms and returned true. */
    private static final String[] HOLD = {
            "!!!!!!!!!!!!!!!!!!!!true",
            "args[0] == 'Anna \"A\"'",
            "args[0]==\"Anna \\\"A\\\"\"",
            "args[0] ~ 'nna'",
            "args[0] < 'B'",
            "args[1] == 5",
            "args[1] == 5.0",
            "args[1] >= -3 && args[1]<6",
            "args[2] > 2 && args[2] != 2",
            "args[3] == null",
            "args[4] == 'NEW'",
            "args[5].length == 2",
            "args[6] == 'c'",
            "args[7] == 10.5",
            "args[7] ~ '10.50'",
            "args[8] && result",
            "args[8] == true",
            "args[9] == 'java.lang.Object'",
            "args[10] != args[10]",
            "ms > 1 && ms < 2",
            "thread == 'main'",
            "exception == null",
            "!exception",
            "!(args[0] == 'x' || args[1] == 6)",
            "args[0] != 5",
            "args[1] == 1 || args[1] == 2 || args[1] == 5",
            "args[99] == 1 || true",
            "this == 'java.lang.String' || args[0] != null",
            "args[1] == 4 && args[0] == 'x' || result",
            "9223372036854775806 < 9223372036854775807",
    };

    private static final String[] FAIL = {
            "args[11] == 1",
            "args[11] != 1",
            "args[11]",
            "args[3].name == 'x'",
            "args[3].name != 'x'",
            "args[1] == '5'",
            "args[3]",
            "args[3] ~ 'null'",
            "!result",
            "args[10] == args[10]",
            "args[10] < 1",
            "args[5].size",
            "exception.cause",
            "this",
            "args[0] ~ 'nna' && !args[8]",
            "null",
            "args[0] < 5",
            "args[8] < false",
    };

    /** Text and what is told of it behind "where, column". */
    private static final String[][] FAULTS = {
            {" ", " 2 at the end: args[0]"},
            {"args == 1", " 6 at \"==\": [ is expected"},
            {"args[x] == 1", " 6 at \"x\": the number"},
            {"args[0] = 1", " 9 at \"=\": && or || is expected"},
            {"args[0] == ", " 12 at the end: args[0], result"},
            {"(ms > 1", " 8 at the end: ) is expected"},
            {"ms > 1)", " 7 at \")\": && or ||"},
            {"ms > 1 and ms < 2", " 8 at \"and\": && or ||"},
            {"result == \"x", " 11 at \"\"x\": the text does not end"},
            {"result == 'a\\", " 11 at \"'a\\\": the text does not end"},
            {"result == 'a\\'", " 11 at \"'a\\'\": unknown escape"},
            {"result == 'a\\q'", " 11 at \"'a\\q'\": unknown escape"},
            {"ms > 1.2.3", " 6 at \"1.2.3\": not a number"},
            {"ms > 99999999999999999999", " 6 at \"99999999999999999999\": not a number"},
            {"ms > -", " 7 at the end: a number"},
            {"this.0 == 1", " 6 at \"0\": the name of a field"},
            {"!(".repeat(10) + "(ms)"
                     + ")".repeat(10),
             " 21 at \"(\": ! and ( within each other"},
            {"price > 1", " 1 at \"price\": args[0], result, this"},
    };

    private static final Object[][] VALUES = {
            {null, "null"},
            {-5L, "-5"},
            {"a\"\\\n\u0007\u202e\ud83d\ude00\ud800",
             "\"a\\\"\\\\\\n\\u0007\\u202e\ud83d\ude00\\ud800\""},
            {'\'', "'''"},
            {Thread.State.NEW, "NEW"},
            {String.class, "class java.lang.String"},
            {new int[][] {{1}, {}}, "int[2][]{int[1]{1}, int[0]{}}"},
            {new Object[] {new Object[] {new Object[] {1}}},
             "java.lang.Object[1]{java.lang.Object[1]{java.lang.Object[1]{...}}}"},
            {new byte[20], "byte[20]{0, 0, 0, 0, 0, 0, 0, 0, ...}"},
            {new BigDecimal("1.50"), "1.50"},
            {java.time.LocalDate.of(2026, 11, 22), "2026-11-22"},
    };

    /** Lines, method, what is masked. */
    private static final String[][] MASKS = {
            {"*:login args[1]", "a.B:login(Ljava/lang/String;[I)V", "args[1]"},
            {"*:login args[1]", "a.B:logins()V", ""},
            {"a.*:*(*) args result this exception", "a.b.C:d()V",
             "args[0] args[1] result this exception"},
            {"\n # no\na.B:c(String, int[]) result\r\na.B:c args[0]",
             "a.B:c(Ljava/lang/String;[I)V", "args[0] result"},
            {"a.B:c(String,int) result", "a.B:c(Ljava/lang/String;[I)V", ""},
            {"a.B:c(Object[], *) result", "a.B:c([Ljava/lang/Object;JZ)V", "result"},
            {"a.B:c() result", "a.B:c()V", "result"},
            {"a.B:c() result", "a.B:c(I)V", ""},
    };

    private WatchTest() {
    }

    private static WatchedCall call(Object result, Throwable exception) {
        return new WatchedCall(String.class, "go", "()Z", null, ARGUMENTS, result, exception,
                               1500000, new Thread("main"));
    }

    static void testConditionsHold() {
        WatchedCall call = call(Boolean.TRUE, null);
        for (String text : HOLD) {
            Check.isTrue(new ConditionParser(text).parse().holds(call), text);
        }
        for (String text : FAIL) {
            Check.isTrue(!new ConditionParser(text).parse().holds(call), text);
        }
        WatchedCall thrown = call(null, new IllegalStateException("no ink"));
        for (String text :
             new String[] {"exception", "exception ~ 'State'",
                           "exception == 'java.lang.IllegalStateException: no ink'"}) {
            Check.isTrue(new ConditionParser(text).parse().holds(thrown), text);
        }
        Check.isTrue(!new ConditionParser("result == null").parse().holds(thrown), "no result");
        Check.equal(new ConditionParser("args[0] && (result || this.x == 1)").parse().operands(),
                    Condition.ARGUMENTS | Condition.RESULT | Condition.THIS, "operands");
        Check.equal(new ConditionParser("ms > 1 && exception").parse().operands(), 0, "none");
    }

    static void testFaultsAreTold() {
        for (String[] row : FAULTS) {
            Check.contains(failure(row[0], ""), "where, column" + row[1], row[0]);
        }
        Check.contains(failure("ms > 1" + new String(new char[1000]).replace('\0', ' '), ""),
                       "longer than 1000", "long");
        for (String mask : new String[] {"a.B:c", "a.B:c secret", "@A a.B:c() args",
                                         "a.B:c() int result", "a.B:c args[100]"}) {
            Check.contains(failure("", "#\n" + mask), "masks, line 2: ", mask);
        }
    }

    private static String failure(String where, String masks) {
        try {
            settings(127, 0, 0, where, masks);
        } catch (IllegalArgumentException e) {
            return e.getMessage();
        }
        throw new AssertionError("taken: " + where + masks);
    }

    private static WatchSettings settings(int flags, int most, int room, String where,
                                          String masks) {
        return new WatchSettings("a.B:c", "", flags, 0, most, room, 0, 0, where, masks);
    }

    static void testValuesAreShortAndPrintable() {
        for (Object[] row : VALUES) {
            Check.equal(new Values(false).print(row[0]), row[1], "value");
        }
        String hundred = new String(new char[100]).replace('\0', 'x');
        Check.equal(new Values(false).print(hundred + "y"), "\"" + hundred + "...\"", "cut");
        Values values = new Values(false);
        int length = 0;
        for (int i = 0; i < 255; i++) {
            length += values.print(hundred).length();
        }
        Check.isTrue(length < 6000, "an event of " + length);
    }

    static void testMasksAreOfTheirMethods() {
        for (String[] row : MASKS) {
            int colon = row[1].indexOf(':');
            int open = row[1].indexOf('(');
            Masks.Masked masked =
                    new Masks(row[0]).of(row[1].substring(0, colon),
                                         row[1].substring(colon + 1, open), row[1].substring(open));
            String seen = (masked.hasArgument(0) ? "args[0] " : "") +
                          (masked.hasArgument(1) ? "args[1] " : "") +
                          (masked.result ? "result " : "") + (masked.object ? "this " : "") +
                          (masked.exception ? "exception" : "");
            Check.equal(seen.trim(), row[2], row[0] + " of " + row[1]);
        }
    }

    /** The bounds are those of the manual. */
    static void testBucketsHoldTheirDurations() {
        int before = 0;
        for (long ns = 0; ns < 1L << 44; ns += 1 + ns / 50) {
            int bucket = Buckets.of(ns);
            Check.isTrue(bucket == before || bucket == before + 1, "buckets follow one another");
            before = bucket;
            int power = (bucket - 16) / 8 + 4;
            long width = bucket < 16 ? 1 : 1L << power - 3;
            long low = bucket < 16 ? bucket : (8 + (bucket - 16) % 8) * width;
            Check.isTrue(low <= ns && ns < low + width, ns + " in " + bucket);
        }
        Check.equal(Buckets.of(Long.MAX_VALUE), 335, "the last one");
    }

    static void testRoomIsKept() {
        Watch watch = new Watch(1, settings(1, 3, 2, "", ""));
        for (int i = 0; i < 3; i++) {
            watch.ended(System.nanoTime(), String.class, "go", "()Z", null, ARGUMENTS, Boolean.TRUE,
                        null);
        }
        List<WatchEvent> events = watch.take(10);
        Check.equal(events.size() + " " + watch.getCounts()[2], "2 1", "events and dropped ones");
        Check.isTrue(!watch.isComplete() && watch.getWaiting() == 0, "there is room again");
        for (int i = 0; i < 3; i++) {
            watch.ended(System.nanoTime(), String.class, "go", "()Z", null, ARGUMENTS, Boolean.TRUE,
                        null);
        }
        Check.isTrue(watch.isComplete(), "it has all that were wanted");
        events = watch.take(10);
        Check.equal(events.size() + " " + events.get(0).number, "1 3", "the last one");
        Check.equal(watch.getCounts()[0] + " " + watch.getCounts()[1], "4 4", "calls");
        Watch later = new Watch(2, settings(1, 0, 0, "", ""));
        later.ended(System.nanoTime() - 1000000000L, String.class, "go", "()Z", null, ARGUMENTS,
                    true, null);
        Check.equal(later.getCounts()[0], 0L, "calls of an earlier watch with the same class");
        // What fails is counted, leaves its room, and does not reach the program.
        Watch failing = new Watch(2, settings(2, 0, 1, "", ""));
        for (int i = 0; i < 3; i++) {
            failing.ended(System.nanoTime(), null, "go", "()Z", null, null, Boolean.TRUE, null);
        }
        Check.equal(failing.getCounts()[3] + " " + failing.getWaiting(), "3 0", "failed");
    }
}
