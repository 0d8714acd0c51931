package bench;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.LongUnaryOperator;

/**
 * What a call of a callback costs that a probe has woven in, beside the method without, and beside
 * the same call put in by hand with ASM: {@code WovenCalls AGENT ASM_AGENT CLASSES ROUNDS JDK...}.
 * {@code WovenCalls} alone is the program: it prints nanoseconds of a call of each method.
 */
public final class WovenCalls {
    private static final int WARM_UP = 400;
    private static final int ROUNDS = 300;
    private static final int CALLS = 20_000;
    private static final Object OBJECT = new Object();
    static volatile long sink;

    private WovenCalls() {
    }

    // A loop for each method, so that each is compiled for itself.
    private static long none(long x) {
        for (int i = 0; i < CALLS; i++) {
            x = CalledMethods.none(x, OBJECT, 7, "text");
        }
        return x;
    }

    private static long two(long x) {
        for (int i = 0; i < CALLS; i++) {
            x = CalledMethods.two(x, OBJECT, 7, "text");
        }
        return x;
    }

    private static long all(long x) {
        for (int i = 0; i < CALLS; i++) {
            x = CalledMethods.all(x, OBJECT, 7, "text");
        }
        return x;
    }

    private static long noneCalling(long x) {
        for (int i = 0; i < CALLS; i++) {
            x = CalledMethods.noneCalling(x, OBJECT, 7, "text");
        }
        return x;
    }

    private static long twoCalling(long x) {
        for (int i = 0; i < CALLS; i++) {
            x = CalledMethods.twoCalling(x, OBJECT, 7, "text");
        }
        return x;
    }

    private static long allCalling(long x) {
        for (int i = 0; i < CALLS; i++) {
            x = CalledMethods.allCalling(x, OBJECT, 7, "text");
        }
        return x;
    }

    /** Best of many short rounds: what else runs on the machine only adds. */
    private static double nanoseconds(LongUnaryOperator loop) {
        double best = Double.MAX_VALUE;
        for (int round = 0; round < WARM_UP + ROUNDS; round++) {
            long start = System.nanoTime();
            sink = loop.applyAsLong(sink + 1);
            double time = (System.nanoTime() - start) / (double) CALLS;
            best = round < WARM_UP ? best : Math.min(best, time);
        }
        return best;
    }

    private static void program() {
        double[] times = {nanoseconds(WovenCalls::none),       nanoseconds(WovenCalls::two),
                          nanoseconds(WovenCalls::all),        nanoseconds(WovenCalls::noneCalling),
                          nanoseconds(WovenCalls::twoCalling), nanoseconds(WovenCalls::allCalling)};
        StringBuilder line = new StringBuilder();
        for (double time : times) {
            line.append(time).append(' ');
        }
        System.out.println(line.toString().trim());
    }

    public static void main(String[] args) throws Exception {
        if (args.length == 0) {
            program();
            return;
        }
        String folder = Files.createTempDirectory("vdk-bench-").toString();
        // Calls of tracing would be in the methods as well.
        String agent = Jvm.agent(args[0], folder, "builtinprobes=none,disabletracing,disablealloc");
        Map<String, List<String>> kinds = new LinkedHashMap<>();
        kinds.put("no callback", List.of());
        kinds.put("agent, no probe", List.of(agent));
        if (Files.exists(Path.of(args[1]))) {
            kinds.put("inserted with ASM", List.of("-javaagent:" + args[1] + "=bench.Called"));
        }
        kinds.put("woven by the agent", List.of(agent + ",probe=bench.CallbackProbes"));
        for (String jdk : Arrays.asList(args).subList(4, args.length)) {
            measure(jdk, args[2], Integer.parseInt(args[3]), kinds);
        }
    }

    private static void measure(String jdk, String classes, int rounds,
                                Map<String, List<String>> kinds) throws Exception {
        System.out.println("A call with a callback, ns, " + Path.of(jdk).getFileName() + " (" +
                           rounds + " rounds in turn)");
        Map<String, List<double[]>> all = new LinkedHashMap<>();
        for (int round = 0; round < rounds; round++) {
            for (Map.Entry<String, List<String>> each : kinds.entrySet()) {
                all.computeIfAbsent(each.getKey(), k -> new ArrayList<>())
                        .add(Jvm.run(jdk, each.getValue(), "-cp", classes, "bench.WovenCalls"));
            }
        }
        System.out.printf("  %-20s", "callback");
        for (String kind : CallbackProbes.KINDS) {
            System.out.printf(" %11s", kind);
        }
        System.out.println();
        all.forEach((name, times) -> {
            System.out.printf("  %-20s", name);
            for (double time : Jvm.medians(times)) {
                System.out.printf(" %11.2f", time);
            }
            System.out.println();
        });
    }
}
