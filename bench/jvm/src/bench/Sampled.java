package bench;

import com.sun.management.OperatingSystemMXBean;
import java.io.BufferedReader;
import java.io.BufferedWriter;
import java.io.File;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.OutputStreamWriter;
import java.lang.ProcessBuilder.Redirect;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;

/**
 * What sampling at 20 ms adds to a warm program of two busy threads, and what bare stacks at that
 * period add: {@code Sampled VDK AGENT BARE CLASSES CYCLES JDK...}. One JVM has both agents, and
 * each is switched on for a while between two spans with both off: JVMs differ more from each
 * other, by what their compilers chose, than sampling adds. Printed is the median of the ratios to
 * the spans before and after, in CPU time a round of the threads and of the whole process.
 */
public final class Sampled {
    private static final int SPAN_MS = 2000;
    private static final int WARM_UP_SPANS = 5;

    private final String vdk;
    private final Process process;
    private final BufferedReader out;
    private final BufferedWriter in;

    private Sampled(String vdk, Process process) {
        this.vdk = vdk;
        this.process = process;
        out = new BufferedReader(new InputStreamReader(process.getInputStream()));
        in = new BufferedWriter(new OutputStreamWriter(process.getOutputStream()));
    }

    /** The program: answers each line by the CPU time of a round in the next span. */
    public static final class Program {
        private static final long[] ids = new long[2];
        /** Far apart, so that the threads do not slow each other down. */
        private static final long[] rounds = new long[ids.length * 16];

        private Program() {
        }

        private static long[] usage() {
            long[] sums = new long[3];
            for (int i = 0; i < ids.length; i++) {
                sums[0] += rounds[16 * i];
                sums[1] += ManagementFactory.getThreadMXBean().getThreadCpuTime(ids[i]);
            }
            sums[2] = ((OperatingSystemMXBean) ManagementFactory.getOperatingSystemMXBean())
                              .getProcessCpuTime();
            return sums;
        }

        public static void main(String[] args) throws Exception {
            for (int i = 0; i < ids.length; i++) {
                int place = 16 * i;
                Thread thread = new Thread(() -> {
                    while (true) {
                        Busy.work(20);
                        rounds[place] += 20;
                    }
                });
                thread.setDaemon(true);
                thread.start();
                ids[i] = thread.getId();
            }
            BufferedReader commands = new BufferedReader(new InputStreamReader(System.in));
            System.out.println(ProcessHandle.current().pid());
            while (commands.readLine() != null) {
                long[] before = usage();
                Thread.sleep(SPAN_MS);
                long[] after = usage();
                double count = after[0] - before[0];
                System.out.println((after[1] - before[1]) / count + " " +
                                   (after[2] - before[2]) / count);
            }
        }
    }

    private double[] measure() throws IOException {
        in.write('\n');
        in.flush();
        return Arrays.stream(out.readLine().split(" ")).mapToDouble(Double::parseDouble).toArray();
    }

    private void sample(String verb, String pid) throws Exception {
        int code = new ProcessBuilder(vdk, "sample", verb, pid)
                           .redirectErrorStream(true)
                           .redirectOutput(Redirect.DISCARD)
                           .start()
                           .waitFor();
        if (code != 0) {
            throw new IllegalStateException("vdk sample " + verb + ": exit code " + code);
        }
    }

    /** Ratios of a span to the mean of its neighbours, of threads and process. */
    private static double[] ratios(double[] before, double[] span, double[] after) {
        return new double[] {2 * span[0] / (before[0] + after[0]),
                             2 * span[1] / (before[1] + after[1])};
    }

    private void run(String jdk, Path switchFile, int cycles) throws Exception {
        String pid = out.readLine();
        double[][] bare = new double[cycles][];
        double[][] sampling = new double[cycles][];
        double[] before = measure();
        for (int i = 1; i < WARM_UP_SPANS; i++) {
            before = measure();
        }
        for (int i = 0; i < cycles; i++) {
            Files.createFile(switchFile);
            double[] span = measure();
            Files.delete(switchFile);
            double[] after = measure();
            bare[i] = ratios(before, span, after);
            sample("start", pid);
            span = measure();
            sample("stop", pid);
            before = measure();
            sampling[i] = ratios(after, span, before);
        }
        print(jdk, "bare stacks", bare);
        print(jdk, "sampling", sampling);
    }

    private static void print(String jdk, String what, double[][] ratios) {
        System.out.printf("%s, warm program of 2 threads, %s at 20 ms: threads %.3f, process "
                                  + "%.3f%n",
                          jdk, what, median(ratios, 0), median(ratios, 1));
    }

    private static double median(double[][] ratios, int column) {
        double[] sorted = Arrays.stream(ratios).mapToDouble(row -> row[column]).sorted().toArray();
        return sorted[sorted.length / 2];
    }

    public static void main(String[] args) throws Exception {
        Path folder = Files.createTempDirectory("vdk-bench-");
        Path switchFile = folder.resolve("stacks");
        for (int i = 5; i < args.length; i++) {
            Process process =
                    new ProcessBuilder(
                            args[i] + "/bin/java", "-agentpath:" + args[2] + "=20," + switchFile,
                            "-agentpath:" + args[1] +
                                    "=quiet,onlylocal,noexceptionevents,builtinprobes=none,tmpdir=" +
                                    folder + ",dir=" + folder,
                            "-cp", args[3], Program.class.getName())
                            .redirectError(Redirect.DISCARD)
                            .start();
            try {
                new Sampled(args[0], process)
                        .run(new File(args[i]).getName(), switchFile, Integer.parseInt(args[4]));
            } finally {
                process.destroyForcibly();
                process.waitFor();
            }
        }
    }
}
