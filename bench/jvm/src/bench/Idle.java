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
 * What it costs that the agent is there, nothing recorded, beside a flight recording and an agent
 * with an empty class load hook: {@code Idle VDK BARE CLASSES ROUNDS JDK...}. All rows of a program
 * run in turn; the plain JVM runs twice, so that chance shows.
 */
public final class Idle {
    private static final String[] PROGRAMS = {"calls", "mixed", "allocations", "exceptions"};
    private static final int WAIT_MS = 2500; // two records of telemetry

    private final String vdk;
    private final String bare;
    private final String classes;
    private final int rounds;
    private final Path folder = Files.createTempDirectory("vdk-bench-");
    private final Map<String, String> agents = new LinkedHashMap<>();
    private String jdk;

    /** One run of a program: what is measured of it. */
    private interface Measurement {
        double of(String agent) throws Exception;
    }

    private Idle(String[] args) throws Exception {
        vdk = args[0];
        bare = args[1];
        classes = args[2];
        rounds = Integer.parseInt(args[3]);
        String option = output("vdk", vdk, "run", "--no-snapshot", "--print-option").trim();
        agents.put("plain", null);
        agents.put("plain again", null);
        agents.put("empty class load hook", "-agentpath:" + bare + "=hook");
        agents.put("JFR, settings=profile",
                   "-XX:StartFlightRecording:settings=profile,filename=" + folder + "/x.jfr");
        agents.put("vdk run", option);
        agents.put("vdk run, no calls", option + ",disabletracing,disablealloc");
        agents.put("the same, no telemetry",
                   option + ",disabletracing,disablealloc,telemetryperiod=0");
    }

    public static void main(String[] args) throws Exception {
        Idle idle = new Idle(args);
        for (int i = 4; i < args.length; i++) {
            idle.jdk = args[i];
            System.out.println("\nJDK " + Path.of(args[i]).getFileName());
            idle.measure();
        }
    }

    private void measure() throws Exception {
        compare("java -version, CPU", agent -> cpu(10, agent, "-version"));
        Path one = Files.writeString(folder.resolve("One.java"), "class One {}\n");
        compare("javac of one line, CPU",
                agent
                -> cpu(1, agent, "-m", "jdk.compiler/com.sun.tools.javac.Main", "-d",
                       folder.toString(), one.toString()));
        String tomcat = System.getProperty("bench.tomcat", "");
        if (!tomcat.isEmpty()) {
            compare("start and stop of Tomcat with one servlet, CPU",
                    agent -> cpu(1, agent, "-cp", tomcat, "programs.TomcatServer"));
        }
        compareMemory();
        for (String program : PROGRAMS) {
            compare("operations in a second of CPU time, " + program,
                    agent -> steady(agent, program));
        }
    }

    /**
     * Medians of the ratios to the plain JVM's run of the same round, the least and the largest.
     */
    private void compare(String what, Measurement measurement) throws Exception {
        System.out.println(what + " (" + rounds + " rounds in turn)");
        Map<String, double[]> ratios = new LinkedHashMap<>();
        Map<String, double[]> values = values(measurement);
        double[] plain = values.get("plain");
        for (Map.Entry<String, double[]> each : values.entrySet()) {
            double[] all = each.getValue();
            double[] ratio = new double[rounds];
            for (int i = 0; i < rounds; i++) {
                ratio[i] = all[i] / plain[i];
            }
            Arrays.sort(ratio);
            Arrays.sort(all = all.clone());
            System.out.printf("  %-24s %.3f, ratio %.3f (%.3f to %.3f)%n", each.getKey(),
                              all[rounds / 2], ratio[rounds / 2], ratio[0], ratio[rounds - 1]);
        }
    }

    private void compareMemory() throws Exception {
        System.out.println("a program that waits, resident MB");
        Map<String, double[]> values = values(this::resident);
        double plain = 0;
        for (Map.Entry<String, double[]> each : values.entrySet()) {
            double[] all = each.getValue();
            Arrays.sort(all);
            plain = each.getKey().equals("plain") ? all[rounds / 2] : plain;
            System.out.printf("  %-24s %.1f, %+.1f%n", each.getKey(), all[rounds / 2],
                              all[rounds / 2] - plain);
        }
    }

    /** After a round that does not count. */
    private Map<String, double[]> values(Measurement measurement) throws Exception {
        Map<String, double[]> values = new LinkedHashMap<>();
        for (int round = -1; round < rounds; round++) {
            for (Map.Entry<String, String> agent : agents.entrySet()) {
                double value = measurement.of(agent.getValue());
                if (round >= 0) {
                    values.computeIfAbsent(agent.getKey(), name -> new double[rounds])[round] =
                            value;
                }
            }
        }
        return values;
    }

    private List<String> command(String agent, String... program) {
        List<String> command = new ArrayList<>(List.of(jdk + "/bin/java"));
        if (agent != null) {
            command.add(agent);
        }
        command.addAll(Arrays.asList(program));
        return command;
    }

    private String output(String what, String... command) throws Exception {
        Process process = new ProcessBuilder(command)
                                  .directory(folder.toFile())
                                  .redirectError(Redirect.DISCARD)
                                  .start();
        process.getOutputStream().close();
        String text = new String(process.getInputStream().readAllBytes());
        if (process.waitFor() != 0) {
            throw new IllegalStateException("exit code " + process.exitValue() + " of " + what +
                                            ": " + Arrays.toString(command));
        }
        return text;
    }

    /** Seconds of CPU time of a run, by the system's account of so many finished children. */
    private double cpu(int runs, String agent, String... program) throws Exception {
        List<String> shell = new ArrayList<>(
                List.of("bash", "-c",
                        "TIMEFORMAT='%U %S'; n=$1; shift; "
                                + "time for ((i = 0; i < n; i++)); do \"$@\" >/dev/null 2>&1; done",
                        "time", Integer.toString(runs)));
        shell.addAll(command(agent, program));
        Process process = new ProcessBuilder(shell)
                                  .directory(folder.toFile())
                                  .redirectErrorStream(true)
                                  .start();
        process.getOutputStream().close();
        String[] times = new String(process.getInputStream().readAllBytes()).trim().split(" ");
        if (process.waitFor() != 0) {
            throw new IllegalStateException("exit code " + process.exitValue() + " of " + shell);
        }
        return (Double.parseDouble(times[0]) + Double.parseDouble(times[1])) / runs;
    }

    private double steady(String agent, String program) throws Exception {
        List<String> command = command(agent, "-XX:+UseSerialGC", "-Xmx512m", "-cp", classes,
                                       "bench.Steady", program, "9");
        String text = output(program, command.toArray(new String[0])).trim();
        return 1e9 / Double.parseDouble(text.substring(text.lastIndexOf(' ') + 1));
    }

    private double resident(String agent) throws Exception {
        Process process = new ProcessBuilder(command(agent, "-cp", classes, "bench.Waiting"))
                                  .directory(folder.toFile())
                                  .redirectError(Redirect.DISCARD)
                                  .start();
        try {
            process.getInputStream().read();
            Thread.sleep(WAIT_MS);
            for (String line : Files.readAllLines(Path.of("/proc/" + process.pid() + "/status"))) {
                if (line.startsWith("VmRSS:")) {
                    return Double.parseDouble(line.replaceAll("\\D", "")) / 1024;
                }
            }
            throw new IOException("no VmRSS");
        } finally {
            process.destroy();
            process.waitFor();
        }
    }
}
