package jvmtest;

import java.io.BufferedReader;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * A JVM under test: started with the agent or attached to, its output kept, its log checked at the
 * end.
 */
public final class Target implements AutoCloseable {
    private static final Path LOGS = Path.of(System.getProperty("user.home"), ".vdk", "log");

    /** Behind the agent's own choices, and below what systems give to clients and to port 0. */
    private static final int FIRST_PORT = 12000;

    private static final int PORTS = 20000;

    private static final AtomicInteger nextPort =
            new AtomicInteger((int) (ProcessHandle.current().pid() * 61 % PORTS));

    public final Jdk jdk;
    public final boolean attached;

    /** The row of JVM options of this run. */
    public final String variant;

    public final String library;
    public final Path folder;
    public final int port;

    private Process process;
    private final StringBuffer output = new StringBuffer();
    private final StringBuffer errors = new StringBuffer();
    private Thread outputReader;
    private Thread errorReader;
    private boolean logMayHoldFaults;
    private final Case test;

    Target(Case test, Jdk jdk, boolean attached, String variant, String library)
            throws IOException {
        this.test = test;
        this.jdk = jdk;
        this.attached = attached;
        this.variant = variant;
        this.library = library;
        this.folder = Files.createTempDirectory("vdk-jvm-test-");
        this.port = freePort();
    }

    /** Another one of that kind; whoever asks for it starts its process. */
    public static Target like(Target other) throws IOException {
        return new Target(other.test, other.jdk, false, other.variant, other.library);
    }

    /** Starts the fixture once more, in a folder of its own, with these words behind "java". */
    public static Target run(Target like, List<String> jvm) throws IOException {
        return run(like, List.of(), jvm);
    }

    /** The same, started by the words before "java". */
    public static Target run(Target like, List<String> before, List<String> jvm)
            throws IOException {
        Target target = like(like);
        List<String> command = new ArrayList<>(before);
        command.add(like.jdk.java());
        command.addAll(jvm);
        if (!jvm.contains("-cp")) {
            command.addAll(List.of("-cp", System.getProperty("java.class.path")));
        }
        command.add(like.test.fixture().getName());
        target.startProcess(command);
        return target;
    }

    /** The option that loads the agent. */
    public String agentPath(String options) {
        return "-agentpath:" + library + "=" + options;
    }

    /** A port that nobody listens on, and that no other case of this run is given. */
    public static int freePort() {
        while (true) {
            int port = FIRST_PORT + Math.floorMod(nextPort.getAndIncrement(), PORTS);
            try (ServerSocket socket = new ServerSocket(port)) {
                return socket.getLocalPort();
            } catch (IOException e) {
                continue; // taken
            }
        }
    }

    public String agentOptions(String more) {
        String options = "port=" + port + ",onlylocal,quiet,tmpdir=" + folder + ",dir=" + folder;
        return more.isEmpty() ? options : options + "," + more;
    }

    private List<String> command(boolean withAgent) throws IOException {
        List<String> command = new ArrayList<>();
        command.add(jdk.java());
        command.addAll(Arrays.asList(test.jvmFirst()));
        if (withAgent && !attached) {
            command.add(agentPath(agentOptions(test.agent())));
        }
        if (withAgent && attached && jdk.release >= 21) {
            command.add("-XX:+EnableDynamicAgentLoading");
        }
        command.addAll(Arrays.asList(test.jvm()));
        if (!variant.isEmpty()) {
            command.addAll(Arrays.asList(variant.split(" ")));
        }
        command.add("-cp");
        StringBuilder path = new StringBuilder(System.getProperty("java.class.path"));
        for (String jar : test.jars()) {
            int before = path.length();
            try (DirectoryStream<Path> files =
                         Files.newDirectoryStream(Path.of("/usr/share/java"), jar + ".jar")) {
                files.forEach(file -> path.append(File.pathSeparator).append(file));
            }
            Check.isTrue(path.length() > before,
                         jar + ".jar is missing: ./dev test installs its package");
        }
        command.add(path.toString());
        command.add(test.fixture().getName());
        command.addAll(Arrays.asList(test.args()));
        return command;
    }

