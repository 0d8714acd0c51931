package bench;

import java.io.BufferedReader;
import java.io.File;
import java.io.IOException;
import java.io.InputStreamReader;
import java.lang.ProcessBuilder.Redirect;
import java.nio.file.Files;
import java.nio.file.Path;

/**
 * What an attach costs a program with many objects, with and without the generation at the start:
 * {@code Generations VDK CLASSES OBJECTS JDK...}. The program itself tells for how long it stood
 * still at most, and by how much its resident memory grew.
 */
public final class Generations {
    private Generations() {
    }

    /** The program: an array of small objects, and a thread that sees every pause. */
    public static final class Program {
        static Object[] kept;

        private Program() {
        }

        private static long residentKB() throws IOException {
            for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
                if (line.startsWith("VmRSS:")) {
                    return Long.parseLong(line.replaceAll("\\D", ""));
                }
            }
            throw new IOException("no VmRSS");
        }

        public static void main(String[] args) throws Exception {
            kept = new Object[Integer.parseInt(args[0])];
            for (int i = 0; i < kept.length; i++) {
                kept[i] = new Object();
            }
            System.gc();
            long before = residentKB();
            System.out.println(ProcessHandle.current().pid());
            long longest = 0;
            for (long last = System.nanoTime(); System.in.available() == 0;) {
                Thread.sleep(1);
                long now = System.nanoTime();
                longest = Math.max(longest, now - last);
                last = now;
            }
            System.out.println(longest / 1000000 + " " + (residentKB() - before) / 1024);
        }
    }

    private static String attach(String vdk, String classes, String objects, String jdk,
                                 String option) throws Exception {
        Process program =
                new ProcessBuilder(jdk + "/bin/java", "-XX:+UseParallelGC", "-Xms3g", "-Xmx8g",
                                   "-cp", classes, Program.class.getName(), objects)
                        .redirectError(Redirect.DISCARD)
                        .start();
        try (BufferedReader out =
                     new BufferedReader(new InputStreamReader(program.getInputStream()))) {
            String pid = out.readLine();
            ProcessBuilder client = new ProcessBuilder(vdk, "attach", pid);
            if (!option.isEmpty()) {
                client.command().add(option);
            }
            Process attach =
                    client.redirectErrorStream(true).redirectOutput(Redirect.DISCARD).start();
            if (attach.waitFor() != 0) {
                throw new IllegalStateException("vdk attach: exit code " + attach.exitValue());
            }
            program.getOutputStream().write('\n');
            program.getOutputStream().flush();
            for (String line = out.readLine(); line != null; line = out.readLine()) {
                if (line.matches("\\d+ -?\\d+")) {
                    return line;
                }
            }
            throw new IllegalStateException("the program ended without its numbers");
        } finally {
            program.destroyForcibly();
            program.waitFor();
        }
    }

    public static void main(String[] args) throws Exception {
        for (int i = 3; i < args.length; i++) {
            for (String option : new String[] {"", "--generations"}) {
                String[] seen = attach(args[0], args[1], args[2], args[i], option).split(" ");
                System.out.printf("attach, %s objects, %s, %s: stood still %s ms, %s MB more%n",
                                  args[2], new File(args[i]).getName(),
                                  option.isEmpty() ? "no generation" : "generation", seen[0],
                                  seen[1]);
            }
        }
    }
}
