package cases;

import fixtures.HeapGenerator;
import fixtures.HeldCompiler;
import fixtures.Started;
import fixtures.VirtualThreads;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.TreeSet;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;

/** `vdk heap` on dumps of real JVMs, compared with what the JVM says about the same heap. */
public final class HeapDumpCases {
    private static final int OBJECTS = 50_000;
    private static final int SHARE = OBJECTS / 5;
    private static final String GENERATOR = HeapGenerator.class.getName();
    private static final Pattern HISTOGRAM_LINE =
            Pattern.compile("\\s*\\d+:\\s+(\\d+)\\s+(\\d+)\\s+(\\S+).*");
    private static final Pattern CLASS_SUM =
            Pattern.compile("\"class\": \"([^\"]*)\",\\s*\"count\": (\\d+),\\s*\"shallow\": (\\d+),"
                            + "\\s*\"retained\": (\\d+)");

    private HeapDumpCases() {
    }

    private static final class Sum {
        long count;
        long shallow;
        long retained;

        long size() {
            return shallow / count;
        }

        @Override
        public String toString() {
            return count + " objects of " + shallow + " bytes";
        }
    }

    private static String jcmd(Target target, String... command) throws Exception {
        List<String> words = new ArrayList<>();
        words.add(target.jdk.home + "/bin/jcmd");
        words.add("-J-Dsun.tools.attach.attachTimeout=" + Check.LIMIT_SECONDS * 1000);
        words.add(target.id());
        words.addAll(Arrays.asList(command));
        return Tool.run(words);
    }

    private static String vdk(Path file, String... words) throws Exception {
        List<String> command = new ArrayList<>(List.of("heap", file.toString()));
        command.addAll(Arrays.asList(words));
        return Tool.vdk(command.toArray(new String[0]));
    }

    private static Path dump(Target target, String name, String... more) throws Exception {
        Path file = target.folder.resolve(name);
        List<String> words = new ArrayList<>();
        words.add("GC.heap_dump");
        words.addAll(Arrays.asList(more));
        words.add(file.toString());
        jcmd(target, words.toArray(new String[0]));
        return file;
    }

    /** "[Ljava.lang.Object;" as "java.lang.Object[]". */
    private static String sourceName(String name) {
        int dimensions = 0;
        while (name.startsWith("[", dimensions)) {
            dimensions++;
        }
        if (dimensions == 0) {
            return name;
        }
        String element = name.substring(dimensions);
        String letters = "BCDFIJSZ";
        String[] types = {"byte", "char", "double", "float", "int", "long", "short", "boolean"};
        element = element.length() == 1 ? types[letters.indexOf(element.charAt(0))]
                                        : element.substring(1, element.length() - 1);
        return element + "[]".repeat(dimensions);
    }

    private static Map<String, Sum> jvmHistogram(Target target) throws Exception {
        Map<String, Sum> sums = new TreeMap<>();
        for (String line : jcmd(target, "GC.class_histogram").split("\n")) {
            Matcher matcher = HISTOGRAM_LINE.matcher(line);
            if (matcher.matches()) {
                String name = sourceName(matcher.group(3));
                // Fills gaps between regions; its instances are int arrays in the dump.
                name = name.equals("jdk.internal.vm.FillerElement[]") ? "int[]" : name;
                Sum sum = sums.computeIfAbsent(name, key -> new Sum());
                sum.count += Long.parseLong(matcher.group(1));
                sum.shallow += Long.parseLong(matcher.group(2));
            }
        }
        return sums;
    }

    private static Map<String, Sum> ourHistogram(Path file, String... more) throws Exception {
        List<String> words = new ArrayList<>(List.of("histogram", "--json"));
        words.addAll(Arrays.asList(more));
        Map<String, Sum> sums = new TreeMap<>();
        Matcher matcher = CLASS_SUM.matcher(vdk(file, words.toArray(new String[0])));
        while (matcher.find()) {
            Sum sum = sums.computeIfAbsent(matcher.group(1), key -> new Sum());
            sum.count += Long.parseLong(matcher.group(2));
            sum.shallow += Long.parseLong(matcher.group(3));
            sum.retained += Long.parseLong(matcher.group(4));
        }
        return sums;
    }

