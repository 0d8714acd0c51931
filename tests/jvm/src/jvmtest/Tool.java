package jvmtest;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/** Programs that the cases call and that end well: vdk and the tools of a JDK. */
public final class Tool {
    /** Name and version, as the agent tells them. */
    public static final String PRODUCT =
            "Vandrik Java Profiler " + System.getProperty("vdk.version");

    private static final int MOST_LOOKS = 20;
    private static final List<String> FILE_COMMANDS = List.of("heap", "list");

    private Tool() {
    }

    /** What the command prints on standard output. */
    public static String run(List<String> command) throws Exception {
        Process process = new ProcessBuilder(command).start();
        process.getOutputStream().close();
        StringBuffer errors = new StringBuffer();
        Thread reader = new Thread(() -> {
            try {
                errors.append(new String(process.getErrorStream().readAllBytes(),
                                         StandardCharsets.UTF_8));
            } catch (IOException e) {
                errors.append(e); // the process is gone; its exit code tells
            }
        });
        reader.start();
        String output = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        reader.join();
        Check.equal(process.waitFor(), 0, "exit code of " + command + ": " + output + errors);
        return output;
    }

    public static String vdk(String... words) throws Exception {
        return run(vdkCommand(words));
    }

    /** What vdk prints, on either stream, when it ends with this code. */
    public static String vdkEndsWith(int code, String... words) throws Exception {
        Process process = new ProcessBuilder(vdkCommand(words)).redirectErrorStream(true).start();
        process.getOutputStream().close();
        String output = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        Check.equal(process.waitFor(), code, "exit code of " + List.of(words) + ": " + output);
        return output;
    }

    private static String list(String command, String target, String show, String by,
                               String... more) throws Exception {
        List<String> words = new ArrayList<>(
                List.of(command, target, "--show", show, "--by", by, "--json", "--top", "100000"));
        words.addAll(List.of(more));
        String all = vdk(words.toArray(new String[0])).replaceAll("\\s+", "");
        return all.substring(all.indexOf("\"by\":"));
    }

    /**
     * The sums in a view of top are those of the report. The program rests, the JVM may not: a
     * thread of its own that has waited meanwhile stands first in top.
     */
    public static void checkTopIsLikeReport(String target, String show, String by)
            throws Exception {
        String before;
        String view;
        String after = list("report", target, show, by);
        int looks = 0;
        do {
            before = after;
            view = list("top", target, show, by, "--interval", "100ms")
                           .replaceAll(",\"interval[A-Z]\\w*\":-?\\d+", "");
            after = list("report", target, show, by);
        } while (!before.equals(after) && ++looks < MOST_LOOKS);
        Check.isTrue(view.equals(before) || view.equals(after),
                     show + " by " + by + " in top: " + view + " and in reports: " + before +
                             " and " + after);
        Check.isTrue(view.contains("\"name\":") || view.contains("\"" + by + "\":"),
                     "there is something to compare: " + view);
    }

    public static List<String> vdkCommand(String... words) {
        List<String> command = new ArrayList<>(List.of(System.getProperty("vdk.build") + "/vdk"));
        command.addAll(Arrays.asList(words));
        // Files have no limit to give.
        if (!FILE_COMMANDS.contains(words[0])) {
            command.addAll(List.of("--timeout", Check.LIMIT_SECONDS + "s"));
        }
        return command;
    }
}
