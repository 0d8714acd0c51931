package bench;

import java.io.File;
import java.lang.management.ManagementFactory;
import java.net.URI;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.FileSystems;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.jar.JarFile;
import java.util.stream.Collectors;
import java.util.stream.Stream;

/**
 * What the built-in probes add to the loading of classes: {@code ClassLoads AGENT CLASSES JARS
 * ROUNDS JDK...}. {@code ClassLoads JARS} is the program: it loads classes of the JDK and all of
 * the jars, and prints the number, and microseconds of CPU a class, of either.
 */
public final class ClassLoads {
    private static final List<String> MODULES =
            List.of("java.base", "java.xml", "java.desktop", "java.sql", "jdk.compiler");
    private static final int MOST = 8000;

    private ClassLoads() {
    }

    private static List<String> classesOf(Stream<String> paths) {
        return paths.filter(p -> p.endsWith(".class") && !p.contains("-"))
                .map(p -> p.substring(0, p.length() - 6).replace('/', '.'))
                .sorted()
                .limit(MOST)
                .collect(Collectors.toList());
    }

    private static List<String> classesOfJdk() throws Exception {
        List<String> all = new ArrayList<>();
        for (String module : MODULES) {
            Path root = FileSystems.getFileSystem(URI.create("jrt:/")).getPath("modules", module);
            try (Stream<Path> files = Files.walk(root)) {
                all.addAll(classesOf(files.map(f -> root.relativize(f).toString())));
            }
        }
        return all;
    }

    /** Number of classes that are there now, and CPU time of this thread for each. */
    private static String load(List<String> names, ClassLoader loader) {
        int count = 0;
        long start = ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime();
        for (String name : names) {
            try {
                Class.forName(name, false, loader);
                count++;
            } catch (LinkageError | ClassNotFoundException e) {
                continue; // a superclass of a library that is not here
            }
        }
        long spent = ManagementFactory.getThreadMXBean().getCurrentThreadCpuTime() - start;
        return count + " " + spent / 1000.0 / count;
    }

    private static void program(String jars) throws Exception {
        List<String> names = new ArrayList<>();
        List<URL> urls = new ArrayList<>();
        for (String jar : jars.split(File.pathSeparator)) {
            urls.add(new File(jar).toURI().toURL());
            try (JarFile file = new JarFile(jar)) {
                names.addAll(classesOf(file.stream().map(e -> e.getName())));
            }
        }
        String ofJdk = load(classesOfJdk(), ClassLoader.getSystemClassLoader());
        System.out.println(ofJdk + " " + load(names, new URLClassLoader(urls.toArray(new URL[0]))));
    }

    public static void main(String[] args) throws Exception {
        if (args.length == 1) {
            program(args[0]);
            return;
        }
        String folder = Files.createTempDirectory("vdk-bench-").toString();
        Map<String, List<String>> kinds = new LinkedHashMap<>();
        kinds.put("plain", List.of());
        kinds.put("agent, no probes", List.of(Jvm.agent(args[0], folder, "builtinprobes=none")));
        kinds.put("agent, built-in probes",
                  List.of(Jvm.agent(args[0], folder, "builtinprobes=all")));
        int rounds = Integer.parseInt(args[3]);
        for (String jdk : Arrays.asList(args).subList(4, args.length)) {
            Map<String, List<double[]>> all = new LinkedHashMap<>();
            for (int round = 0; round < rounds; round++) {
                for (Map.Entry<String, List<String>> each : kinds.entrySet()) {
                    all.computeIfAbsent(each.getKey(), k -> new ArrayList<>())
                            .add(Jvm.run(jdk, each.getValue(), "-Xmx512m", "-cp", args[1],
                                         "bench.ClassLoads", args[2]));
                }
            }
            print(jdk, rounds, all);
        }
    }

    private static void print(String jdk, int rounds, Map<String, List<double[]>> all) {
        double[] plain = Jvm.medians(all.get("plain"));
        double[] without = Jvm.medians(all.get("agent, no probes"));
        System.out.printf("Loading of classes, us of CPU each, %s (%d rounds in turn)%n",
                          Path.of(jdk).getFileName(), rounds);
        all.forEach((name, times) -> {
            double[] median = Jvm.medians(times);
            System.out.printf(
                    "  %-23s JDK: %.0f classes %4.0f us, %.2f of plain, %.2f of no probes; "
                            + "jars: %.0f classes %4.0f us, %.2f, %.2f%n",
                    name, median[0], median[1], median[1] / plain[1], median[1] / without[1],
                    median[2], median[3], median[3] / plain[3], median[3] / without[3]);
        });
    }
}
