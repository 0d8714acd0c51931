package cases;

import fixtures.Burn;
import fixtures.Bursts;
import fixtures.PassingClasses;
import fixtures.SignalTaker;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Sampling;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tool;
import jvmtest.Tracing;

/** CPU sampling by timers and signals. */
public final class SignalSamplingCases {
    private static final String SIGNAL = "sampler=signal";

    private SignalSamplingCases() {
    }

    private static long handledSignals(Target target) throws Exception {
        Path status = Path.of("/proc", target.id(), "status");
        Matcher matcher =
                Pattern.compile("SigCgt:\\s*(\\p{XDigit}+)").matcher(Files.readString(status));
        Check.isTrue(matcher.find(), "no mask in " + status);
        return Long.parseUnsignedLong(matcher.group(1), 16);
    }

    /**
     * All of it, also of threads that wait most of the time or live for 3 ms; beside a recording.
     */
    @Case(fixture = Bursts.class, agent = SIGNAL, alone = true,
          variants = {"", "25:-Xlog:disable -XX:StartFlightRecording:settings=profile"})
    static void
    chargesAllThatThreadsUsed(Target target) throws Exception {
        long handled = handledSignals(target);
        long started = target.cpuTimeOfThreads("burst-");
        Sampling.start(target);
        long first = target.cpuTimeOfThreads("burst-");
        Check.isTrue(Long.bitCount(handledSignals(target)) == Long.bitCount(handled) + 1,
                     "one signal more is handled while it samples");
        target.ask("go", ".");
        Check.await(() -> target.cpuTimeOfThreads("burst-") - first > 600_000_000, "bursts");
        long last = target.cpuTimeOfThreads("burst-");
        Tracing.stop(target);
        long stopped = target.cpuTimeOfThreads("burst-");
        Check.equal(handledSignals(target), handled, "handled signals after it");
        Tables tables = Tracing.fetch(target);
        long charged = Sampling.charged(tables, "burst-");
        Check.isTrue(charged > 0.98 * (last - first) && charged < 1.02 * (stopped - started),
                     "of " + (last - first) + " to " + (stopped - started) + " ns were charged " +
                             charged);
        Map<String, Long> totals = tables.totalTimes();
        long inBursts = totals.getOrDefault("fixtures.Bursts.burst", 0L);
        // Some of it may have no stack on a busy machine.
        Check.isTrue(inBursts > 0.9 * charged,
                     inBursts + " of " + charged + " in its method: " + totals);
        String told = target.output().substring(target.output().indexOf("brief ns ") + 9);
        double brief = Long.parseLong(told.substring(0, told.indexOf('.')));
        long chargedBrief = Sampling.charged(tables, "brief-") +
                            Sampling.charged(tables, "<Oldest finished threads>");
        Check.near(chargedBrief / brief, 1, 0.1, "time charged to brief threads to theirs");
        target.finish();
    }

    @Case(fixture = Burn.class, args = "once", agent = SIGNAL, alone = true, attach = false,
          jvm = {"-XX:+UseZGC", "-Xcheck:jni"})
    static void
    chargesMethodsInProportionAfterManyStarts(Target target) throws Exception {
        long handled = handledSignals(target);
        for (int i = 0; i < 50; i++) {
            Sampling.start(target);
            Tracing.stop(target);
        }
        Check.equal(handledSignals(target), handled, "handled signals after 50 starts");
        Tracing.clear(target);
        Sampling.start(target);
        target.ask("burn", "burnt");
        Tracing.stop(target);
        Tables tables = Tracing.fetch(target);
        Map<String, Long> times = tables.totalTimes();
        double total = Sampling.charged(tables, "burner");
        String seen = " of " + times;
        Check.near(100 * times.getOrDefault("fixtures.Burn.sixty", 0L) / total, 60, 4,
                   "sixty" + seen);
        Check.near(100 * times.getOrDefault("fixtures.Burn.thirty", 0L) / total, 30, 4,
                   "thirty" + seen);
        Check.near(100 * times.getOrDefault("fixtures.Burn.ten", 0L) / total, 10, 4, "ten" + seen);
        Check.isTrue(times.getOrDefault("[not walkable]", 0L) < 0.03 * total, "walkable" + seen);
        Check.contains(Tool.vdk("report", target.id()), "; by signals, ", "report");
        checkWalks(target.log());
        target.finish();
    }

