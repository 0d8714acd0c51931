package com.vandrik.probes.triggers;

import com.vandrik.probes.triggers.actions.Action;
import com.vandrik.probes.triggers.macros.Macro;
import com.vandrik.probes.triggers.macros.MacroProcessor;
import java.lang.reflect.Field;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.concurrent.atomic.AtomicInteger;
import jvmtest.Check;

/** The trigger text, the choice of a probe's callbacks, and the texts of macros. */
public final class TriggerTest {
    private static final int ROUNDS = 2000;
    private static final int THREADS = 8;
    private static final List<String> REQUIRED = Arrays.asList("methodPattern", "command", "url");
    private static final String LETTERS = "ab \t\n\r\\s=#${}.,:*(é€";

    private TriggerTest() {
    }

    static void testTextsComeBackAsTheyWere() {
        Random random = new Random(20);
        for (int round = 0; round < ROUNDS; round++) {
            StringBuilder text = new StringBuilder();
            for (int i = random.nextInt(4); i >= 0; i--) {
                appendListener(text, random);
            }
            EventListener[] parsed = EventListener.parse(text.toString());
            Check.equal(EventListener.serializeListeners(parsed), text.toString(), "text");
            String other = text.toString().replace("\n", " \r\n\n # x\n").replace("  on", " \ton");
            Check.equal(EventListener.serializeListeners(EventListener.parse("  Empty\n" + other)),
                        text.toString(), "text with other blanks");
        }
    }

    private static void appendListener(StringBuilder text, Random random) {
        Class<?> type = pick(EventListener.ALL_CLASSES, random);
        boolean isMethod = type == MethodListener.class;
        appendObject(text, type, random);
        String[] prefixes = isMethod ? new String[] {"onenter: ", "onreturn: ", "onexception: "}
                                     : new String[] {""};
        for (String prefix : prefixes) {
            for (int i = random.nextInt(3); i > 0; i--) {
                Class<?> action = pick(Action.ALL_CLASSES, random);
                if (isMethod || !action.getSimpleName().startsWith("RecordMethod")) {
                    appendObject(text.append("  ").append(prefix), action, random);
                }
            }
        }
    }

    private static void appendObject(StringBuilder text, Class<?> type, Random random) {
        text.append(Serialization.getExternalName(type));
        for (Field field : Serialization.getProperties(type)) {
            String name = Serialization.getPropertyName(field);
            if (random.nextBoolean() || REQUIRED.contains(name)) {
                text.append(' ').append(name).append('=');
                text.append(Serialization.quote(valueFor(field, name, random)));
            }
        }
        text.append('\n');
    }

    private static String valueFor(Field field, String name, Random random) {
        if (field.getType() == boolean.class) {
            return Boolean.toString(random.nextBoolean());
        }
        if (field.getType() == int.class) {
            return Integer.toString(random.nextInt(100) + 1);
        }
        if (field.getType() == Duration.class) {
            String[] postfixes = {"ms", "s", "m", "h"};
            return (random.nextLong() >>> 1 + random.nextInt(63)) +
                    postfixes[random.nextInt(postfixes.length)];
        }
        StringBuilder value = new StringBuilder(name.equals("url") ? "http://" : "x");
        for (int i = random.nextInt(8) + 1; i > 0; i--) {
            value.append(LETTERS.charAt(random.nextInt(LETTERS.length())));
        }
        return name.equals("output") ? value.toString().replace(',', 'x') : value.toString();
    }

    private static Class<?> pick(Class<?>[] classes, Random random) {
        return classes[random.nextInt(classes.length)];
    }

    static void testTextsThatAreWrittenOtherwise() {
        check("HeapMemoryUsageListener usageThresholdPercent=80 minimumTimeToActivateMs=0"
                      + " maxTriggerCount=1\n  CaptureMemorySnapshot\n",
              "HeapMemoryUsageListener usageThresholdPercent=80 maxTriggerCount=1"
                      + " minimumTimeToActivate=0ms\n  CaptureMemorySnapshot\n");
        check("# only this\n\n   ForceGC\n", "");
        check("JVMExitListener\n\tPrintMessage   output=stdout\tmessage=a\\qb\\",
              "JVMExitListener\n  PrintMessage message=a\\\\qb\\\\ output=stdout\n");
    }

