package bench;

import java.io.DataInputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.FutureTask;

/**
 * Requests a second of {@link ShopServer} with the built-in probes, as ratios to the plain server:
 * {@code ShopLoad AGENT SERVER_CLASSES ROUNDS SECONDS JDK...}. All servers live at once, are warmed
 * until they have nothing left to compile, and are asked in turn for so many seconds.
 */
public final class ShopLoad {
    private static final int CLIENTS = 2;
    private static final String[] PAGES = {"page", "report"};
    private static final int MOST_WARM_UP_ROUNDS = 25;
    private static final double QUIET_MS = 100; // of compiling in a second

    private ShopLoad() {
    }

    /** One server, and what it answered: requests a second, and a second of its CPU time. */
    private static final class Server {
        final Process process;
        final int port;
        final Map<String, List<double[]>> rounds = new LinkedHashMap<>();

        Server(String jdk, List<String> options, String classes) throws Exception {
            process =
                    Jvm.start(jdk, options, "-Xmx512m", "-Djava.util.logging.config.file=/dev/null",
                              "-cp", classes, "bench.ShopServer");
            StringBuilder line = new StringBuilder();
            for (int c = process.getInputStream().read(); c != '\n';
                 c = process.getInputStream().read()) {
                if (c < 0) {
                    throw new IOException("the server ended: " + options);
                }
                line.append((char) c);
            }
            port = Integer.parseInt(line.toString().trim());
        }

        private double cpuSeconds() {
            return process.info().totalCpuDuration().get().toNanos() / 1e9;
        }

        double[] round(String page, double seconds) throws Exception {
            double cpu = cpuSeconds();
            long start = System.nanoTime();
            long end = start + (long) (seconds * 1e9);
            List<FutureTask<Integer>> clients = new ArrayList<>();
            for (int i = 0; i < CLIENTS; i++) {
                clients.add(new FutureTask<>(() -> ask(page, end)));
                new Thread(clients.get(i)).start();
            }
            double requests = 0;
            for (FutureTask<Integer> client : clients) {
                requests += client.get();
            }
            return new double[] {requests / ((System.nanoTime() - start) / 1e9),
                                 requests / (cpuSeconds() - cpu)};
        }

        /** Asks one request after the other on one connection; gives their number. */
        private int ask(String page, long end) throws IOException {
            int requests = 0;
            try (Connection connection = new Connection(port)) {
                while (System.nanoTime() < end) {
                    connection.ask(page + "?customer=" + requests);
                    requests++;
                }
            }
            return requests;
        }

        /** Milliseconds that the server has compiled so far. */
        double compiled() throws IOException {
            try (Connection connection = new Connection(port)) {
                return Double.parseDouble(connection.ask("compiled"));
            }
        }
    }

    private static final class Connection implements AutoCloseable {
        private static final String LENGTH = "content-length: ";
        private final Socket socket;
        private final OutputStream out;
        private final DataInputStream in;
        private final byte[] answer = new byte[65536];

        Connection(int port) throws IOException {
            socket = new Socket("127.0.0.1", port);
            socket.setTcpNoDelay(true);
            out = socket.getOutputStream();
            in = new DataInputStream(socket.getInputStream());
        }

        /** The body of the answer. */
        String ask(String path) throws IOException {
            out.write(("GET /" + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n")
                              .getBytes(StandardCharsets.ISO_8859_1));
            int length = 0;
            while (true) {
                int count = in.read(answer, length, answer.length - length);
                if (count < 0) {
                    throw new IOException("the server closed the connection");
                }
                length += count;
                String text = new String(answer, 0, length, StandardCharsets.ISO_8859_1);
                int body = text.indexOf("\r\n\r\n") + 4;
                if (body >= 4) {
                    int whole = lengthOfBody(text.substring(0, body).toLowerCase());
                    in.readFully(answer, length, body + whole - length);
                    return new String(answer, body, whole, StandardCharsets.ISO_8859_1);
                }
            }
        }

        private static int lengthOfBody(String headers) throws IOException {
            int at = headers.indexOf(LENGTH) + LENGTH.length();
            if (!headers.startsWith("http/1.1 200") || at < LENGTH.length()) {
                throw new IOException("the server answered: " + headers);
            }
            return Integer.parseInt(headers.substring(at, headers.indexOf('\r', at)));
        }

        @Override
        public void close() throws IOException {
            socket.close();
        }
    }

