package bench;

import java.io.IOException;
import java.lang.ProcessBuilder.Redirect;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/** Starts JVMs that measure, and sums up what they say. */
final class Jvm {
    private Jvm() {
    }

    /** The last line that the program prints, as numbers. */
    static double[] run(String jdk, List<String> options, String... program) throws Exception {
        Process process = start(jdk, options, program);
        String text = new String(process.getInputStream().readAllBytes()).trim();
        if (process.waitFor() != 0) {
            throw new IllegalStateException("exit code " + process.exitValue() + " of " +
                                            Arrays.toString(program) + " with " + options + ": " +
                                            text);
        }
        String last = text.substring(text.lastIndexOf('\n') + 1);
        return Arrays.stream(last.split(" ")).mapToDouble(Double::parseDouble).toArray();
    }

    static Process start(String jdk, List<String> options, String... program) throws IOException {
        List<String> command = new ArrayList<>(List.of(jdk + "/bin/java"));
        command.addAll(options);
        command.addAll(Arrays.asList(program));
        return new ProcessBuilder(command).redirectError(Redirect.INHERIT).start();
    }

    static String agent(String library, String folder, String options) {
        return "-agentpath:" + library +
                "=quiet,onlylocal,noexceptionevents,telemetryperiod=0,tmpdir=" + folder +
                ",dir=" + folder + "," + options;
    }

    static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }

    /** The medians of each number over all rounds. */
    static double[] medians(List<double[]> rounds) {
        double[] all = new double[rounds.get(0).length];
        for (int i = 0; i < all.length; i++) {
            int column = i;
            all[i] = median(rounds.stream().mapToDouble(round -> round[column]).toArray());
        }
        return all;
    }
}
