package cases;

import fixtures.Idle;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayList;
import java.util.List;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;
import jvmtest.Tool;

/**
 * Several users of one machine. Their ids are of no entry in the user database, as those of
 * containers are. Needs root, who may become them.
 */
public final class AccessCases {
    private static final String STATUS = "\\0\\0\\0\\0\\7\\133\\315\\25\\0\\1\\206\\240";

    private AccessCases() {
    }

    private static boolean mayBecomeOthers() {
        return "root".equals(System.getProperty("user.name"));
    }

    /** No other test has these. */
    private static int firstUser(Target target) {
        return 1_000_000 + (int) target.pid() * 4;
    }

    /** The agent and the program where any user may read them. */
    private static Path publish(Target target) throws IOException {
        open(target.folder, "rwxr-xr-x");
        Path classes = Files.createDirectories(target.folder.resolve("classes/fixtures"));
        Path from = Path.of(System.getProperty("java.class.path"), "fixtures", "Idle.class");
        open(Files.copy(from, classes.resolve("Idle.class")), "rw-r--r--");
        Path library = target.folder.resolve("agent.so");
        open(Files.copy(Path.of(target.library), library), "rw-r--r--");
        return library;
    }

    private static void open(Path path, String mode) throws IOException {
        Files.setPosixFilePermissions(path, PosixFilePermissions.fromString(mode));
    }

    private static List<String> asUser(int user) {
        return new ArrayList<>(
                List.of("setpriv", "--reuid=" + user, "--regid=" + user, "--clear-groups"));
    }

    private static Target start(Target like, int user, String home, String options)
            throws Exception {
        Target target = Target.like(like);
        open(target.folder, "rwxrwxrwx");
        List<String> command = asUser(user);
        command.addAll(home == null ? List.of("env", "-u", "HOME")
                                    : List.of("env", "HOME=" + home));
        command.addAll(List.of(like.jdk.java(),
                               "-agentpath:" + like.folder + "/agent.so=port=" + target.port + "," +
                                       options,
                               "-cp", like.folder + "/classes", "fixtures.Idle"));
        target.startProcess(command);
        return target;
    }

    private static Path privateFolder(int user) {
        return Path.of("/tmp/vdk-" + user);
    }

    private static String logIn(Path folder, Target target) throws IOException {
        return Files.readString(folder.resolve(target.pid() + ".log"));
    }

    private static void remove(Path folder) throws Exception {
        new ProcessBuilder("rm", "-rf", folder.toString()).start().waitFor();
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void everyUserOfTheMachineMayStart(Target target) throws Exception {
        if (!mayBecomeOthers()) {
            target.finish();
            return;
        }
        int user = firstUser(target);
        publish(target);
        Path shared = Files.createDirectory(target.folder.resolve("shared"));
        new ProcessBuilder("chmod", "1777", shared.toString()).start().waitFor();
        String options = "onlylocal,tmpdir=" + shared;
        try (Target first = start(target, user, null, options)) {
            first.awaitOutput("ready");
            first.finish();
            Path log = privateFolder(user).resolve("log");
            Check.equal(first.errors(),
                        "[" + Tool.PRODUCT + "] Loaded. Log file: " + log + "/" + first.pid() +
                                ".log\n",
                        "standard error without a home");
            Check.equal(PosixFilePermissions.toString(
                                Files.getPosixFilePermissions(log.resolve(first.pid() + ".log"))),
                        "rw-------", "mode of the log");
            Check.contains(logIn(log, first), "open to all users of this machine", "log");
        } finally {
            remove(privateFolder(user));
        }
        // The archive is the other user's now, and a trigger file lies in the home.
        Path home = Files.createDirectories(target.folder.resolve("home/.vdk/config"));
        Files.writeString(home.resolve(".triggers"), "TimerListener delay=1s\n  X\n");
        home = target.folder.resolve("home");
        new ProcessBuilder("chown", "-R", Integer.toString(user + 1), home.toString())
                .start()
                .waitFor();
        try (Target second = start(target, user + 1, home.toString(), "quiet," + options)) {
            second.awaitOutput("ready");
            second.finish();
            Check.equal(second.errors(), "", "standard error of the second user");
            String log = logIn(home.resolve(".vdk/log"), second);
            Check.contains(log, "Jar file is not used", "log of the second user");
            Check.contains(log,
                           "The file .triggers of the home directory is left out: line 2: ", "log");
        }
        checkUnwritableHome(target, user + 2, "quiet,onexit=snapshot," + options);
    }

    private static void checkUnwritableHome(Target target, int user, String options)
            throws Exception {
        try (Target started = start(target, user, "/nonexistent", options)) {
            started.awaitOutput("ready");
            started.finish();
            Check.contains(started.errors(), "No snapshot at the end of the JVM: ", "errors");
            Check.equal(started.errors().split("\n").length, 1, "lines of " + started.errors());
            Check.contains(logIn(privateFolder(user).resolve("log"), started), "vmDeath: OK",
                           "log");
        } finally {
            remove(privateFolder(user));
        }
    }

    /** What a client of this user gets for the question for the status. */
    private static String askAs(int user, int port) throws Exception {
        List<String> command = asUser(user);
        command.addAll(List.of("bash", "-c",
                               "exec 3<>/dev/tcp/127.0.0.1/" + port + "; printf '" + STATUS +
                                       "' >&3; cat <&3"));
        Process client = new ProcessBuilder(command).start();
        String answer =
                new String(client.getInputStream().readAllBytes(), StandardCharsets.ISO_8859_1);
        Check.equal(client.waitFor(), 0, "exit code of the client");
        return answer;
    }

    @Case(fixture = Idle.class, noAgent = true, attach = false)
    static void onlyItsUserAndRootAreServed(Target target) throws Exception {
        if (!mayBecomeOthers()) {
            target.finish();
            return;
        }
        int user = firstUser(target);
        publish(target);
        try (Target started = start(target, user, null, "quiet,onlylocal,onlyuser")) {
            started.awaitOutput("ready");
            started.awaitPort();
            Check.contains(askAs(user + 1, started.port),
                           "The agent serves only the user that runs the application", "stranger");
            Check.equal(askAs(user, started.port).length(), 20, "answer for its own user");
            try (AgentClient root = started.client()) {
                root.request(AgentClient.GET_STATUS).ok();
            }
            started.finish();
            Check.contains(logIn(privateFolder(user).resolve("log"), started),
                           "Profiler agent is listening on port " + started.port + "\n", "log");
        } finally {
            remove(privateFolder(user));
        }
    }
}