    private static final Pattern WALKS =
            Pattern.compile("(\\d+) stacks walked without the JVM, (\\d+) by it as well, "
                            + "of which (\\d+) were not equal\\n");

    /** Most stacks are walked without the JVM's help, and as it walks them. */
    private static void checkWalks(String log) {
        Matcher matcher = WALKS.matcher(log.substring(log.lastIndexOf("Signal sampling: signal")));
        Check.isTrue(matcher.find(), "no walks in " + log);
        int compared = Integer.parseInt(matcher.group(2));
        Check.isTrue(Integer.parseInt(matcher.group(1)) >= compared && compared > 0,
                     "walked: " + matcher.group());
        Check.isTrue(Integer.parseInt(matcher.group(3)) <= compared / 16,
                     "not equal: " + matcher.group());
    }

    private static final Pattern LINE_OF_UNIT =
            Pattern.compile("\"line\": \"fixtures\\.Burn\\.unit:(\\w+)\",\\s*\"cpuNs\": (\\d+)");

    /** What stands in the lines that samples tell is the loop that burns. */
    private static void checkLines(String where, String report) throws Exception {
        Path sources = Path.of(System.getProperty("vdk.docs")).resolve("../tests/jvm/src");
        List<String> source = Files.readAllLines(sources.resolve("fixtures/Burn.java"));
        Matcher matcher = LINE_OF_UNIT.matcher(report);
        long inLoop = 0;
        long all = 0;
        while (matcher.find()) {
            long cpuNs = Long.parseLong(matcher.group(2));
            String line = matcher.group(1).equals("unknown")
                                  ? ""
                                  : source.get(Integer.parseInt(matcher.group(1)) - 1);
            boolean isOfLoop = line.contains("i < 100_000") || line.contains("x = x *");
            inLoop += isOfLoop ? cpuNs : 0;
            all += cpuNs;
        }
        Check.isTrue(all > 0 && inLoop > 0.9 * all, where + ": lines in " + report);
    }

    @Case(fixture = Burn.class, agent = SIGNAL + ",samplelines", alone = true)
    static void tellsTheLinesOfEitherSampler(Target target) throws Exception {
        for (String sampler : new String[] {"signal", "walk"}) {
            Tool.vdk("sample", "start", target.id(), "--sampler", sampler);
            Check.await(()
                                -> Tracing.fetch(target).totalTimes().getOrDefault(
                                           "fixtures.Burn.unit", 0L) > 500_000_000,
                        "half a second of samples");
            Tracing.stop(target);
            String[] byLine = {"report", target.id(), "--show", "cpu", "--by", "line", "--json"};
            checkLines(sampler, Tool.vdk(byLine));
            Path file = target.folder.resolve(sampler + ".snapshot");
            Tool.vdk("snapshot", target.id(), "--out", file.toString());
            byLine[1] = file.toString();
            checkLines("snapshot, " + sampler, Tool.vdk(byLine));
            Tracing.clear(target);
        }
        target.finish();
    }

    private static int unloaded(Target target, int question) throws Exception {
        target.ask("unloaded? " + question, "heard unloaded? " + question);
        String output = target.output();
        int at = output.lastIndexOf("unloaded ") + 9;
        return Integer.parseInt(output.substring(at, output.indexOf('.', at)));
    }

    /**
     * What was sampled is unloaded, and loaded anew; exceptions unwind through stubs of the JVM.
     */
    @Case(fixture = PassingClasses.class, agent = SIGNAL + ",samplingperiod=5", attach = false,
          jvm = {"-XX:+UseZGC", "-Xmx256m"})
    static void
    seesClassesThatComeAndGo(Target target) throws Exception {
        int[] questions = {0};
        for (int round = 1; round <= 2; round++) {
            int least = round * 30;
            Sampling.start(target);
            Check.await(60,
                        () -> unloaded(target, questions[0]++) > least, () -> "unloaded classes");
            Tracing.stop(target);
        }
        Tables tables = Tracing.fetch(target);
        Map<String, Long> times = tables.totalTimes();
        Check.isTrue(times.getOrDefault("fixtures.PassingClasses$Work.run", 0L) > 0,
                     "the class that passes, in " + times);
        long unwinding = Sampling.charged(tables, "unwinding");
        Check.isTrue(times.getOrDefault("[not walkable]", 0L) < 0.1 * unwinding,
                     "not walkable of " + unwinding + " in " + times);
        target.finish();
    }

