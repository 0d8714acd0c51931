package cases;

import fixtures.Idle;
import java.io.File;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.jar.Attributes;
import java.util.jar.JarOutputStream;
import java.util.jar.Manifest;
import java.util.stream.Stream;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.HandClass;
import jvmtest.Target;

/**
 * Classes rewritten by all passes together, in JVMs that verify those of every loader, the boot
 * loader included: each ends as it does without the agent.
 */
public final class VerificationCases {
    private static final List<String> VERIFYING =
            List.of("-XX:+UnlockDiagnosticVMOptions", "-XX:+BytecodeVerificationLocal",
                    "-XX:+BytecodeVerificationRemote", "-Xmx1g");
    private static final String BROKEN = "broken.Boot";
    private static final int MUTANTS = 1000;
    private static final long MINUTES = 20;

    private VerificationCases() {
    }

    /** One run of a fixture: what it printed and what the agent logged. */
    private record Run(String output, String log) {
        String logLine(String part) {
            return log.lines().filter(l -> l.contains(part)).findFirst().orElse("");
        }
    }

    private static Run run(Target target, boolean agent, List<String> jvm, String fixture,
                           List<String> args, boolean faultsInLog) throws Exception {
        List<String> command = new ArrayList<>(List.of(target.jdk.java()));
        if (agent) {
            command.add(target.agentPath("quiet,onlylocal,port=" + Target.freePort() +
                                         ",tmpdir=" + target.folder));
        }
        command.addAll(VERIFYING);
        command.addAll(jvm);
        command.addAll(List.of("-cp", System.getProperty("java.class.path"), fixture));
        command.addAll(args);
        try (Target run = Target.like(target)) {
            run.startProcess(command);
            Check.isTrue(run.process().waitFor(MINUTES, TimeUnit.MINUTES), fixture + " ends");
            Check.equal(run.awaitExit(), 0, "exit code; " + run.state());
            String log = agent ? run.log() : "";
            for (String fault : faultsInLog ? new String[] {"Retransforming"}
                                            : new String[] {"exception caught", "assertion failed",
                                                            "Retransforming"}) {
                Check.isTrue(!log.contains(fault), () -> "a fault: " + logAround(log, fault));
            }
            return new Run(run.output() + run.errors(), log);
        }
    }

    private static String logAround(String log, String text) {
        int at = Math.max(0, log.indexOf(text));
        return log.substring(Math.max(0, at - 2000), Math.min(log.length(), at + 2000));
    }