    void start() throws Exception {
        startProcess(command(!test.noAgent()));
        awaitOutput("ready");
        if (attached && !test.noAgent()) {
            attach(agentOptions(test.agent()));
        }
        if (!test.noAgent() && !test.agent().contains("delay=-1")) {
            awaitPort();
        }
    }

    /** The same program in the given folder without the agent; its errors are dropped. */
    public Process startPlain(Path in) throws IOException {
        return new ProcessBuilder(command(false))
                .directory(in.toFile())
                .redirectError(ProcessBuilder.Redirect.DISCARD)
                .start();
    }

    /** What the same program prints without the agent, fed the same lines; it must end well. */
    public String plainOutput(String lines) throws Exception {
        Process plain = startPlain(folder);
        try {
            plain.getOutputStream().write(lines.getBytes(StandardCharsets.UTF_8));
            plain.getOutputStream().close();
            String output =
                    new String(plain.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
            Check.isTrue(plain.waitFor(Check.LIMIT_SECONDS, TimeUnit.SECONDS),
                         "the plain program ends");
            Check.equal(plain.exitValue(), 0, "exit code of the plain program");
            return output;
        } finally {
            plain.destroyForcibly();
        }
    }

    /**
     * The command, run so that no log is there which an ended process of the same id left behind.
     */
    private static List<String> withFreshLog(List<String> command) {
        List<String> words = new ArrayList<>(
                List.of("sh", "-c", "rm -f \"$0/$$.log\"; exec \"$@\"", LOGS.toString()));
        words.addAll(command);
        return words;
    }

    public void startProcess(List<String> command) throws IOException {
        ProcessBuilder builder = new ProcessBuilder(withFreshLog(command));
        builder.directory(folder.toFile());
        process = builder.start();
        outputReader = copy(process.getInputStream(), output);
        errorReader = copy(process.getErrorStream(), errors);
    }

    /** Loads the agent into the running JVM; fails with the JVM's words when it refuses. */
    public void attach(String options) throws Exception {
        com.sun.tools.attach.VirtualMachine machine =
                com.sun.tools.attach.VirtualMachine.attach(id());
        try {
            machine.loadAgentPath(library, options);
        } finally {
            machine.detach();
        }
    }

    private static Thread copy(InputStream in, StringBuffer to) {
        Thread thread = new Thread(() -> {
            try (BufferedReader reader =
                         new BufferedReader(new InputStreamReader(in, StandardCharsets.UTF_8))) {
                for (int c = reader.read(); c >= 0; c = reader.read()) {
                    to.append((char) c);
                }
            } catch (IOException e) {
                to.append("[stream closed: ").append(e.getMessage()).append(']');
            }
        });
        thread.setDaemon(true);
        thread.start();
        return thread;
    }

    public long pid() {
        return process.pid();
    }

    /** The same as a word of a command. */
    public String id() {
        return Long.toString(process.pid());
    }

    public Process process() {
        return process;
    }

    public String output() {
        return output.toString();
    }

    public String errors() {
        return errors.toString();
    }

    public AgentClient client() throws IOException {
        return new AgentClient(port);
    }

    /** Sends one line to the fixture. */
    public void send(String line) throws IOException {
        OutputStream in = process.getOutputStream();
        in.write((line + "\n").getBytes(StandardCharsets.UTF_8));
        in.flush();
    }

    /** Sends one line and waits for the answer, a line as well. */
    public void ask(String line, String answer) throws Exception {
        send(line);
        awaitOutput(answer + "\n");
    }

    public void awaitOutput(String text) throws Exception {
        Check.await(5, () -> {
            boolean complete = !outputReader.isAlive(); // asked first: then nothing can follow
            boolean there = output.toString().contains(text);
            Check.isTrue(there || !complete, () -> missing(text));
            return there;
        }, () -> missing(text));
    }

    private String missing(String text) {
        return "no \"" + text + "\" from the program; " + state();
    }

    /** Waits until the agent listens. */
    public void awaitPort() throws Exception {
        Check.await(20, () -> {
            try (Socket socket = new Socket(InetAddress.getLoopbackAddress(), port)) {
                return true;
            } catch (IOException e) {
                Check.isTrue(process.isAlive(), () -> "the agent does not listen; " + state());
                return false;
            }
        }, () -> "the agent listens; " + state());
    }

    public String state() {
        return (process.isAlive() ? "running" : "exit code " + process.exitValue()) +
                "\noutput: " + output + "\nerrors: " + errors + "\nlog: " + log();
    }

    /**
     * CPU time so far of all threads whose name begins so, by the system's own count, in
     * nanoseconds.
     */
    public long cpuTimeOfThreads(String prefix) throws IOException {
        long sum = 0;
        File[] tasks = new File("/proc/" + pid() + "/task").listFiles();
        for (File task : tasks) {
            try {
                if (Files.readString(task.toPath().resolve("comm")).startsWith(prefix)) {
                    sum += Long.parseLong(
                            Files.readString(task.toPath().resolve("schedstat")).split(" ")[0]);
                }
            } catch (IOException e) {
                Check.isTrue(!task.exists(), "reading " + task + ": " + e);
            }
        }
        return sum;
    }

    public Path logFile() {
        return LOGS.resolve(process.pid() + ".log");
    }

    public String log() {
        try {
            return Files.readString(logFile());
        } catch (IOException e) {
            return "";
        }
    }

    /**
     * The case provokes internal faults: the harness does not fail because the log tells of them.
     */
    public void allowFaultsInLog() {
        logMayHoldFaults = true;
    }

    boolean isRunning() {
        return process != null && process.isAlive();
    }

    /** Waits for the end of the process and gives its exit code. */
    public int awaitExit() throws Exception {
        if (!process.waitFor(Check.LIMIT_SECONDS, TimeUnit.SECONDS)) {
            throw new AssertionError("the program does not end; " + state());
        }
        for (Thread reader : new Thread[] {outputReader, errorReader}) {
            reader.join(TimeUnit.SECONDS.toMillis(Check.LIMIT_SECONDS));
            Check.isTrue(!reader.isAlive(), "somebody holds the streams of the ended program");
        }
        return process.exitValue();
    }

    /** Tells the fixture to end; it must do so with exit code 0 and say goodbye. */
    public void finish() throws Exception {
        send("stop");
        Check.equal(awaitExit(), 0, "exit code; " + state());
        Check.isTrue(output.toString().endsWith("bye\n"), "last line of the program; " + state());
    }

    void checkLog() {
        String log = log();
        if (!logMayHoldFaults) {
            for (String fault :
                 new String[] {"exception caught", "assertion failed", "assertJNI failed"}) {
                Check.isTrue(!log.contains(fault), "the log tells of a fault: " + log);
            }
        }
    }

    @Override
    public void close() throws IOException {
        if (process != null) {
            // Until it is gone it may write more files.
            waitFor(process.destroyForcibly());
            Files.deleteIfExists(logFile());
        }
        File[] files = folder.toFile().listFiles();
        if (files != null) {
            for (File file : files) {
                deleteTree(file);
            }
        }
        Files.deleteIfExists(folder);
    }

    private static void waitFor(Process ending) {
        try {
            ending.waitFor();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private static void deleteTree(File file) {
        File[] inner = Files.isSymbolicLink(file.toPath()) ? null : file.listFiles();
        if (inner != null) {
            for (File each : inner) {
                deleteTree(each);
            }
        }
        file.delete();
    }
}