    private static void check(String text, String expected) {
        String seen = EventListener.serializeListeners(EventListener.parse(text));
        Check.equal(sorted(seen), sorted(expected), "text of " + text);
    }

    /** Properties have no order. */
    private static String sorted(String text) {
        StringBuilder lines = new StringBuilder();
        for (String line : text.split("\n")) {
            String[] words = line.split(" ");
            java.util.Arrays.sort(words);
            lines.append(String.join(" ", words)).append('\n');
        }
        return lines.toString();
    }

    static void testRefusalsNameLineAndWord() {
        String[][] refusals = {
                {"TimerListener delay=10x", "TimerListener, delay: wrong duration postfix: x"},
                {"TimerListener delay=10", "TimerListener, delay: wrong duration postfix: "},
                {"TimerListener delay=s", "TimerListener, delay: wrong number: "},
                {"TimerListener delay=-1s", "TimerListener, delay: negative duration: -1s"},
                {"TimerListener delay", "TimerListener: a property without a value: delay"},
                {"TimerListener delay=1s delayMs=5",
                 "TimerListener: a property given twice: delayMs"},
                {"TimerListener dealy=1s",
                 "TimerListener: unknown property: dealy; there are: delay, maxTriggerCount"},
                {"Timer", "unknown event listener: Timer; there are: MethodListener, "},
                {"JVMStartListener maxTriggerCount=-2",
                 "JVMStartListener: maxTriggerCount is less than -1: -2"},
                {"JVMStartListener maxTriggerCount=4294967296",
                 "JVMStartListener, maxTriggerCount: number out of range: 4294967296"},
                {"HeapMemoryUsageListener usageThresholdPercent=101",
                 "HeapMemoryUsageListener: usageThresholdPercent is more than 100: 101"},
                {"ProcessMemoryUsageListener usageThresholdMB=-3",
                 "ProcessMemoryUsageListener: negative threshold: -3"},
                {"ExceptionListener moreThan=-1", "ExceptionListener: moreThan is negative: -1"},
                {"MethodListener fillThis=yes",
                 "MethodListener, fillThis: neither true nor false: yes"},
                {"MethodListener", "MethodListener: methodPattern is missing"},
                {"MethodListener methodPattern=a:b(*)\n  Empty",
                 "an action of MethodListener begins with onenter:, onreturn: or onexception:,"
                         + " not with Empty"},
                {"MethodListener methodPattern=a:b(*)\n  onenter: Nothing",
                 "unknown action: Nothing; there are: PrintMessage, "},
                {"JVMStartListener\n  RecordMethodInvocation",
                 "RecordMethodInvocation is for MethodListener only"},
                {"JVMStartListener\n  ForceGC now=true",
                 "ForceGC: unknown property: now; it has none"},
                {"JVMStartListener\n  PrintMessage output=stdout,,x",
                 "PrintMessage: output names nothing: \"stdout,,x\""},
                {"JVMStartListener\n  StartAllocationRecording sizeLimit=-1",
                 "StartAllocationRecording: recordEach or sizeLimit is negative"},
        };
        for (String[] refusal : refusals) {
            int line = 3 + refusal[0].split("\n").length;
            try {
                EventListener.parse("JVMExitListener\n#\n\n" + refusal[0] + "\n");
            } catch (IllegalArgumentException e) {
                Check.isTrue(e.getMessage().startsWith("line " + line + ": " + refusal[1]),
                             refusal[0] + " gives " + e.getMessage());
                continue;
            }
            throw new AssertionError("parses: " + refusal[0]);
        }
        try {
            Serialization.toValue(double.class, "1");
            throw new AssertionError("a double is taken");
        } catch (IllegalArgumentException e) {
            Check.equal(e.getMessage(), "Unexpected field type: double", "message");
        }
    }

