package cases;

import fixtures.Rewrites;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import java.util.stream.Stream;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.HandClass;
import jvmtest.Target;

/** The native that rewrites a class on request, what the hook makes of the same, and its dumps. */
public final class RewriteOnRequestCases {
    private static final int LAST_POOL_COUNT = 65535;

    private int asked;
    private final Target target;

    private RewriteOnRequestCases(Target jvm) throws Exception {
        target = jvm;
        Check.equal(ask("load " + target.library), "loaded", "load");
    }

    /** Sends a line and gives the answer. */
    private String ask(String line) throws Exception {
        target.send(line);
        String mark = "\n" + ++asked + ": ";
        target.awaitOutput(mark);
        int at = target.output().indexOf(mark) + mark.length();
        Check.await(1, () -> target.output().indexOf('\n', at) > 0, target::state);
        return target.output().substring(at, target.output().indexOf('\n', at));
    }

    private Path write(String file, byte[] bytes) throws Exception {
        return Files.write(target.folder.resolve(file), bytes);
    }

    private String rewrite(String name, Path in) throws Exception {
        return ask("rewrite " + name + " " + in + " " + target.folder.resolve("out"));
    }

    private byte[] out() throws Exception {
        return Files.readAllBytes(target.folder.resolve("out"));
    }

    private static boolean holds(byte[] bytes, String text) {
        return new String(bytes, StandardCharsets.ISO_8859_1).contains(text);
    }

    private static int poolCount(byte[] bytes) {
        return (bytes[8] & 255) << 8 | bytes[9] & 255;
    }

    /** A class whose m() gives 42, and a native method. */
    private static HandClass fortyTwo(String name) throws Exception {
        HandClass made = new HandClass(name, 52);
        made.method(9, "m", "()I", 1, 0, 0, 16, 42, 172);
        return made;
    }

    @Case(fixture = Rewrites.class, jvm = "-Xverify:all")
    static void theNativeGivesWhatARedefinitionWouldGet(Target jvm) throws Exception {
        RewriteOnRequestCases test = new RewriteOnRequestCases(jvm);
        HandClass made = fortyTwo("made/Plain");
        made.nativeMethod(0x109, "n", "()V");
        Path in = test.write("in", made.bytes());
        Check.equal(test.rewrite("made/Plain", in), "written", "a class with work to do");
        Check.isTrue(holds(test.out(), "vdkMethodEntry"), "calls are in it");
        // A loaded class can't gain methods.
        Check.isTrue(!holds(test.out(), "$$VDK$$"), "natives are not wrapped");
        Path changed = test.write("changed", test.out());
        // The hook finds the calls that are there and adds its own; the class stays valid.
        Check.equal(test.ask("run made/Plain " + changed), "result 42", "the rewritten class");
        Check.equal(test.rewrite("com/vandrik/probes/Any", in), "same", "a class of the agent");
        Check.equal(test.rewrite("made/Text", test.write("text", "no class".getBytes())), "same",
                    "no class file");
        Check.equal(test.rewrite("made/Empty", test.write("empty", new byte[0])), "same", "empty");
        jvm.finish();
    }

    private String rewrite(String name, byte[] bytes) throws Exception {
        return rewrite(name, write("in", bytes));
    }

    private static byte[] resource(String file) throws Exception {
        return Object.class.getModule().getResourceAsStream(file).readAllBytes();
    }

