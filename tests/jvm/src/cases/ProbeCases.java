package cases;

import fixtures.Probed;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;

/** Probes of users, from the option, the API and the port to what their callbacks are given. */
public final class ProbeCases {
    private static final String PROBE = "fixtures.TellingProbe";

    private static final String TOLD = String.join(
            "\n", "enter Item Item.<init>(java.lang.String) (Ljava/lang/String;)V [abc] 0",
            "return <init> Item null abc 0",
            "enter Item Item.add(java.lang.String, int, long, double) "
                    + "(Ljava/lang/String;IJD)I [x, 3, 4, 0.5] 3",
            "return add Item 3 x 0",
            "enter static Item.sum(long, byte, short, char, boolean, float) (JBSCZF)J "
                    + "[1, 2, 3, A, true, 1.5] 0",
            "return sum static 73 1 0",
            "enter Item Item.choose(int, java.lang.Object[]) "
                    + "(I[Ljava/lang/Object;)Ljava/lang/String; [0, [more, 1]] 0",
            "return choose Item one 0 0",
            "enter Item Item.choose(int, java.lang.Object[]) "
                    + "(I[Ljava/lang/Object;)Ljava/lang/String; [1, []] 0",
            "return choose Item two0 1 0",
            "enter Item Priced.label(java.lang.String) (Ljava/lang/String;)Ljava/lang/String; "
                    + "[y] 0",
            "return label Item [y] y 0", "enter Item Item.fail(int) (I)V [7] 0",
            "throw fail Item code 7 [7]",
            "enter Item Item.choose(int, java.lang.Object[]) "
                    + "(I[Ljava/lang/Object;)Ljava/lang/String; [9, []] 0",
            "return choose Item null 9 0", "");

    private final Target target;
    private int asked;

    private ProbeCases(Target target) {
        this.target = target;
    }

    /** What the program prints for the line. */
    private String ask(String line) throws Exception {
        int before = target.output().length();
        target.ask(line, "done " + ++asked);
        String output = target.output();
        return output.substring(before, output.indexOf("done " + asked + "\n", before));
    }

    private void setProbe(String name, int status, boolean isTaken) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.SET_PROBES).out.writeInt(1);
            client.string(name).out.writeInt(status);
            if (isTaken) {
                client.ok();
            } else {
                Check.contains(client.error(), "class not found", "answer");
            }
        }
    }

    /** Behind an empty place. */
    private void registerByBytecode(byte[] bytes) throws Exception {
        try (AgentClient client = target.client()) {
            client.request(AgentClient.REGISTER_PROBES).out.writeInt(2);
            client.out.writeInt(0);
            client.out.writeInt(bytes.length);
            client.out.write(bytes);
            client.ok();
        }
    }

    private static byte[] classFile(String name) throws Exception {
        try (InputStream in = ProbeCases.class.getResourceAsStream("/" + name.replace('.', '/') +
                                                                   ".class")) {
            return in.readAllBytes();
        }
    }

    @Case(fixture = Probed.class, agent = "builtinprobes=none,probe=" + PROBE)
    static void callbacksAreGivenWhatTheyAskFor(Target target) throws Exception {
        ProbeCases test = new ProbeCases(target);
        Check.equal(test.ask("run"), TOLD, "told");
        Check.equal(test.ask("unregister " + PROBE), "", "unregister");
        Check.equal(test.ask("run"), "", "told when it is gone");
        target.finish();
    }

    @Case(fixture = Probed.class, agent = "builtinprobes=none,disableall")
    static void probesComeAndGoWhileTheProgramRuns(Target target) throws Exception {
        ProbeCases test = new ProbeCases(target);
        Check.equal(test.ask("run"), "", "told ahead of it");
        Check.equal(test.ask("register " + PROBE), "", "register");
        Check.equal(test.ask("run"), TOLD, "told");
        Check.equal(test.ask("probes"), "[" + PROBE + "]\n", "registered");
        Check.equal(test.ask("register " + PROBE), "", "a second time");
        Check.contains(target.log(), "with such name already registered and will be replaced",
                       "log");
        Check.equal(test.ask("run"), TOLD, "told once");
        String failure = test.ask("register fixtures.FaultyProbe no.Such");
        for (String part : new String[] {
                     "Error: probe class no/Such: class not found",
                     "Error: probe class fixtures.FaultyProbe: onEnter callback must be public static",
                     "method onEnter, parameter #1: invalid @Param annotation: index must be 1 or "
                             + "greater",
                     "method onEnter, parameter #2: parameter must be annotated"}) {
            Check.contains(failure, part, "failure");
        }
        test.setProbe(PROBE, 0, true);
        Check.equal(test.ask("run"), "", "told when the client took it away");
        test.setProbe(PROBE, 1, true);
        test.setProbe("no.Such", 1, false);
        Check.equal(test.ask("run"), TOLD, "told when the client registered it");
        target.finish();
    }

    @Case(fixture = Probed.class, agent = "builtinprobes=none")
    static void aProbeComesAndGoesUnderLoad(Target target) throws Exception {
        Check.equal(new ProbeCases(target).ask("change 8"), "seen 8, left 0\n", "calls");
        target.finish();
    }

    /** What the boot loader does not find is left out, and nothing fails for it. */
    @Case(fixture = Probed.class, agent = "builtinprobes=none")
    static void classesOfTheJdkTakeProbesThatTheyFind(Target target) throws Exception {
        ProbeCases test = new ProbeCases(target);
        Check.equal(test.ask("register fixtures.EchoingProbe"), "", "register");
        Check.equal(test.ask("probes"), "[fixtures.EchoingProbe]\n", "registered");
        Check.equal(target.errors(), "", "errors");
        Check.contains(target.log(),
                       "probe fixtures.EchoingProbe is not woven into classes of the boot loader",
                       "log");
        Check.equal(test.ask("unregister fixtures.EchoingProbe"), "", "unregister");
        // The second time the class is there already.
        byte[] bytes = classFile("fixtures.EchoingProbe");
        test.registerByBytecode(bytes);
        test.registerByBytecode(bytes);
        test.ask("probes");
        // Each line once: what the callback itself writes is not told.
        Check.await(() -> target.errors().contains("wrote "), "the callback prints");
        // Then it comes with other code, which has to last.
        String text = new String(bytes, StandardCharsets.ISO_8859_1).replace("wrote ", "spoke ");
        test.registerByBytecode(text.getBytes(StandardCharsets.ISO_8859_1));
        int before = target.errors().length();
        test.ask("probes");
        Check.await(() -> target.errors().indexOf("spoke ", before) >= 0, "the new code runs");
        Check.equal(test.ask("unregister fixtures.EchoingProbe"), "", "unregister");
        for (String line : target.errors().split("\n")) {
            Check.isTrue(line.matches("(wrote|spoke) \\d+"), () -> "errors: " + target.errors());
        }
        target.finish();
    }
}