    private static String signalOf(Target target) {
        String log = target.log();
        Matcher matcher = Pattern.compile("Signal sampling: signal (\\d+)").matcher(log);
        Check.isTrue(matcher.find(), "no signal in " + log);
        return matcher.group(1);
    }

    /** A library of the program, which asks nobody, keeps what it took. */
    @Case(fixture = SignalTaker.class, agent = SIGNAL, attach = false)
    static void leavesTheSignalToWhoTookIt(Target target) throws Exception {
        String pid = target.id();
        Sampling.start(target);
        Sampling.awaitTimes(target);
        String signal = signalOf(target);
        target.ask("take " + signal, "heard take " + signal);
        String why = "another library took signal " + signal + " while it was in use";
        Check.await(() -> target.log().contains(why), "the reason in the log");
        long charged = Sampling.charged(Tracing.fetch(target), "burner");
        Check.await(()
                            -> Sampling.charged(Tracing.fetch(target), "burner") >
                                       charged + 300_000_000,
                    "the stack walker charges");
        Check.contains(Tool.vdk("status", pid), "as signals are not possible: " + why, "status");
        Tracing.stop(target);
        Check.contains(Tool.vdk("report", pid), "as signals are not possible: " + why, "report");
        target.ask("holds " + signal, "held: true");
        // Another one will do.
        Tool.vdk("sample", "start", pid, "--sampler", "signal");
        Check.contains(Tool.vdk("status", pid), "sampler    by signals", "status");
        Check.contains(Tool.vdkEndsWith(1, "sample", "start", pid, "--sampler", "walk"), "is on",
                       "a second start");
        Tracing.stop(target);
        target.ask("holds " + signal, "held: true");
        target.finish();
    }

    @Case(fixture = Burn.class, noAgent = true, attach = false)
    static void tellsWhyTheStackWalkerHasToDo(Target target) throws Exception {
        target.send("stop");
        target.awaitExit();
        String options = target.agentPath(target.agentOptions("sampling," + SIGNAL));
        try (Target limited =
                     Target.run(target, List.of("prlimit", "--sigpending=0"), List.of(options))) {
            limited.awaitOutput("ready\n");
            Check.await(
                    ()
                            -> Tool.vdk("report", limited.id())
                                       .contains(
                                               "as signals are not possible: the system gives no timer"),
                    "the reason in the report");
            Check.contains(limited.log(), "the stack walker samples: the system gives", "log");
            Tool.vdk("sample", "stop", limited.id());
            Check.contains(
                    Tool.vdkEndsWith(5, "sample", "start", limited.id(), "--sampler", "signal"),
                    "Sampling by signals is not possible: the system gives no timer", "start");
            Check.contains(Tool.vdk("status", limited.id()), "cpu        off", "status");
            limited.finish();
        }
    }

    /** All that went by, although many threads take turns in being looked at. */
    @Case(fixture = Burn.class, agent = SIGNAL, args = {"once", "600"}, attach = false)
    static void chargesElapsedTimeToMethodsThatAreMeasuredSo(Target target) throws Exception {
        long before = System.nanoTime();
        try (AgentClient client = target.client()) {
            client.startSampling("", "fixtures.Burn:block(*)");
        }
        long started = System.nanoTime();
        long[] seen = new long[2];
        Check.await(200, () -> {
            seen[0] = System.nanoTime() - started;
            seen[1] = Tracing.fetch(target).totalTimes().getOrDefault("fixtures.Burn.block", 0L);
            return seen[0] > 3_000_000_000L && seen[1] > 0.7 * seen[0];
        }, () -> "of " + seen[0] + " ns were charged " + seen[1]);
        long most = System.nanoTime() - before;
        Check.isTrue(seen[1] <= most, "of " + most + " ns were charged " + seen[1]);
        Tracing.stop(target);
        target.finish();
    }
}
