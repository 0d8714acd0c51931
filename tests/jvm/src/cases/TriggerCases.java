package cases;

import fixtures.Triggered;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;

/** Triggers, from a file and from the port, to what becomes of their actions. */
public final class TriggerCases {
    private static final String PATTERN = "fixtures.Triggered$Work:call(int,Object)";
    private static final int REPLACEMENTS = 20;

    private final Target target;
    private int asked;

    private TriggerCases(Target target) {
        this.target = target;
    }

    /** What the program answers. */
    private String ask(String line) throws Exception {
        String begin = ++asked + ": ";
        target.send(line);
        target.awaitOutput(begin);
        Check.await(() -> target.output().indexOf('\n', target.output().indexOf(begin)) > 0, line);
        String output = target.output();
        int start = output.indexOf(begin) + begin.length();
        return output.substring(start, output.indexOf('\n', start));
    }

    private void set(String text, boolean append) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.SET_TRIGGERS).string(text).out.writeBoolean(append);
            client.ok();
        }
    }

    private String refusal(String text) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.SET_TRIGGERS).string(text).out.writeBoolean(false);
            return client.error();
        }
    }

    private String get() throws Exception {
        try (AgentClient client = target.client()) {
            return client.request(AgentClient.GET_TRIGGERS).ok().readString();
        }
    }

    private static String print(String text, Path file) {
        return "PrintMessage message=" + text + " output=" + file;
    }

    private static String method(String actions) {
        return "MethodListener methodPattern=" + PATTERN + "\n" + actions;
    }

    private static List<String> lines(Path file) throws IOException {
        return Files.exists(file) ? Files.readAllLines(file) : List.of();
    }

    private static long count(Path file, String start) throws IOException {
        return lines(file).stream().filter(line -> line.startsWith(start)).count();
    }

    /** Each listener and each action, in a file that the option names. */
    @Case(fixture = Triggered.class, noAgent = true, attach = false)
    static void everyListenerFiresAndEveryActionIsDone(Target target) throws Exception {
        Path told = target.folder.resolve("told");
        Path file = target.folder.resolve("triggers");
        StringBuilder text = new StringBuilder();
        for (String listener : new String[] {
                     "JVMStartListener", "JVMExitListener", "TimerListener delay=20ms",
                     "CPUUsageListener usageThresholdPercent=0",
                     "ProcessMemoryUsageListener usageThresholdMB=1",
                     "HeapMemoryUsageListener usageThresholdPercent=0 minimumTimeToActivateMs=1",
                     "NonHeapMemoryUsageListener usageThresholdPercent=1"}) {
            text.append(listener).append(" maxTriggerCount=2\n  ");
            text.append(print(listener.split(" ")[0], told)).append('\n');
        }
        // The telemetry thread calls it in each round.
        text.append("MethodListener methodPattern=java.util.Arrays:fill(int[],int)\n  onenter: ")
                .append(print("fill\\s${CURRENT_THREAD_DUMP}", told))
                .append("\nTimerListener delay=20ms maxTriggerCount=1\n");
        for (String action : new String[] {"Empty",
                                           "ForceGC",
                                           "AdvanceGeneration description=of\\strigger",
                                           "EnableExceptionTelemetry",
                                           "DisableExceptionTelemetry",
                                           "EnableStackTelemetry",
                                           "DisableStackTelemetry",
                                           "StartMonitorProfiling",
                                           "StopMonitorProfiling",
                                           "StartAllocationRecording recordEach=100",
                                           "StopAllocationRecording",
                                           "StartCPUSampling",
                                           "StopCPUProfiling",
                                           "StartCPUTracing filters=java.*\\njdk.*",
                                           "StartCPUTracing",
                                           "StopCPUProfiling",
                                           "Sleep duration=20ms",
                                           "WaitForEventToFinish maxTimeToWait=5s",
                                           "CaptureMemorySnapshot fileName=memory",
                                           "CapturePerformanceSnapshot fileName=performance",
                                           "CaptureHPROFSnapshot fileName=heap",
                                           print("none", Path.of("/none/none")),
                                           "PrintMessage message=${UPTIME\\sms}\\s${USED_HEAP}"
                                                   + " output=messages,agentlog,stderr",
                                           print("done", told)}) {
            text.append("  ").append(action).append('\n');
        }
        Files.writeString(file, text);
        String options = "triggers=" + file +
                         ",builtinprobes=none,telemetryperiod=40,quiet,dir=" + target.folder +
                         ",tmpdir=" + target.folder;
        try (Target other = Target.run(
                     target, List.of("-XX:MaxMetaspaceSize=200m", target.agentPath(options)))) {
            Check.await(()
                                -> count(told, "done") == 1 && count(told, "NonHeap") == 2 &&
                                           count(told, "CPU") == 2,
                        "all is done: " + other.log());
            other.finish();
            String log = other.log();
            for (String listener : new String[] {"JVMStart", "JVMExit", "Timer", "CPU", "Process",
                                                 "Heap", "NonHeap"}) {
                Check.equal(count(told, listener), listener.startsWith("JVM") ? 1L : 2L,
                            listener + " in " + log);
            }
            Check.equal(count(told, "fill \"VDKAgent"), 0L, "events of the agent's own threads");
            for (String name :
                 new String[] {"memory.snapshot", "performance.snapshot", "heap.hprof"}) {
                Check.isTrue(Files.exists(target.folder.resolve(name)), name + " in " + log);
            }
            Check.equal(log.split("Action failed: ", -1).length, 2, "failed actions in " + log);
            Check.contains(log, "CPU tracing already started", "failed action");
            Check.contains(log, "Cannot write to file /none/none: ", "log");
            Check.isTrue(other.errors().matches("[0-9]+ [0-9]+\n"), other.errors());
        }
    }

    @Case(fixture = Triggered.class, agent = "builtinprobes=none")
    static void methodListenersSeeWhatTheProgramCounts(Target target) throws Exception {
        TriggerCases test = new TriggerCases(target);
        Path told = target.folder.resolve("told");
        String enter = print("enter\\s${METHOD}${PARAM_TYPES}\\s${PARAMS\\sTO_STRING}"
                                     + "\\s${EVAL_FIELD\\sname}",
                             told);
        String text = method(
                "  onenter: " + enter + "\n  onreturn: " + print("return\\s${RETURN_VALUE}", told) +
                "\n  onexception: " + print("throw\\s${EXCEPTION\\sMESSAGE}", told) + "\n");
        test.set(text, false);
        Check.equal(test.get(), text, "triggers");
        Check.equal(test.ask("call 4 300"), "1200 calls", "calls");
        Check.equal(count(told, "enter call(int, java.lang.Object) 7, <toString() of "
                                        + "fixtures.Triggered$Work failed: "
                                        + "java.lang.IllegalStateException> w"),
                    4L, "enter");
        Check.equal(count(told, "enter "), 1200L, "enters");
        Check.equal(count(told, "return "), 800L, "returns");
        Check.equal(count(told, "throw call "), 400L, "exceptions");
        // What cannot be taken leaves what is there, what is added stands beside it.
        Check.contains(test.refusal("TimerListener delay=10x\n"),
                       "line 1: TimerListener, delay: wrong duration postfix: x", "refusal");
        Check.contains(test.refusal("\nMethodListener methodPattern=x\n  onenter: Empty\n"),
                       "line 2: MethodListener, methodPattern: ", "refusal");
        String rows = "MethodListener methodPattern=" + PATTERN.replace("call(", "c*(") +
                      " instanceOf=fixtures.Triggered$Work fillThis=true fillParams=true"
                      + " fillReturnValue=true\n  onenter: RecordMethodInvocation\n"
                      + "  onreturn: RecordMethodInvocation\n";
        String limited = "MethodListener methodPattern=" + PATTERN + " maxTriggerCount=100\n"
                         + "  onenter: " + print("limited", told) + "\n";
        test.set(rows + limited, true);
        Check.equal(test.get(), text + rows + limited, "triggers");
        test.ask("call 2 150");
        Check.equal(count(told, "enter "), 1500L, "enters");
        Check.equal(count(told, "limited"), 100L, "events of a listener with a limit");
        Check.equal(test.ask("rows"), "300 rows, 0 open, 0 thrown, 200 returned, 300 shown",
                    "rows");
        checkMacrosAndFailures(test, told);
        test.set("", false);
        Check.equal(test.get(), "", "triggers");
        test.ask("call 2 100");
        Check.equal(count(told, "enter "), 1500L, "enters");
        target.finish();
    }

    /** Each macro within a call and outside; an action that fails on the program's thread. */
    private static void checkMacrosAndFailures(TriggerCases test, Path told) throws Exception {
        StringBuilder all = new StringBuilder();
        Matcher row = Pattern.compile("\\| `([A-Z_]+)` \\|")
                              .matcher(Files.readString(
                                      Path.of(System.getProperty("vdk.docs"), "triggers.md")));
        int count = 0;
        for (; row.find(); count++) {
            String option = row.group(1).equals("EVAL_FIELD") ? "\\snone" : "";
            all.append(row.group(1)).append("<${").append(row.group(1)).append(option).append("}>");
        }
        test.set(method("  onenter: StartCPUSampling\n  onenter: StartCPUTracing\n  onenter: " +
                        print("within\\s" + all, told) + "\n  onenter: StopCPUProfiling\n") +
                         "TimerListener delay=20ms maxTriggerCount=1\n  " +
                         print("outside\\s" + all, told) + "\n",
                 false);
        Check.equal(test.ask("call 1 3"), "3 calls", "calls whose action fails");
        Check.equal(test.target.log().split("Action failed: .*already started", -1).length, 4,
                    "failed actions in " + test.target.log());
        Check.await(() -> count(told, "outside ") == 1, "the timer fires");
        Check.equal(count(told, "within "), 3L, "actions behind one that fails");
        String text = Files.readString(told);
        Check.equal(text.split("<macro [A-Z_]+ is undefined outside method call>", -1).length - 1,
                    9, "macros of calls outside one, of " + count);
        Check.contains(text.substring(text.indexOf("within ")),
                       "METHOD<call>SIGNATURE<(ILjava/lang/Object;)I>PARAM_TYPES<(int, "
                               + "java.lang.Object)>PARAMS<0, fixtures.Triggered$Work@",
                       "macros within a call");
    }

    @Case(fixture = Triggered.class, agent = "builtinprobes=none", attach = false)
    static void everyCallIsAnEventOfOldOrNewListeners(Target target) throws Exception {
        TriggerCases test = new TriggerCases(target);
        Path told = target.folder.resolve("told");
        test.set(method("  onenter: " + print("0", told) + "\n"), false);
        test.ask("begin 2");
        for (int i = 1; i <= REPLACEMENTS; i++) {
            test.set(method("  onenter: " + print(Integer.toString(i), told) + "\n"), false);
        }
        String last = Integer.toString(REPLACEMENTS);
        Check.await(() -> count(told, last) > 0, "the last one fires");
        Check.equal(test.ask("end"), lines(told).size() + " calls", "calls");
        Check.contains(test.ask("natives"),
                       "macroAndValuePairs is null; macroAndValuePairs has a text without a "
                               + "partner; macroAndValuePairs holds null; macroAndValuePairs "
                               + "holds an empty text to replace; a text for a class is longer",
                       "refusals");
        target.finish();
    }

    /** Listeners of what a JVM cannot tell are named; others fire. */
    @Case(fixture = Triggered.class, noAgent = true, attach = false)
    static void listenersThatCannotFireAreTold(Target target) throws Exception {
        Path told = target.folder.resolve("told");
        Path file = target.folder.resolve("triggers");
        Files.writeString(file,
                          "NonHeapMemoryUsageListener\n  Empty\nTimerListener delay=20ms\n  " +
                                  print("timer", told) + "\n");
        String options = "triggers=" + file + ",builtinprobes=none,quiet,tmpdir=" + target.folder;
        try (Target other = Target.run(
                     target, List.of("--limit-modules", "java.base",
                                     target.agentPath(options + ",telemetryperiod=40")))) {
            Check.await(() -> count(told, "timer") > 2, "the timer fires: " + other.log());
            other.finish();
            Check.equal(other.log()
                                .split("NonHeapMemoryUsageListener never fires: the JVM runs "
                                               + "without the module java.management",
                                       -1)
                                .length,
                        2, "told once in " + other.log());
        }
        try (Target other = Target.run(target,
                                       List.of(target.agentPath(options + ",telemetryperiod=0")))) {
            other.awaitOutput("ready");
            other.finish();
            Check.contains(other.log(),
                           "telemetryperiod=0: these listeners never fire: "
                                   + "[NonHeapMemoryUsageListener, TimerListener]",
                           "log");
        }
    }
}
