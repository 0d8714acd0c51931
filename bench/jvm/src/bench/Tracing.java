package bench;

import java.io.IOException;
import java.lang.ProcessBuilder.Redirect;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * What inserted calls cost while they are off, beside the same calls inserted by ASM to methods
 * that are always empty, and what a traced call costs, beside reading the clocks:
 * {@code Tracing AGENT TOOLS CLASSES ROUNDS JDK...}.
 */
public final class Tracing {
    private static final String[] PROGRAMS = {"calls", "mixed", "allocations", "exceptions"};
    private static final String[] THREADS = {"1", "2", "4", "8"};

    private final String agent;
    private final Path tools;
    private final String classes;
    private final int rounds;
    private final Path folder;
    private String jdk;

    private Tracing(String[] args) throws IOException {
        agent = args[0];
        tools = Path.of(args[1]);
        classes = args[2];
        rounds = Integer.parseInt(args[3]);
        folder = Files.createTempDirectory("vdk-bench-");
    }

    public static void main(String[] args) throws Exception {
        Tracing tracing = new Tracing(args);
        for (int i = 4; i < args.length; i++) {
            tracing.jdk = args[i];
            System.out.println("\nJDK " + Path.of(args[i]).getFileName());
            for (String program : PROGRAMS) {
                tracing.steady(program);
            }
            tracing.tracedCalls("unfiltered", "none.*\n", "");
            tracing.tracedCalls("filtered under filtered", "bench.*\n", "");
            tracing.tracedCalls("filtered under filtered, kept in Java code", "bench.*\n", "",
                                ",keepfiltered");
            tracing.tracedCalls("wall time", "none.*\n", "bench.*\n");
        }
    }

    private String vdk(String options) {
        return "-agentpath:" + agent +
                "=quiet,onlylocal,noexceptionevents,builtinprobes=none,telemetryperiod=0,tmpdir=" +
                folder + ",dir=" + folder + options;
    }

    /** What a program prints; its last line is the result. */
    private String[] run(String agentOption, String... program) throws Exception {
        List<String> command = new ArrayList<>();
        command.add(jdk + "/bin/java");
        if (agentOption != null) {
            command.add(agentOption);
        }
        command.addAll(List.of("-XX:+UseSerialGC", "-Xmx512m", "-cp", classes));
        command.addAll(Arrays.asList(program));
        Process process = new ProcessBuilder(command).redirectError(Redirect.DISCARD).start();
        String text = new String(process.getInputStream().readAllBytes()).trim();
        if (process.waitFor() != 0) {
            throw new IllegalStateException("exit code " + process.exitValue() + " of " + command);
        }
        return text.split("\n");
    }

    private double cpuOfRound(String agentOption, String program) throws Exception {
        String[] lines = run(agentOption, "bench.Steady", program, "9");
        return Double.parseDouble(lines[lines.length - 1].replace("cpu_ns ", ""));
    }

    /** Each configuration once a round, in turn; the median of its ratios to the plain program. */
    private void steady(String program) throws Exception {
        Map<String, String> agents = new LinkedHashMap<>();
        Path floor = tools.resolve("asm_calls.jar");
        if (Files.exists(floor)) {
            agents.put("ASM's empty calls", "-javaagent:" + floor);
        }
        agents.put("agent off", vdk(""));
        agents.put("agent off, no allocation calls", vdk(",disablealloc"));
        Map<String, double[]> ratios = new LinkedHashMap<>();
        agents.keySet().forEach(name -> ratios.put(name, new double[rounds]));
        double[] plain = new double[rounds];
        for (int round = 0; round < rounds; round++) {
            plain[round] = cpuOfRound(null, program);
            for (Map.Entry<String, String> each : agents.entrySet()) {
                ratios.get(each.getKey())[round] =
                        cpuOfRound(each.getValue(), program) / plain[round];
            }
        }
        System.out.printf("steady state, %s: plain %.1f ms%n", program, median(plain) / 1e6);
        ratios.forEach(
                (name, values) -> System.out.printf("  %-32s ratio %.3f%n", name, median(values)));
    }

    private void tracedCalls(String what, String filters, String wallTime, String... options)
            throws Exception {
        Path filterFile = Files.writeString(folder.resolve("filters"), filters);
        Path wallTimeFile = Files.writeString(folder.resolve("walltime"), wallTime);
        List<String> program = new ArrayList<>();
        program.add("bench.TracedCall");
        program.add(tools.resolve("libclock_reader.so").toString());
        program.addAll(Arrays.asList(THREADS));
        System.out.println("traced call, " + what);
        for (String line : run(vdk(",tracing,filters=" + filterFile +
                                   ",walltimespec=" + wallTimeFile + String.join("", options)),
                               program.toArray(new String[0]))) {
            String[] values = line.split(" ");
            System.out.printf(
                    "  %s threads: %5.0f ns of CPU, %5.0f ns of time; a reading of the CPU "
                            + "clock %3.0f ns, of the monotonic clock %3.0f ns%n",
                    values[0], Double.parseDouble(values[1]), Double.parseDouble(values[2]),
                    Double.parseDouble(values[3]), Double.parseDouble(values[4]));
        }
    }

    private static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }
}
