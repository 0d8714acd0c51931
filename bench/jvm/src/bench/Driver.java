package bench;

import java.io.File;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * Runs JVMs with and without the agent, in turn, and prints medians of ratios:
 * {@code Driver AGENT BARE CLASSES ROUNDS jdk=sources...}. CPU time and wall time of whole
 * processes come from the system's own accounting of finished children.
 */
public final class Driver {
    private final String agent;
    private final String bare;
    private final String classes;
    private final int rounds;
    private final Path folder;
    private long lastPid;

    private Driver(String[] args) throws Exception {
        agent = args[0];
        bare = args[1];
        classes = args[2];
        rounds = Integer.parseInt(args[3]);
        folder = Files.createTempDirectory("vdk-bench-");
    }

    public static void main(String[] args) throws Exception {
        Driver driver = new Driver(args);
        for (int i = 4; i < args.length; i++) {
            int sign = args[i].indexOf('=');
            System.out.println("\nJDK " + new File(args[i].substring(0, sign)).getName());
            driver.run(args[i].substring(0, sign), args[i].substring(sign + 1));
        }
    }

    private String vdk(String options) {
        return "-agentpath:" + agent +
                "=quiet,onlylocal,noexceptionevents,builtinprobes=none,tmpdir=" + folder +
                ",dir=" + folder + options;
    }

    private void run(String jdk, String sources) throws Exception {
        startUp(jdk, sources);
        startTomcat(jdk);
        Map<String, String[]> agents = plainAndIdle();
        agents.put("bare stacks 20 ms", new String[] {"-agentpath:" + bare + "=20"});
        agents.put("agent sampling 20 ms", new String[] {vdk(",sampling")});
        compare("busy program of 2 threads", jdk, agents, "-cp", classes, "bench.Busy", "60000");
        for (int[] shape : new int[][] {{10, 20}, {100, 20}, {100, 200}, {1000, 20}}) {
            passes(jdk, shape[0], shape[1]);
        }
    }

    private Map<String, String[]> plainAndIdle() {
        Map<String, String[]> agents = new LinkedHashMap<>();
        agents.put("plain", new String[0]);
        agents.put("agent idle", new String[] {vdk("")});
        return agents;
    }

    private void startUp(String jdk, String sources) throws Exception {
        Map<String, String[]> agents = plainAndIdle();
        compare("start-up, java -version", jdk, agents, "-version");
        String[] small = {"-m",
                          "jdk.compiler/com.sun.tools.javac.Main",
                          "-nowarn",
                          "-d",
                          folder.toString(),
                          smallSource()};
        compare("a small compile, javac's first second", jdk, agents, small);
        hook("a small compile", jdk, small);
        if (!sources.isEmpty()) {
            String[] whole = small.clone();
            whole[whole.length - 1] = "@" + sources;
            compare("whole compile, javac of java.xml", jdk, agents, whole);
            hook("the whole compile", jdk, whole);
        }
    }

    /** Starts the server and stops it, as its standard input is at its end. */
    private void startTomcat(String jdk) throws Exception {
        String path = System.getProperty("bench.tomcat", "");
        if (path.isEmpty()) {
            System.out.println("no Tomcat: install libtomcat10-java");
            return;
        }
        compare("start and stop of Tomcat with one servlet", jdk, plainAndIdle(), "-cp", path,
                "programs.TomcatServer");
        hook("the start of Tomcat", jdk, "-cp", path, "programs.TomcatServer");
    }

    /**
     * One row a configuration: CPU and wall seconds, and the median of the ratios to the first
     * one.
     */
    private void compare(String what, String jdk, Map<String, String[]> agents, String... program)
            throws Exception {
        System.out.println(what + " (" + rounds + " rounds in turn)");
        List<double[]> first = new ArrayList<>();
        Map<String, List<double[]>> all = new LinkedHashMap<>();
        for (int round = 0; round <= rounds; round++) {
            for (Map.Entry<String, String[]> each : agents.entrySet()) {
                double[] times = time(jdk, each.getValue(), program);
                if (round > 0) {
                    all.computeIfAbsent(each.getKey(), k -> new ArrayList<>()).add(times);
                }
            }
        }
        for (Map.Entry<String, List<double[]>> each : all.entrySet()) {
            if (first.isEmpty()) {
                first = each.getValue();
            }
            double[] cpu = new double[rounds];
            double[] wall = new double[rounds];
            for (int i = 0; i < rounds; i++) {
                cpu[i] = each.getValue().get(i)[0] / first.get(i)[0];
                wall[i] = each.getValue().get(i)[1] / first.get(i)[1];
            }
            System.out.printf(
                    "  %-22s cpu %.3f s, ratio %.3f   wall %.3f s, ratio %.3f%n", each.getKey(),
                    median(each.getValue().stream().mapToDouble(t -> t[0]).toArray()), median(cpu),
                    median(each.getValue().stream().mapToDouble(t -> t[1]).toArray()),
                    median(wall));
        }
    }