    /**
     * Classes in which the two differ, with both sums. Sizes of classes with less objects than the
     * fewest may differ.
     */
    private static List<String> differences(Map<String, Sum> jvm, Map<String, Sum> ours,
                                            int fewest) {
        List<String> result = new ArrayList<>();
        TreeSet<String> names = new TreeSet<>(jvm.keySet());
        names.addAll(ours.keySet());
        // A JVM doesn't dump the class objects of archived classes that it has not loaded.
        names.remove("java.lang.Class");
        for (String name : names) {
            String a = String.valueOf(jvm.get(name));
            String b = String.valueOf(ours.get(name));
            boolean few = jvm.containsKey(name) && ours.containsKey(name) &&
                          jvm.get(name).count == ours.get(name).count &&
                          jvm.get(name).count < fewest;
            if (!a.equals(b) && !few) {
                result.add(name + ": the JVM has " + a + ", we have " + b);
            }
        }
        return result;
    }

    private static void compare(Target target, int fewest) throws Exception {
        // A collection sets cleaners off, which change the heap a little later: the dump counts
        // that was taken while the JVM's own numbers stood still.
        Path file = target.folder.resolve("compare.hprof");
        Map<String, Sum> jvm = jvmHistogram(target);
        String before = "";
        for (int i = 0; i < 10 && !jvm.toString().equals(before); i++) {
            before = jvm.toString();
            Files.deleteIfExists(file);
            dump(target, "compare.hprof");
            jvm = jvmHistogram(target);
        }
        Map<String, Sum> ours = ourHistogram(file, "--verify");
        Check.equal(differences(jvm, ours, fewest).toString(), "[]", "differences");
        Check.isTrue(ours.size() > 200, "classes: " + ours.size());
        Sum jvmClasses = jvm.get("java.lang.Class");
        Sum ourClasses = ours.get("java.lang.Class");
        Check.isTrue(ourClasses.count <= jvmClasses.count, "class objects: " + ourClasses);
        Check.near(ourClasses.size(), jvmClasses.size(), 16, "bytes of a class object");
        target.finish();
    }

    @Case(fixture = HeapGenerator.class, args = "50000", noAgent = true, attach = false,
          variants = {"", "-XX:-UseCompressedOops",
                      "25:-XX:+UnlockExperimentalVMOptions -XX:+UseCompactObjectHeaders",
                      "-XX:+UseSerialGC -XX:ObjectAlignmentInBytes=16"})
    static void
    countsAndSizesAreThoseOfTheJvm(Target target) throws Exception {
        // Where objects are aligned widely, a gap behind a single object may be another object.
        compare(target, target.variant.contains("Alignment") ? 3 : 1);
    }

    @Case(fixture = VirtualThreads.class, args = "parked", noAgent = true, attach = false,
          since = 25)
    static void
    stacksOfVirtualThreadsHaveTheSizeThatTheJvmSays(Target target) throws Exception {
        Sum jvm = jvmHistogram(target).get("jdk.internal.vm.StackChunk");
        Sum ours = ourHistogram(dump(target, "virtual.hprof")).get("jdk.internal.vm.StackChunk");
        Check.isTrue(ours.count >= VirtualThreads.PARKED && ours.count == jvm.count,
                     "chunks: " + ours + ", " + jvm);
        Check.near(ours.shallow, jvm.shallow, jvm.shallow / 50, "bytes");
        target.finish();
    }

    @Case(fixture = HeldCompiler.class, noAgent = true, attach = false)
    static void countsAndSizesOfACompilerAreThoseOfTheJvm(Target target) throws Exception {
        // Fields set apart from others make the one instance of a class larger than we see.
        compare(target, 1);
    }