    public static void main(String[] args) throws Exception {
        String folder = Files.createTempDirectory("vdk-bench-").toString();
        Map<String, List<String>> kinds = new LinkedHashMap<>();
        kinds.put("plain", List.of());
        kinds.put("agent, no probes", List.of(Jvm.agent(args[0], folder, "builtinprobes=none")));
        // As after some time under the default limit: every table is full.
        kinds.put("probes idle", List.of(Jvm.agent(args[0], folder, "probetablelengthlimit=100")));
        kinds.put("probes recording",
                  List.of(Jvm.agent(args[0], folder, "probetablelengthlimit=100000000")));
        int rounds = Integer.parseInt(args[2]);
        double seconds = Double.parseDouble(args[3]);
        for (String jdk : Arrays.asList(args).subList(4, args.length)) {
            Map<String, Server> servers = new LinkedHashMap<>();
            try {
                for (Map.Entry<String, List<String>> kind : kinds.entrySet()) {
                    servers.put(kind.getKey(), new Server(jdk, kind.getValue(), args[1]));
                }
                System.out.println("Tomcat and a database, " +
                                   java.nio.file.Path.of(jdk).getFileName() + " (" + rounds +
                                   " rounds in turn)");
                for (Map.Entry<String, Server> server : servers.entrySet()) {
                    warmUp(server.getKey(), server.getValue(), seconds);
                }
                for (int round = 0; round < rounds; round++) {
                    measure(servers, seconds);
                }
            } finally {
                for (Server server : servers.values()) {
                    server.process.destroyForcibly().waitFor();
                }
            }
            print(servers);
        }
    }

    private static void warmUp(String name, Server server, double seconds) throws Exception {
        for (int round = 0; round < MOST_WARM_UP_ROUNDS; round++) {
            double before = server.compiled();
            for (String page : PAGES) {
                server.round(page, seconds);
            }
            if (server.compiled() - before < QUIET_MS * seconds * PAGES.length) {
                return;
            }
        }
        System.out.println("  " + name + " still compiles: its numbers are too low");
    }

    private static void measure(Map<String, Server> servers, double seconds) throws Exception {
        for (String page : PAGES) {
            for (Server server : servers.values()) {
                server.rounds.computeIfAbsent(page, k -> new ArrayList<>())
                        .add(server.round(page, seconds));
            }
        }
    }

    /** Medians of the ratios of a round to the plain server's of the same turn. */
    private static void print(Map<String, Server> servers) {
        for (String page : PAGES) {
            List<double[]> plain = servers.get("plain").rounds.get(page);
            double usOfPlain = 1e6 / Jvm.medians(plain)[1];
            servers.forEach((name, server) -> {
                List<double[]> rounds = server.rounds.get(page);
                List<double[]> ratios = new ArrayList<>();
                for (int i = 0; i < plain.size(); i++) {
                    ratios.add(new double[] {rounds.get(i)[0] / plain.get(i)[0],
                                             rounds.get(i)[1] / plain.get(i)[1]});
                }
                double[] median = Jvm.medians(rounds);
                double[] ratio = Jvm.medians(ratios);
                System.out.printf(
                        "  %-6s %-17s %6.0f a second, ratio %.3f; of CPU time %4.0f us each "
                                + "(%+.0f), ratio %.3f%n",
                        page, name, median[0], ratio[0], 1e6 / median[1],
                        1e6 / median[1] - usOfPlain, ratio[1]);
            });
        }
    }
}
