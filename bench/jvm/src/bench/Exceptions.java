package bench;

import java.io.BufferedReader;
import java.io.File;
import java.io.InputStreamReader;
import java.lang.ProcessBuilder.Redirect;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.util.Arrays;

/**
 * What exceptions cost a program that throws some 15 000 a second: {@code Exceptions VDK AGENT
 * CLASSES JDK...}. Ratios of the throws in a second of CPU time to those without the agent, through
 * 3 and through 30 frames.
 */
public final class Exceptions {
    private static final int WARM_UP_LINES = 6;
    private static final int SETTLING_LINES = 3;
    private static final int LINES = 5;

    private final String vdk;
    private final BufferedReader out;
    private final String pid;

    private Exceptions(String vdk, Process process) throws Exception {
        this.vdk = vdk;
        out = new BufferedReader(new InputStreamReader(process.getInputStream()));
        pid = Long.toString(process.pid());
        measure(WARM_UP_LINES);
    }

    /** The program: throws in a second of CPU time, a line for each second. */
    public static final class Program {
        static volatile long sink;

        private Program() {
        }

        private static int failing(int depth) {
            if (depth == 0) {
                throw new IllegalStateException("expected");
            }
            return failing(depth - 1) + 1;
        }

        private static void round(int depth) {
            long value = depth;
            for (int i = 0; i < 40_000; i++) {
                value ^= value << 13 ^ value >>> 7 ^ i;
            }
            sink = value;
            try {
                failing(depth);
            } catch (IllegalStateException e) {
                sink++;
            }
        }

        private static void second(int depth) {
            long cpu = ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime();
            long start = System.nanoTime();
            long throwsSoFar = 0;
            while (System.nanoTime() - start < 1_000_000_000) {
                round(depth);
                throwsSoFar++;
            }
            cpu = ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime() - cpu;
            System.out.println(throwsSoFar * 1_000_000_000 / cpu);
        }

        public static void main(String[] args) {
            while (true) {
                second(Integer.parseInt(args[0]));
            }
        }
    }

    /** The median of so many lines. */
    private double measure(int lines) throws Exception {
        double[] values = new double[lines];
        for (int i = 0; i < lines;) {
            String line = out.readLine();
            if (line.matches("\\d+")) {
                values[i++] = Double.parseDouble(line);
            }
        }
        Arrays.sort(values);
        return values[lines / 2];
    }

    private double measureSwitched(String way) throws Exception {
        Process client = new ProcessBuilder(vdk, "exceptions", way, pid)
                                 .redirectErrorStream(true)
                                 .redirectOutput(Redirect.DISCARD)
                                 .start();
        if (client.waitFor() != 0) {
            throw new IllegalStateException("vdk exceptions " + way + ": " + client.exitValue());
        }
        measure(SETTLING_LINES);
        return measure(LINES);
    }

    private static double[] run(String vdk, String classes, String jdk, String agent, int depth,
                                String... ways) throws Exception {
        ProcessBuilder builder = new ProcessBuilder(jdk + "/bin/java");
        if (!agent.isEmpty()) {
            builder.command().add("-agentpath:" + agent);
        }
        builder.command().addAll(
                Arrays.asList("-cp", classes, Program.class.getName(), Integer.toString(depth)));
        Process process = builder.redirectError(Redirect.DISCARD).start();
        try {
            Exceptions program = new Exceptions(vdk, process);
            double[] result = new double[ways.length + 1];
            result[0] = program.measure(LINES);
            for (int i = 0; i < ways.length; i++) {
                result[i + 1] = program.measureSwitched(ways[i]);
            }
            return result;
        } finally {
            process.destroyForcibly();
            process.waitFor();
        }
    }

    public static void main(String[] args) throws Exception {
        String options = args[1] + "=quiet,onlylocal,builtinprobes=none,tmpdir=" +
                         Files.createTempDirectory("vdk-bench-") + ",disableexceptiontelemetry";
        for (int i = 3; i < args.length; i++) {
            for (int depth : new int[] {3, 30}) {
                double plain = run(args[0], args[2], args[i], "", depth)[0];
                double[] calls = run(args[0], args[2], args[i], options + ",noexceptionevents",
                                     depth, "on", "off");
                double[] events = run(args[0], args[2], args[i], options, depth, "on");
                System.out.printf("exceptions through %d frames, %s: %.0f a second of CPU time; "
                                          + "ratios: agent %.2f, counted by calls %.2f, off "
                                          + "again %.2f; events asked for %.3f, counted %.3f%n",
                                  depth, new File(args[i]).getName(), plain, calls[0] / plain,
                                  calls[1] / plain, calls[2] / plain, events[0] / plain,
                                  events[1] / plain);
            }
        }
    }
}
