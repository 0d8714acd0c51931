package bench;

import com.sun.management.OperatingSystemMXBean;
import java.io.BufferedReader;
import java.io.File;
import java.io.IOException;
import java.io.InputStreamReader;
import java.lang.ProcessBuilder.Redirect;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/**
 * What a snapshot of the heap costs, beside the JVM's own dump and beside the floor, which is the
 * JVM's functions alone: {@code Captures VDK AGENT BARE CLASSES MILLIONS JDK...}. The program tells
 * how long it stood still at most, its CPU time, and by how much its resident memory grew.
 */
public final class Captures {
    private Captures() {
    }

    /** The program: objects that refer to each other, small arrays, boxed numbers. */
    public static final class Program {
        private static Object[] kept;

        private Program() {
        }

        private static final class Item {
            final Item next;
            final Object data;
            final int number;
            final long stamp;

            Item(Item next, Object data, int number) {
                this.next = next;
                this.data = data;
                this.number = number;
                stamp = number;
            }
        }

        private static void fill(int objects) {
            kept = new Object[(int) (objects * 0.4)];
            Item last = null;
            for (int i = 0; i < kept.length; i++) {
                Object data =
                        i % 2 == 0 ? new byte[16] : new Object[] {last, 1000 + i, kept[i / 2]};
                last = new Item(i % 16 == 0 ? null : last, data, i);
                kept[i] = last;
            }
        }

        private static long[] usage() throws IOException {
            long resident = 0;
            for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
                if (line.startsWith("VmRSS:")) {
                    resident = Long.parseLong(line.replaceAll("\\D", "")) / 1024;
                }
            }
            long cpu = ((OperatingSystemMXBean) ManagementFactory.getOperatingSystemMXBean())
                               .getProcessCpuTime();
            return new long[] {resident, cpu / 1_000_000};
        }

        public static void main(String[] args) throws Exception {
            fill(Integer.parseInt(args[0]));
            System.gc();
            System.gc();
            System.out.println("pid " + ProcessHandle.current().pid());
            long[] before = usage();
            long longest = 0;
            long last = System.nanoTime();
            while (true) {
                Thread.sleep(1);
                long now = System.nanoTime();
                longest = Math.max(longest, now - last);
                last = now;
                if (System.in.available() > 0) {
                    if (System.in.read() != '\n') {
                        return;
                    }
                    long[] after = usage();
                    System.out.println("used " + longest / 1_000_000 + " " +
                                       (after[1] - before[1]) + " " + (after[0] - before[0]));
                    longest = 0;
                    last = System.nanoTime();
                    before = usage();
                }
            }
        }
    }

    private static void run(List<String> command) throws Exception {
        Process process = new ProcessBuilder(command).redirectErrorStream(true).start();
        String said = new String(process.getInputStream().readAllBytes());
        if (process.waitFor() != 0) {
            throw new IllegalStateException(command + ": " + said);
        }
    }

    private static String line(BufferedReader out, String start) throws IOException {
        for (String line = out.readLine(); line != null; line = out.readLine()) {
            if (line.startsWith(start)) {
                return line.substring(start.length());
            }
        }
        throw new IOException("the program ended");
    }

    private static Process start(String jdk, String agent, String classes, int millions)
            throws IOException {
        String heap = Math.max(1, millions / 8 + 1) + "g";
        List<String> command = new ArrayList<>(
                List.of(jdk + "/bin/java", "-XX:+UseG1GC", "-Xms" + heap, "-Xmx" + heap));
        if (agent != null) {
            command.add("-agentpath:" + agent);
        }
        command.addAll(List.of("-cp", classes, Program.class.getName(), "" + millions * 1_000_000));
        return new ProcessBuilder(command).redirectError(Redirect.DISCARD).start();
    }

    private static void measure(Process process, BufferedReader out, String what, int millions,
                                List<String> command) throws Exception {
        run(command);
        process.getOutputStream().write('\n');
        process.getOutputStream().flush();
        String[] used = line(out, "used ").split(" ");
        System.out.printf("  %-28s stood still %5.2f s, CPU %5.2f s, memory %4d MB%n", what,
                          Long.parseLong(used[0]) / 1000.0, Long.parseLong(used[1]) / 1000.0,
                          Long.parseLong(used[2]));
    }

    private static void measureOne(String[] args, String jdk, int millions) throws Exception {
        System.out.println(millions + " million objects, " + new File(jdk).getName());
        Path folder = Files.createTempDirectory("vdk-captures-");
        String file = folder.resolve("file").toString();
        String agent =
                args[1] +
                "=quiet,onlylocal,noexceptionevents,builtinprobes=none,telemetryperiod=0,tmpdir=" +
                folder;
        Process process = start(jdk, agent, args[3], millions);
        BufferedReader out = new BufferedReader(new InputStreamReader(process.getInputStream()));
        String pid = line(out, "pid ");
        for (String what : new String[] {"first capture", "a further one"}) {
            measure(process, out, what, millions,
                    List.of(args[0], "snapshot", pid, "--heap", "--timeout", "600s", "--out",
                            file));
        }
        System.out.printf("  %-28s %d MB%n", "file", Files.size(Path.of(file)) >> 20);
        process.destroyForcibly().waitFor();
        Files.delete(Path.of(file));
        process = start(jdk, null, args[3], millions);
        out = new BufferedReader(new InputStreamReader(process.getInputStream()));
        pid = line(out, "pid ");
        String jcmd = jdk + "/bin/jcmd";
        measure(process, out, "jcmd GC.heap_dump", millions,
                List.of(jcmd, pid, "GC.heap_dump", file));
        Files.delete(Path.of(file));
        for (String floor : new String[] {"tag all, walk reachable", "tag reachable, walk"}) {
            measure(process, out, "floor: " + floor, millions,
                    List.of(jcmd, pid, "JVMTI.agent_load", args[2],
                            "\"" + floor.substring(0, 5) + "," + file + "\""));
            System.out.print("    " + Files.readString(Path.of(file)));
        }
        process.destroyForcibly().waitFor();
        Files.delete(Path.of(file));
    }

    public static void main(String[] args) throws Exception {
        for (String millions : args[4].split(",")) {
            for (int i = 5; i < args.length; i++) {
                measureOne(args, args[i], Integer.parseInt(millions));
            }
        }
    }
}
