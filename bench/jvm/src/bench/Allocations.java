package bench;

import java.io.BufferedReader;
import java.io.File;
import java.io.IOException;
import java.io.InputStreamReader;
import java.lang.ProcessBuilder.Redirect;
import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * What recording of allocations costs a warm program that allocates: {@code Allocations VDK AGENT
 * BARE CLASSES JDK...}. One JVM has the agent, and recording is switched on and off in it; others
 * have the JVM's own recorder, an empty handler of sampled allocations, and nothing. Printed is the
 * CPU time of the program's thread for a unit of work, in units of the JVM with nothing.
 */
public final class Allocations {
    private static final int WARM_UP_MS = 3000;
    private static final int SPANS = 3;
    private static final int SPAN_MS = 400;
    private static final String SMALL = "small objects and nothing else";
    private static final String TREES = "trees, texts, lists";

    private Allocations() {
    }

    /** The program: answers a line by the CPU time of a unit of work in the time that follows. */
    public static final class Program {
        static final class Small {
            long value;
            Small next;
        }

        static volatile Object kept;

        private Program() {
        }

        private static void small() {
            Object[] ring = new Object[64];
            for (int i = 0; i < 100_000; i++) {
                ring[i & 63] = new Small();
            }
            kept = ring;
        }

        private static void trees() {
            for (int i = 0; i < 10; i++) {
                kept = Steady.tree(8);
                String[] names = new String[200];
                for (int k = 0; k < names.length; k++) {
                    names[k] = new String(new char[] {'n', (char) k});
                }
                kept = new ArrayList<>(Arrays.asList(names));
            }
        }

        /** Nanoseconds a unit. */
        private static double work(boolean small, int milliseconds) {
            ThreadMXBean clock = ManagementFactory.getThreadMXBean();
            long end = System.nanoTime() + milliseconds * 1_000_000L;
            long start = clock.getCurrentThreadCpuTime();
            int units = 0;
            for (; System.nanoTime() < end; units++) {
                if (small) {
                    small();
                } else {
                    trees();
                }
            }
            return (double) (clock.getCurrentThreadCpuTime() - start) / units;
        }

        public static void main(String[] args) throws Exception {
            boolean small = args[0].equals("small");
            BufferedReader commands = new BufferedReader(new InputStreamReader(System.in));
            work(small, WARM_UP_MS);
            System.out.println("pid " + ProcessHandle.current().pid());
            while (commands.readLine() != null) {
                work(small, 2 * SPAN_MS); // compiled anew
                double[] spans = new double[SPANS];
                for (int i = 0; i < SPANS; i++) {
                    spans[i] = work(small, SPAN_MS);
                }
                Arrays.sort(spans);
                System.out.println("unit " + spans[SPANS / 2]);
            }
        }
    }

    /** A JVM with the program. */
    private static final class Run implements AutoCloseable {
        private final Process process;
        private final BufferedReader out;
        final String pid;

        Run(String jdk, String classes, String program, String... options) throws IOException {
            List<String> command = new ArrayList<>(List.of(jdk + "/bin/java", "-Xmx1g"));
            command.addAll(Arrays.asList(options));
            command.addAll(List.of("-cp", classes, Program.class.getName(),
                                   program.equals(SMALL) ? "small" : "trees"));
            process = new ProcessBuilder(command).redirectError(Redirect.DISCARD).start();
            out = new BufferedReader(new InputStreamReader(process.getInputStream()));
            pid = line("pid ");
        }

        private String line(String start) throws IOException {
            for (String line = out.readLine(); line != null; line = out.readLine()) {
                if (line.startsWith(start)) {
                    return line.substring(start.length());
                }
            }
            throw new IOException("the program ended");
        }

        double unit() throws IOException {
            process.getOutputStream().write('\n');
            process.getOutputStream().flush();
            return Double.parseDouble(line("unit "));
        }

        @Override
        public void close() {
            process.destroyForcibly();
        }
    }

    private static void alloc(String vdk, String verb, String pid, String... options)
            throws Exception {
        List<String> command = new ArrayList<>(List.of(vdk, "alloc", verb, pid));
        command.addAll(Arrays.asList(options));
        int code = new ProcessBuilder(command)
                           .redirectErrorStream(true)
                           .redirectOutput(Redirect.DISCARD)
                           .start()
                           .waitFor();
        if (code != 0) {
            throw new IllegalStateException(command + ": exit code " + code);
        }
    }

    private static void measure(String[] args, String jdk, String program) throws Exception {
        Path folder = Files.createTempDirectory("vdk-bench-");
        Map<String, Double> units = new LinkedHashMap<>();
        try (Run run = new Run(jdk, args[3], program)) {
            units.put("plain", run.unit());
        }
        try (Run run = new Run(jdk, args[3], program, "-Xlog:disable",
                               "-XX:StartFlightRecording:settings=profile")) {
            units.put("JFR, profile", run.unit());
        }
        try (Run run = new Run(jdk, args[3], program, "-agentpath:" + args[2] + "=sampled")) {
            units.put("empty handler of samples", run.unit());
        }
        try (Run run = new Run(
                     jdk, args[3], program,
                     "-agentpath:" + args[1] +
                             "=quiet,onlylocal,noexceptionevents,builtinprobes=none,tmpdir=" +
                             folder)) {
            units.put("off", run.unit());
            Map<String, String[]> modes = new LinkedHashMap<>();
            modes.put("sampled", new String[] {"--sampled"});
            modes.put("counted alone", new String[] {"--each", "2147483647"});
            modes.put("each 1000", new String[] {"--each", "1000"});
            modes.put("each 10", new String[] {"--each", "10"});
            modes.put("only 1 MB and more",
                      new String[] {"--each", "2147483647", "--size-limit", "1m"});
            modes.put("each 1000, and 1 MB and more",
                      new String[] {"--each", "1000", "--size-limit", "1m"});
            for (Map.Entry<String, String[]> mode : modes.entrySet()) {
                alloc(args[0], "start", run.pid, mode.getValue());
                units.put(mode.getKey(), run.unit());
                alloc(args[0], "stop", run.pid);
            }
            units.put("off again", run.unit());
        }
        System.out.println(new File(jdk).getName() + ", " + program);
        units.forEach(
                (what,
                 unit) -> System.out.printf("  %-28s %.2f%n", what, unit / units.get("plain")));
    }

    public static void main(String[] args) throws Exception {
        for (int i = 4; i < args.length; i++) {
            measure(args, args[i], SMALL);
            measure(args, args[i], TREES);
        }
    }
}