    static void testEachEventGetsTheFormThatItNeeds() {
        String plain = "Empty";
        String params = "PrintMessage message=${PARAMS}";
        String record = "RecordMethodInvocation";
        String[][] forms = {
                // enter, return, exception, the markers that are chosen
                {null, plain, null, "ON_RETURN_NO_PARAMS_NO_ENTER"},
                {null, params, null, "ON_RETURN_NO_ENTER"},
                {plain, null, null, "ON_ENTER_VOID_NO_PARAMS"},
                {params, null, null, "ON_ENTER_VOID"},
                {record, null, null, "ON_ENTER_VOID"},
                {plain, params, null, "ON_ENTER_NO_PARAMS ON_RETURN"},
                {params, plain, params, "ON_ENTER ON_RETURN_NO_PARAMS ON_UNCAUGHT_EXCEPTION"},
                {plain, null, plain, "ON_ENTER_NO_PARAMS ON_UNCAUGHT_EXCEPTION_NO_PARAMS"},
                {null, null, params, "ON_UNCAUGHT_EXCEPTION_NO_ENTER"},
                {null, null, plain, "ON_UNCAUGHT_EXCEPTION_NO_PARAMS_NO_ENTER"},
                // whatever way the call ends, the row that it has opened is closed
                {record, plain, null,
                 "ON_ENTER ON_RETURN_NO_PARAMS ON_UNCAUGHT_EXCEPTION_NO_PARAMS"},
        };
        String[] prefixes = {"onenter: ", "onreturn: ", "onexception: "};
        for (String[] form : forms) {
            MethodListener listener = new MethodListener();
            listener.myMethodPattern = "p.*:*(*)";
            listener.myInstanceOf = "q.Z";
            listener.myFillParams = true;
            for (int event = 0; event < prefixes.length; event++) {
                if (form[event] != null) {
                    listener.addAction(prefixes[event] + form[event]);
                }
            }
            List<String> expected = new ArrayList<String>(
                    List.of("MethodListenerProbe", "MethodListenerProbe_7", "$$METHOD_PATTERN$$",
                            "p.*:*(*)", "$$INSTANCE_OF$$", "q.Z"));
            for (String marker : form[3].split(" ")) {
                expected.add("$$" + marker + "$$");
                expected.add(marker.startsWith("ON_E")   ? "onEnter"
                             : marker.startsWith("ON_R") ? "onReturn"
                                                         : "onUncaughtException");
            }
            Check.equal(listener.getPairs("MethodListenerProbe_7"), expected, form[3]);
        }
    }

    static void testMoreThanMayBeAreNotCountedByThreads() throws Exception {
        EventListener listener = EventListener.parse("JVMExitListener maxTriggerCount=5000")[0];
        AtomicInteger claimed = new AtomicInteger();
        Thread[] threads = new Thread[THREADS];
        for (int i = 0; i < THREADS; i++) {
            threads[i] = new Thread(() -> {
                for (int n = 0; n < 5000; n++) {
                    claimed.addAndGet(listener.claimTrigger() ? 1 : 0);
                }
            });
            threads[i].start();
        }
        for (Thread thread : threads) {
            thread.join();
        }
        Check.equal(claimed.get(), 5000, "claimed");
        Check.isTrue(listener.isTriggerCountExceeded(), "exceeded");
        Check.equal(listener.getTriggerCount(), 5000L, "counted");
    }

