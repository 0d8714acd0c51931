import java.lang.reflect.Modifier;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.HashMap;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jdk.jfr.consumer.RecordedEvent;
import jdk.jfr.consumer.RecordedFrame;
import jdk.jfr.consumer.RecordedThread;
import jdk.jfr.consumer.RecordingFile;

/**
 * How far the distribution of own time over methods is from that of jdk.CPUTimeSample: half the sum
 * of the differences, 0 for equal and 1 for disjoint ones. Arguments: a flight recording, the
 * report of methods of the same JVM as JSON, the beginning of the names of the threads that both
 * are about; anything more shows the methods. A second line leaves out natives, of whose time the
 * recording has no samples or few, and a third the samples which the recording itself marks as
 * biased as well.
 */
public final class Distance {
    private static final Pattern METHOD = Pattern.compile(
            "\"class\": \"([^\"]*)\", *\\s*\"method\": \"([^\"]*)\"[^{}]*?\"ownNs\": (\\d+)");

    // Those of jdk.CPUTimeSample whose stack is not that of the sample, but that which the thread
    // had at its next safepoint: the recording says so itself.
    private static final String BIASED = "biased";

    private Distance() {
    }

    public static void main(String[] args) throws Exception {
        Map<String, Map<String, Double>> events = new HashMap<>();
        Map<String, Integer> failed = new HashMap<>();
        try (RecordingFile file = new RecordingFile(Path.of(args[0]))) {
            while (file.hasMoreEvents()) {
                read(file.readEvent(), args[2], events, failed);
            }
        }
        Map<String, Double> ours = new HashMap<>();
        Matcher matcher = METHOD.matcher(Files.readString(Path.of(args[1])));
        while (matcher.find()) {
            ours.merge(normal(matcher.group(1) + "." + matcher.group(2)),
                       Double.parseDouble(matcher.group(3)), Double::sum);
        }
        Map<String, Double> truth = events.get("jdk.CPUTimeSample");
        System.out.printf(
                "ours %.3f, jdk.ExecutionSample %.3f from jdk.CPUTimeSample (%.0f samples, %d without a stack; "
                        + "%.0f of the other)%n",
                distance(ours, truth), distance(events.get("jdk.ExecutionSample"), truth),
                sum(truth), failed.getOrDefault("jdk.CPUTimeSample", 0),
                sum(events.get("jdk.ExecutionSample")));
        Map<String, Double> executions = inJava(events.get("jdk.ExecutionSample"));
        tell("in Java code", inJava(ours), executions, inJava(truth));
        Map<String, Double> exact = new HashMap<>(truth);
        events.getOrDefault(BIASED, Map.of())
                .forEach((name, w) -> exact.merge(name, -w, Double::sum));
        tell("and not marked as biased", inJava(ours), executions, inJava(exact));
        if (args.length > 3) {
            truth.entrySet()
                    .stream()
                    .sorted((a, b) -> Double.compare(b.getValue(), a.getValue()))
                    .limit(25)
                    .forEach(row
                             -> System.out.printf(
                                     "%6.2f %6.2f  %s%n", 100 * row.getValue() / sum(truth),
                                     100 * ours.getOrDefault(row.getKey(), 0.0) / sum(ours),
                                     row.getKey()));
            System.out.println("ours:");
            ours.entrySet()
                    .stream()
                    .sorted((a, b) -> Double.compare(b.getValue(), a.getValue()))
                    .limit(15)
                    .forEach(row
                             -> System.out.printf("%6.2f %6.2f  %s%n",
                                                  100 * truth.getOrDefault(row.getKey(), 0.0) /
                                                          sum(truth),
                                                  100 * row.getValue() / sum(ours), row.getKey()));
        }
    }

    private static void tell(String what, Map<String, Double> ours, Map<String, Double> executions,
                             Map<String, Double> truth) {
        System.out.printf("  %s: ours %.3f, jdk.ExecutionSample %.3f (%.0f samples)%n", what,
                          distance(ours, truth), distance(executions, truth), sum(truth));
    }

    private static Map<String, Double> inJava(Map<String, Double> weights) {
        Map<String, Double> left = new HashMap<>(weights == null ? Map.of() : weights);
        left.keySet().removeIf(Distance::isNative);
        return left;
    }

    private static boolean isNative(String name) {
        int dot = name.lastIndexOf('.');
        try {
            return Arrays
                    .stream(Class.forName(name.substring(0, dot), false,
                                          ClassLoader.getSystemClassLoader())
                                    .getDeclaredMethods())
                    .anyMatch(method
                              -> method.getName().equals(name.substring(dot + 1)) &&
                                         Modifier.isNative(method.getModifiers()));
        } catch (ClassNotFoundException | LinkageError e) {
            return false; // the program's own, or a hidden one
        }
    }

    private static boolean isOf(RecordedEvent event, String field, String threads) {
        RecordedThread thread = event.getThread(field);
        return thread != null && thread.getJavaName() != null &&
                thread.getJavaName().startsWith(threads);
    }

    private static void read(RecordedEvent event, String threads,
                             Map<String, Map<String, Double>> events, Map<String, Integer> failed) {
        String type = event.getEventType().getName();
        boolean isTruth = type.equals("jdk.CPUTimeSample");
        if (!isTruth && !type.equals("jdk.ExecutionSample") ||
            !isOf(event, isTruth ? "eventThread" : "sampledThread", threads)) {
            return;
        }
        if (event.getStackTrace() == null || event.getStackTrace().getFrames().isEmpty()) {
            failed.merge(type, 1, Integer::sum);
            return;
        }
        if (isTruth && event.hasField("biased") && event.getBoolean("biased")) {
            events.computeIfAbsent(BIASED, t -> new HashMap<>())
                    .merge(nameOf(event), 1.0, Double::sum);
        }
        events.computeIfAbsent(type, t -> new HashMap<>()).merge(nameOf(event), 1.0, Double::sum);
    }

    private static String nameOf(RecordedEvent event) {
        RecordedFrame top = event.getStackTrace().getFrames().get(0);
        return normal(top.getMethod().getType().getName() + "." + top.getMethod().getName());
    }

    // Hidden classes have numbers in their names.
    private static String normal(String name) {
        return name.replaceAll("\\$\\$Lambda.*\\.", "\\$\\$Lambda.")
                .replaceAll("[/+]0x[0-9a-f]+", "");
    }

    private static double sum(Map<String, Double> weights) {
        return weights == null ? 0 : weights.values().stream().mapToDouble(w -> w).sum();
    }

    private static double distance(Map<String, Double> a, Map<String, Double> b) {
        if (a == null || b == null) {
            return Double.NaN;
        }
        Map<String, Double> all = new HashMap<>(a);
        b.forEach((name, w) -> all.putIfAbsent(name, 0.0));
        double total = 0;
        for (String name : all.keySet()) {
            total += Math.abs(a.getOrDefault(name, 0.0) / sum(a) -
                              b.getOrDefault(name, 0.0) / sum(b));
        }
        return total / 2;
    }
}
