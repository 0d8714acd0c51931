package cases;

import fixtures.KnownCalls;
import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;

/**
 * CPU tracing by the client: switched, watched, reported and saved, with exact counts all along.
 */
public final class ClientTracingCases {
    private static final Pattern METHOD =
            Pattern.compile("\\{\\s*\"name\": ?\"([^\"]*)\"[^{}]*?\"calls\": ?(\\d+)\\s*\\}");
    private static final String CLASS = KnownCalls.class.getName() + ".";

    private ClientTracingCases() {
    }

    private static void go(Target target, int number) throws Exception {
        target.ask("go", "done " + number);
    }

    private static Path write(Target target, String name, String text) throws Exception {
        return Files.writeString(target.folder.resolve(name), text);
    }

    private static void addCounts(String json, Map<String, Long> counts) {
        Matcher matcher = METHOD.matcher(json);
        while (matcher.find()) {
            counts.merge(matcher.group(1), Long.parseLong(matcher.group(2)), Long::sum);
        }
    }

    /** What is wrong with the counts of so many runs of KnownCalls. */
    private static List<String> faults(Map<String, Long> counts, int runs) {
        List<String> faults = new ArrayList<>();
        for (Object[] row : TracingCases.CALLS) {
            String name = (String) row[0];
            long seen = counts.getOrDefault(CLASS + name, 0L);
            // Rows of single overloads stand beside the one of all.
            if (!name.contains("(") && seen != (Long) row[1] * runs) {
                faults.add(name + " " + seen + " instead of " + (Long) row[1] * runs);
            }
        }
        return faults;
    }

    private static String report(String source, String... more) throws Exception {
        List<String> words = new ArrayList<>(
                List.of("report", source, "--json", "--show", "methods", "--top", "100000"));
        words.addAll(List.of(more));
        return Tool.vdk(words.toArray(new String[0]));
    }

    private static void checkReport(String source, int runs) throws Exception {
        Map<String, Long> counts = new HashMap<>();
        addCounts(report(source), counts);
        Check.equal(faults(counts, runs), List.of(), "counts in the report on " + source);
    }

    /** A run while top watches: its intervals add up to the calls of the run. */
    private static void checkTop(Target target, int number) throws Exception {
        Process top =
                new ProcessBuilder(Tool.vdkCommand("top", target.id(), "--json", "--top", "100000",
                                                   "--interval", "300ms", "--count", "1000"))
                        .redirectError(ProcessBuilder.Redirect.DISCARD)
                        .start();
        try {
            BufferedReader lines = new BufferedReader(new InputStreamReader(top.getInputStream()));
            Check.isTrue(lines.readLine() != null, "top shows something");
            go(target, number);
            Map<String, Long> counts = new HashMap<>();
            while (!faults(counts, 1).isEmpty()) {
                String line = lines.readLine();
                Check.isTrue(line != null, "top ends with " + faults(counts, 1));
                addCounts(line, counts);
            }
        } finally {
            top.destroyForcibly().waitFor();
        }
    }

    private static Path writeFilters(Target target) throws Exception {
        return write(target, "filters", "# all of the JDK\njava.*\njdk.*\nsun.*\n");
    }

    private static Path writeWallTimes(Target target) throws Exception {
        return write(target, "walltime", "fixtures.KnownCalls:onThread(*)\n");
    }

    private static void checkFiles(String source) throws Exception {
        Check.isTrue(Tool.vdk("report", source, "--show", "methods", "--top", "100000")
                             .contains(CLASS + "onThread (w)"),
                     "wall time is marked");
        Check.isTrue(!report(source, "--filters", "on").contains("\"java."),
                     "filtered methods stay out");
    }

    @Case(fixture = KnownCalls.class, noAgent = true, attach = false)
    static void tracesFromTheStartAsItsFilesSay(Target target) throws Exception {
        target.finish();
        String options = target.agentOptions("tracing,filters=" + writeFilters(target) +
                                             ",walltimespec=" + writeWallTimes(target));
        try (Target traced = Target.run(target, List.of(target.agentPath(options)))) {
            traced.awaitOutput("ready");
            go(traced, 1);
            checkReport(traced.id(), 1);
            checkFiles(traced.id());
            traced.finish();
        }
    }

    @Case(fixture = KnownCalls.class, attach = false)
    static void switchesWatchesReportsAndSaves(Target target) throws Exception {
        Path filters = writeFilters(target);
        Path wallTimes = writeWallTimes(target);
        go(target, 1);
        Tool.vdk("trace", "start", target.id(), "--filter-file", filters.toString(),
                 "--wall-time-file", wallTimes.toString());
        go(target, 2);
        checkReport(target.id(), 1);
        checkTop(target, 3);
        Path snapshot = target.folder.resolve("traced.snapshot");
        Tool.vdk("snapshot", target.id(), "--out", snapshot.toString());
        checkReport(snapshot.toString(), 2);
        Tool.vdk("trace", "stop", target.id());
        go(target, 4);
        checkReport(target.id(), 2);
        String text =
                Tool.vdk("report", snapshot.toString(), "--show", "methods", "--top", "100000");
        Check.contains(text, "CALLS", "the head of the report");
        checkFiles(snapshot.toString());
        target.finish();
    }

    /** The classes that a filter leaves out are rewritten when a later one lets them in. */
    @Case(fixture = KnownCalls.class, noAgent = true, attach = false,
          jvm = {"-XX:+IgnoreUnrecognizedVMOptions", "-XX:+EnableDynamicAgentLoading"})
    static void
    countsInARunningProgramOnceItIsRetransformed(Target target) throws Exception {
        go(target, 1);
        Tool.vdk("attach", target.id(), "--eager", "port=" + target.port);
        String log = target.log();
        Path both = write(target, "both", "java.*\njdk.*\nsun.*\nfixtures.*\n");
        Tool.vdk("retransform", target.id(), "--filter-file", both.toString());
        log = target.log().substring(log.length());
        Check.contains(log, "Classes to retransform: ", "log");
        Check.isTrue(!log.contains("\n  fixtures.KnownCalls\n"), log);
        Path some = write(target, "some", "java.*\njdk.*\nsun.*\n");
        Tool.vdk("trace", "start", target.id(), "--filter-file", some.toString());
        log = target.log();
        Check.contains(log, "\n  fixtures.KnownCalls\n", "log");
        Check.isTrue(!log.contains("\n  java.lang.String\n"), "what is filtered is left alone");
        go(target, 2);
        checkReport(target.id(), 1);
        Tool.vdk("retransform", target.id());
        Check.contains(target.log(), "\n  java.lang.String\n", "all the rest");
        go(target, 3);
        checkReport(target.id(), 2);
        Tool.vdk("trace", "stop", target.id());
        go(target, 4);
        checkReport(target.id(), 2);
        target.finish();
    }
}