    /** A class whose only method pops from an empty stack; gives its folder. */
    private static String brokenBootClass(Target target) throws Exception {
        HandClass broken = new HandClass(BROKEN.replace('.', '/'), 52);
        broken.method(9, "m", "()V", 1, 0, 87, 0, 177);
        Path file = target.folder.resolve("boot").resolve("broken").resolve("Boot.class");
        Files.createDirectories(file.getParent());
        Files.write(file, broken.bytes());
        return "-Xbootclasspath/a:" + target.folder.resolve("boot");
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void everyClassOfTheJdkIsLinkedRewritten(Target target) throws Exception {
        target.finish();
        Path results = target.folder.resolve("results");
        Run run = run(target, true, List.of(brokenBootClass(target), "--add-modules", "ALL-SYSTEM"),
                      "fixtures.LinkEverything",
                      List.of(results.toString(), "jrt", "boot:" + BROKEN), false);
        System.out.println(target.jdk + ": " + run.output + run.logLine("rewritten: "));
        List<String> bad;
        try (Stream<String> lines = Files.lines(results)) {
            bad = lines.filter(l -> !l.endsWith(" ok")).toList();
        }
        // The broken one shows that the boot loader's classes are verified.
        Check.equal(bad, List.of("boot " + BROKEN + " java.lang.VerifyError"), "refused");
        Check.isTrue(Files.size(results) > 1000000, "few classes: " + Files.size(results));
    }

    /** The jars that VDK_LINK_JARS lists, by colons, or else those of a compiler's library. */
    private static List<String> jars() throws Exception {
        String named = System.getenv("VDK_LINK_JARS");
        if (named != null) {
            return Arrays.asList(named.split(File.pathSeparator));
        }
        try (Stream<Path> files = Files.list(Path.of("/usr/share/java"))) {
            return files.filter(f -> !Files.isSymbolicLink(f))
                    .map(Path::toString)
                    .filter(f -> f.matches(".*/asm-[a-z0-9.-]*jar"))
                    .sorted()
                    .toList();
        }
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void everyClassOfJarsIsLinkedRewritten(Target target) throws Exception {
        target.finish();
        List<String> jars = jars();
        Check.isTrue(!jars.isEmpty(), "no jars");
        compare(target, "fixtures.LinkEverything", jars, false);
    }

    /**
     * Code that needs a little more than the stack or the locals that it declares: inserted calls
     * declare more, and then the verifier may find it sound.
     */
    private static boolean isLimit(String line) {
        return line.endsWith("Operand stack overflow") || line.endsWith("Stack size too large") ||
                line.endsWith("Local variable table overflow") ||
                line.endsWith("Illegal local variable number");
    }

    /** Two texts of the verifier may differ: inserted code comes first. */
    private static String withoutText(String line) {
        return line.replaceFirst(": .*", "");
    }

    /** Runs the fixture without and with the agent; every class must end in the same way. */
    private static List<String> compare(Target target, String fixture, List<String> more,
                                        boolean faultsInLog) throws Exception {
        List<List<String>> results = new ArrayList<>();
        for (boolean agent : new boolean[] {false, true}) {
            Path file = target.folder.resolve("results" + agent);
            List<String> args = new ArrayList<>(List.of(file.toString()));
            args.addAll(more);
            Run run = run(target, agent, List.of(), fixture, args, faultsInLog);
            System.out.println(target.jdk + (agent ? " rewritten: " : " plain: ") + run.output +
                               run.logLine("rewritten: "));
            results.add(Files.readAllLines(file));
        }
        Check.equal(results.get(1).size(), results.get(0).size(), "number of classes");
        List<String> differing = new ArrayList<>();
        for (int i = 0; i < results.get(0).size(); i++) {
            String plain = results.get(0).get(i);
            String rewritten = results.get(1).get(i);
            if (!isLimit(plain) && !withoutText(plain).equals(withoutText(rewritten))) {
                differing.add(plain + " became " + rewritten);
            }
        }
        Check.equal(differing, List.of(), "classes that end otherwise than without the agent");
        return results.get(1);
    }

    /** What another agent retransforms or redefines gets the same methods again. */
    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void anotherAgentMayChangeRewrittenClasses(Target target) throws Exception {
        target.finish();
        Manifest manifest = new Manifest();
        Attributes main = manifest.getMainAttributes();
        main.put(Attributes.Name.MANIFEST_VERSION, "1.0");
        main.putValue("Premain-Class", "fixtures.OtherAgent");
        main.putValue("Can-Retransform-Classes", "true");
        main.putValue("Can-Redefine-Classes", "true");
        Path jar = target.folder.resolve("other.jar");
        new JarOutputStream(Files.newOutputStream(jar), manifest).close();
        samePrints(target, List.of("-javaagent:" + jar), "fixtures.OtherAgent");
    }

    private static void samePrints(Target target, List<String> jvm, String fixture)
            throws Exception {
        String plain = run(target, false, jvm, fixture, List.of(), false).output;
        String rewritten = run(target, true, jvm, fixture, List.of(), false).output;
        Check.equal(rewritten, plain, "output");
        Check.isTrue(!plain.contains("Exception") && !plain.contains("Error"), plain);
    }

    /** Compiled by the JDK under test, for its newest version of class files. */
    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void classesOfTheNewestVersionRunAsWithoutTheAgent(Target target) throws Exception {
        target.finish();
        Path sources = Path.of(System.getProperty("java.class.path"), "sources");
        String source = Files.readAllLines(sources)
                                .stream()
                                .filter(f -> f.endsWith("/Newest.java"))
                                .findFirst()
                                .get();
        Path classes = Files.createDirectories(target.folder.resolve("classes"));
        Process javac = new ProcessBuilder(target.jdk.home + "/bin/javac", "-g", "-parameters",
                                           "-d", classes.toString(), source)
                                .inheritIO()
                                .start();
        Check.equal(javac.waitFor(), 0, "javac");
        // Classes of the boot loader: trusted, but for the flags.
        samePrints(target, List.of("-Xbootclasspath/a:" + classes), "fixtures.Newest");
    }

    /** The parser and the passes refuse, or carry through, whatever the JVM does. */
    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void damagedClassesEndAsWithoutTheAgent(Target target) throws Exception {
        target.finish();
        int count = Integer.getInteger("vdk.mutants", MUTANTS);
        List<String> ends = compare(target, "fixtures.Mutants", List.of("" + count), true);
        long whole = ends.stream().filter(l -> l.endsWith(" ok")).count();
        Check.isTrue(whole > count / 10 && whole < count * 9 / 10, whole + " of " + count + " ok");
    }
}