    /** Where nothing can be inserted, and what is not understood, is left as it is. */
    @Case(fixture = Rewrites.class, attach = false)
    static void classesOfOtherKindsStayAsTheyAre(Target jvm) throws Exception {
        RewriteOnRequestCases test = new RewriteOnRequestCases(jvm);
        Check.equal(test.rewrite("module-info", resource("module-info.class")), "same", "module");
        Check.equal(test.rewrite("java/lang/Runnable", resource("java/lang/Runnable.class")),
                    "same", "interface without bodies");
        Check.equal(test.rewrite("java/util/List", resource("java/util/List.class")), "written",
                    "interface with bodies");
        byte[] unknown = fortyTwo("made/Unknown").bytes();
        // The tag of the first constant.
        unknown[10] = 2;
        Check.equal(test.rewrite("made/Unknown", unknown), "same", "unknown constant");
        Check.contains(jvm.log(), "made.Unknown: invalid class", "log");
        byte[] future = fortyTwo("made/Future").bytes();
        future[4] = future[5] = (byte) 0xff;
        future[7] = 99;
        Check.equal(test.rewrite("made/Future", future), "written", "version to come");
        Check.equal(Arrays.equals(Arrays.copyOf(test.out(), 8), Arrays.copyOf(future, 8)), true,
                    "its version");
        jvm.allowFaultsInLog();
        String text = "java.lang.RuntimeException: assertion failed in native code; see agent "
                      + "log for detail";
        byte[] whole = fortyTwo("made/Cut").bytes();
        Check.equal(test.rewrite("made/Cut", Arrays.copyOf(whole, whole.length - 3)), text,
                    "cut off");
        Check.equal(test.rewrite("null", whole), text, "no name");
        Check.equal(test.rewrite("made/Cut", whole), "written", "whole");
        jvm.finish();
    }

    @Case(fixture = Rewrites.class, attach = false, jvm = "-Xverify:all")
    static void aClassMayFillItsConstantPoolToTheLastEntry(Target jvm) throws Exception {
        RewriteOnRequestCases test = new RewriteOnRequestCases(jvm);
        byte[] small = fortyTwo("made/Full0").bytes();
        Check.equal(test.rewrite("made/Full0", test.write("in", small)), "written", "a small one");
        int grown = poolCount(test.out()) - poolCount(small);
        Check.isTrue(grown > 0, "the calls need entries");
        for (int over = -1; over <= 1; over++) {
            String name = "made/Full" + (over + 2);
            HandClass full = fortyTwo(name);
            full.fillPool(LAST_POOL_COUNT + over - grown);
            Path in = test.write("in", full.bytes());
            Check.equal(test.rewrite(name, in), over > 0 ? "same" : "written", name);
            if (over <= 0) {
                Check.equal(poolCount(test.out()), LAST_POOL_COUNT + over, name);
            }
            Check.equal(test.ask("run " + name + " " + in), "result 42", name);
            Check.equal(jvm.log().contains("made.Full" + (over + 2) +
                                           ": skipping: resulting constant pool is too big"),
                        over > 0, name);
        }
        jvm.finish();
    }

    @Case(fixture = Rewrites.class, agent = "debug=dumpclasses", attach = false)
    static void rewrittenClassesAreDumped(Target jvm) throws Exception {
        RewriteOnRequestCases test = new RewriteOnRequestCases(jvm);
        // Without the folder nothing is written, and nothing is said.
        Path first = test.write("in", fortyTwo("made/First").bytes());
        Check.equal(test.ask("run made/First " + first), "result 42", "first");
        Path folder = jvm.folder.resolve("C:").resolve("_classes");
        Files.createDirectories(folder);
        Path second = test.write("in", fortyTwo("made/Second").bytes());
        Check.equal(test.ask("run made/Second " + second), "result 42", "second");
        List<Path> dumps;
        try (Stream<Path> files = Files.list(folder)) {
            dumps = files.filter(f
                                 -> f.getFileName().toString().matches(
                                         "made_Second_[0-9]+\\.class"))
                            .toList();
        }
        Check.equal(dumps.size(), 1, "dumps of the class: " + dumps);
        Check.equal(test.rewrite("made/Second", second), "written", "the same once more");
        Check.equal(Arrays.equals(Files.readAllBytes(dumps.get(0)), test.out()), true,
                    "the dump is what the JVM got");
        jvm.finish();
    }
}