    private double[] time(String jdk, String[] agent, String... program) throws Exception {
        List<String> command = new ArrayList<>(
                List.of("bash", "-c",
                        "TIMEFORMAT='%U %S %R'; \"$@\" >/dev/null 2>&1 & echo $! >&2; time wait $!",
                        "time", jdk + "/bin/java"));
        command.addAll(Arrays.asList(agent));
        command.addAll(Arrays.asList(program));
        Process process = new ProcessBuilder(command).directory(folder.toFile()).start();
        String text = new String(process.getErrorStream().readAllBytes()).trim();
        if (process.waitFor() != 0) {
            throw new IllegalStateException("exit code " + process.exitValue() + " of " + command);
        }
        lastPid = Long.parseLong(text.substring(0, text.indexOf('\n')));
        String[] times = text.substring(text.indexOf('\n') + 1).split(" ");
        return new double[] {Double.parseDouble(times[0]) + Double.parseDouble(times[1]),
                             Double.parseDouble(times[2])};
    }

    /** A little Java, for a compile that is mostly start-up. */
    private String smallSource() throws IOException {
        StringBuilder text = new StringBuilder("import java.util.*;\nclass Small {\n");
        for (int i = 0; i < 20; i++) {
            text.append("static List<String> m")
                    .append(i)
                    .append("(Map<String, Integer> in) {\n  List<String> out = new ArrayList<>();\n"
                            + "  for (Map.Entry<String, Integer> e : in.entrySet()) {\n"
                            +
                            "    if (e.getValue() > 1) { out.add(e.getKey() + e.getValue()); }\n  }\n"
                            +
                            "  out.sort(Comparator.comparing(String::length));\n  return out;\n}\n");
        }
        return Files.writeString(folder.resolve("Small.java"), text.append("}\n")).toString();
    }

    /** Share of the class load hook in the CPU time, by the agent's own count in its log. */
    private void hook(String what, String jdk, String... program) throws Exception {
        double[] shares = new double[rounds];
        double[] microseconds = new double[rounds];
        long classCount = 0;
        for (int i = 0; i < rounds; i++) {
            double cpu = time(jdk, new String[] {vdk(",debug=times")}, program)[0];
            Path log = Path.of(System.getProperty("user.home"), ".vdk", "log", lastPid + ".log");
            Matcher total = Pattern.compile("total: (\\d+) classes (\\d+) ms")
                                    .matcher(Files.readString(log));
            long ms = 0;
            while (total.find()) {
                classCount = Long.parseLong(total.group(1));
                ms = Long.parseLong(total.group(2));
            }
            shares[i] = ms / 1000.0 / cpu;
            microseconds[i] = ms * 1000.0 / classCount;
        }
        System.out.printf("  hook in %s: %d classes, %.0f us a class, %.3f of the CPU time%n", what,
                          classCount, median(microseconds), median(shares));
    }

    private void passes(String jdk, int threads, int depth) throws Exception {
        double[] ratios = new double[3];
        double[] bareMs = new double[3];
        for (int i = 0; i < 3; i++) {
            bareMs[i] = stacks(jdk, "-agentpath:" + bare + "=20", threads, depth);
            ratios[i] = stacks(jdk, vdk(",sampling,telemetryperiod=0"), threads, depth) / bareMs[i];
        }
        System.out.printf("sampler, %d threads %d deep: bare %.0f ms of CPU in 4 s, ratio %.2f%n",
                          threads, depth, median(bareMs), median(ratios));
    }

    private double stacks(String jdk, String agent, int threads, int depth) throws Exception {
        Process process = new ProcessBuilder(jdk + "/bin/java", agent, "-cp", classes,
                                             "bench.Stacks", "" + threads, "" + depth, "4")
                                  .redirectErrorStream(true)
                                  .start();
        String text = new String(process.getInputStream().readAllBytes()).trim();
        process.waitFor();
        return Math.max(10, Double.parseDouble(text.substring(text.lastIndexOf(' ') + 1)));
    }

    private static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }
}
