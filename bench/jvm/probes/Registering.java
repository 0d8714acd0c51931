package bench;

import com.vandrik.probes.Probes;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * How long it takes to register a probe on loaded classes and to unregister it, and how long the
 * program stands still meanwhile, beside ASM and retransformation by hand in the same batches:
 * {@code Registering AGENT ASM_AGENT CLASSES ROUNDS JDK...}. {@code Registering COUNT one|all
 * probe|hand} is the program: it prints milliseconds to register, to unregister, the longest time
 * in which a thread that reads the clock could not, and the same while nothing is done.
 */
public final class Registering {
    private static final String TEMPLATE = "Copied00000";

    private Registering() {
    }

    /** Defines copies of the template: its name takes five digits wherever it stands. */
    private static final class Copies extends ClassLoader {
        private final byte[] template;
        private final List<Integer> places = new ArrayList<>();
        private final List<Class<?>> kept = new ArrayList<>();

        Copies() throws Exception {
            super(Registering.class.getClassLoader());
            try (InputStream in = Registering.class.getResourceAsStream(TEMPLATE + ".class")) {
                template = in.readAllBytes();
            }
            String text = new String(template, StandardCharsets.ISO_8859_1);
            for (int at = text.indexOf(TEMPLATE); at >= 0; at = text.indexOf(TEMPLATE, at + 1)) {
                places.add(at + TEMPLATE.length() - 5);
            }
        }

        void define(int number) {
            byte[] digits = String.format("%05d", number).getBytes(StandardCharsets.ISO_8859_1);
            byte[] bytes = template.clone();
            for (int place : places) {
                System.arraycopy(digits, 0, bytes, place, digits.length);
            }
            kept.add(defineClass(null, bytes, 0, bytes.length));
        }
    }

    /** Reads the clock, and remembers the longest time between two readings. */
    private static final class Watch extends Thread {
        private volatile boolean ended;
        private long longestNs;

        Watch() {
            super("clock");
            start();
        }

        @Override
        public void run() {
            long last = System.nanoTime();
            while (!ended) {
                long now = System.nanoTime();
                longestNs = Math.max(longestNs, now - last);
                last = now;
            }
        }

        double end() throws InterruptedException {
            ended = true;
            join();
            return longestNs / 1e6;
        }
    }

    private interface Step {
        void run() throws Exception;
    }

    private static double milliseconds(Step step) throws Exception {
        long start = System.nanoTime();
        step.run();
        return (System.nanoTime() - start) / 1e6;
    }

    private static void program(int count, boolean isAll, boolean isByHand) throws Exception {
        Copies copies = new Copies();
        for (int i = 1; i <= count; i++) {
            copies.define(i);
        }
        Step register;
        Step unregister;
        if (isByHand) {
            java.lang.reflect.Method change =
                    Class.forName("floor.HandCallbacks").getMethod("change", String.class);
            register = () -> change.invoke(null, isAll ? "bench.Copied" : "bench.Copied00001");
            unregister = () -> change.invoke(null, "");
        } else {
            String probe = "bench.RegisteredProbes$" + (isAll ? "OnAll" : "OnOne");
            register = () -> Probes.registerProbes(probe);
            unregister = () -> Probes.unregisterProbes(probe);
        }
        Watch watch = new Watch();
        double registered = milliseconds(register);
        double unregistered = milliseconds(unregister);
        double stopped = watch.end();
        Watch idle = new Watch();
        Thread.sleep((long) (registered + unregistered) + 1);
        System.out.println(registered + " " + unregistered + " " + stopped + " " + idle.end());
    }

    public static void main(String[] args) throws Exception {
        if (args.length == 3) {
            program(Integer.parseInt(args[0]), args[1].equals("all"), args[2].equals("hand"));
            return;
        }
        String folder = Files.createTempDirectory("vdk-bench-").toString();
        Map<String, List<String>> ways = new LinkedHashMap<>();
        if (Files.exists(Path.of(args[1]))) {
            ways.put("hand", List.of("-javaagent:" + args[1]));
        }
        ways.put("probe", List.of(Jvm.agent(args[0], folder, "builtinprobes=none")));
        for (String jdk : Arrays.asList(args).subList(4, args.length)) {
            System.out.println("Registering on loaded classes, " + Path.of(jdk).getFileName() +
                               " (" + args[3] + " rounds in turn)");
            for (String count : new String[] {"3000", "20000"}) {
                for (String which : new String[] {"one", "all"}) {
                    measure(jdk, args[2], Integer.parseInt(args[3]), ways, count, which);
                }
            }
        }
    }

    private static void measure(String jdk, String classes, int rounds,
                                Map<String, List<String>> ways, String count, String which)
            throws Exception {
        Map<String, List<double[]>> all = new LinkedHashMap<>();
        for (int round = 0; round < rounds; round++) {
            for (Map.Entry<String, List<String>> way : ways.entrySet()) {
                all.computeIfAbsent(way.getKey(), k -> new ArrayList<>())
                        .add(Jvm.run(jdk, way.getValue(), "-Xmx512m", "-cp", classes,
                                     "bench.Registering", count, which, way.getKey()));
            }
        }
        all.forEach((way, times) -> {
            double[] median = Jvm.medians(times);
            System.out.printf("  %5s classes, on %s, %-5s: register %5.0f ms, unregister %5.0f ms, "
                                      + "longest stop %4.0f ms (%2.0f ms while nothing is done)%n",
                              count, which, way, median[0], median[1], median[2], median[3]);
        });
    }
}