    /** Ten looks, one in 100 ms: fires 200 ms behind each crossing, which has to come anew. */
    static void testThresholdHasToBeReachedAnewForItsTime() {
        PolledListener listener = (PolledListener) EventListener.parse(
                "HeapMemoryUsageListener usageThresholdPercent=50 minimumTimeToActivate=200ms")[0];
        int[] percents = {49, 50, 90, 49, 50, 50, 50, 50, 50, 50};
        StringBuilder fired = new StringBuilder();
        for (int i = 0; i < percents.length; i++) {
            TelemetryValues.ourHeapMemoryMax = 1000;
            TelemetryValues.ourHeapMemoryUsed = percents[i] * 10;
            fired.append(listener.shouldTrigger(i * 100) ? 'x' : '-');
            Check.equal(listener.isEventFinished(), percents[i] < 50, "finished");
        }
        Check.equal(fired.toString(), "------x--x", "fired");
        TelemetryValues.ourHeapMemoryUsed = -1;
        Check.isTrue(!listener.shouldTrigger(5000), "fires without a value");
    }

    /** One round in 100 ms: more than 4 within 300 ms, which have to come anew behind an event. */
    static void testExceptionsCountWithinTheirTime() {
        ExceptionListener listener = (ExceptionListener) EventListener.parse(
                "ExceptionListener classPattern=a.* moreThan=4 within=300ms")[0];
        String[] counts = {"3 a.X\n9 b.X", "",      "",      "", "2 a.Y",
                           "2 a.X\n1 a.Z", "5 b.A", "4 a.X", "", "",
                           "1 a.Y",        "1 a.Y", "",      ""};
        StringBuilder fired = new StringBuilder();
        for (int i = 0; i < counts.length; i++) {
            if (!counts[i].isEmpty()) {
                listener.add(counts[i], i * 100);
            }
            fired.append(listener.shouldTrigger(i * 100) ? 'x' : '-');
        }
        Check.equal(fired.toString(), "-----x----x---", "fired");
        listener.onActionsBegin();
        Check.equal(TelemetryValues.ourExceptionClass + TelemetryValues.ourExceptionCount, "a.X5",
                    "of the last event");
    }

    private static String print(String text, Object value) {
        return new MacroProcessor(text).process(
                new MethodCall(value, TriggerTest.class, "m", "(I)V", "(int)",
                               new Object[] {value, 1, "a"}, value, new Error("why")));
    }

    static void testMacrosStandWhateverTheValues() {
        for (Macro macro : Macro.values()) {
            String text = "<${" + macro.name() + (macro == Macro.EVAL_FIELD ? " x" : "") + "}>";
            String outside = new MacroProcessor(text).process(null);
            Check.equal(outside.equals("<<macro " + macro.name() +
                                       " is undefined outside method call>>"),
                        macro.isOfMethod(), text + " outside");
            Check.isTrue(!print(text, null).contains("<macro "), text + " within");
        }
        Check.equal(print("${NO} ${ ${USED_HEAP TB} $ } ${", "v"), "<unknown> <unknown> $ } ${",
                    "what is no macro");
        Check.equal(print("${CLASS}.${METHOD}${PARAM_TYPES} ${SIGNATURE} ${RETURN_VALUE}", null),
                    TriggerTest.class.getName() + ".m(int) (I)V <void>", "method");
        Check.equal(print("${THIS} ${THIS TO_STRING} ${PARAMS} ${EXCEPTION MESSAGE} ${EXCEPTION}",
                          null),
                    "null null null, 1, a why java.lang.Error: why", "null");
        Object thrower = new Object() {
            private final int hidden = 7;

            @Override
            public String toString() {
                throw new IllegalStateException();
            }
        };
        String name = thrower.getClass().getName();
        Check.equal(print("${THIS TO_STRING} ${EVAL_FIELD hidden} ${EVAL_FIELD none}", thrower),
                    "<toString() of " + name + " failed: java.lang.IllegalStateException> 7"
                            + " <unknown>",
                    "throwing");
        Check.isTrue(print("${THIS}", thrower).startsWith(name + "@"), "short form");
        String huge = "x".repeat(10 << 20);
        for (String macro : new String[] {"${THIS}", "${THIS TO_STRING}", "${PARAMS}"}) {
            String text = print(macro, huge);
            Check.isTrue(text.length() < 10100 && text.contains("... ("),
                         macro + " of 10 MB: " + text.length());
        }
    }
}