    @Case(fixture = Started.class, args = "programs.TomcatServer", jars = ServerCases.JARS,
          noAgent = true, attach = false)
    static void
    countsAndSizesOfAServerAreThoseOfTheJvm(Target target) throws Exception {
        compare(target, 1);
    }

    @Case(fixture = HeapGenerator.class, args = "50000", noAgent = true, attach = false)
    static void knownStructuresRetainWhatTheyMust(Target target) throws Exception {
        Path file = dump(target, "retained.hprof");
        Map<String, Sum> sums = ourHistogram(file);
        Sum node = sums.get(GENERATOR + "$ChainNode");
        Check.equal(node.count, (long) SHARE, "nodes of the chain");
        Check.equal(node.retained, node.shallow, "retained by the chain");
        Sum tree = sums.get(GENERATOR + "$TreeNode");
        Check.equal(tree.count, 8191L, "nodes of the tree");
        Check.equal(tree.retained, tree.shallow, "retained by the tree");
        Sum linked = sums.get("java.util.LinkedList");
        Sum links = sums.get("java.util.LinkedList$Node");
        Sum derived = sums.get(GENERATOR + "$Derived");
        Check.equal(linked.retained, linked.shallow + links.shallow + derived.shallow,
                    "retained by the linked list");
        String group =
                vdk(file, "retained", GENERATOR + "$ChainNode", GENERATOR + "$TreeNode", "--json");
        Check.contains(group, "\"retained\": " + (node.shallow + tree.shallow), "group");
        // The list: itself, its array and the items, which no one else holds.
        Sum item = sums.get(GENERATOR + "$Item");
        String biggest = vdk(file, "biggest", "--json", "--top", "40");
        Matcher array =
                Pattern.compile("\"class\": \"java.lang.Object\\[\\]\",\\s*\"shallow\": "
                                + "(\\d+),\\s*\"retained\": (\\d+),\\s*\"length\": " + SHARE)
                        .matcher(biggest);
        Check.isTrue(array.find(), "the array of the list: " + biggest);
        Check.equal(Long.parseLong(array.group(2)),
                    Long.parseLong(array.group(1)) + SHARE * item.size(), "retained by the array");
        target.finish();
    }

    @Case(fixture = HeapGenerator.class, args = "50000", noAgent = true, attach = false)
    static void compressedDumpsAndIndexesShowTheSame(Target target) throws Exception {
        Path plain = dump(target, "plain.hprof");
        Path packed = dump(target, "packed.hprof.gz", "-gz=1");
        Check.isTrue(Files.size(packed) < Files.size(plain) / 2, "packed size");
        String difference = vdk(plain, "diff", packed.toString(), "--json");
        // Between the dumps the JVM answers jcmd, which leaves a few objects.
        Check.isTrue(!difference.contains(GENERATOR), "differences: " + difference);
        Path index = target.folder.resolve("plain.index");
        String first = vdk(plain, "biggest", "--json", "--index", index.toString());
        Check.isTrue(Files.size(index) > 1_000_000, "size of the index");
        Check.equal(vdk(plain, "biggest", "--json", "--index", index.toString(), "--verify"), first,
                    "second opening");
        target.finish();
    }

    @Case(fixture = HeapGenerator.class, args = "50000", noAgent = true, attach = false)
    static void cutDumpsAreReadAsFarAsTheyGo(Target target) throws Exception {
        byte[] bytes = Files.readAllBytes(dump(target, "whole.hprof"));
        Path cut = target.folder.resolve("cut.hprof");
        for (int part = 5; part < 10; part += 2) {
            Files.write(cut, Arrays.copyOf(bytes, bytes.length / 10 * part));
            String output = vdk(cut, "histogram", "--json", "--no-retained");
            Check.contains(output, "the file is truncated", "remarks");
            Check.contains(output, "java.lang.String", "classes");
        }
        target.finish();
    }
}
