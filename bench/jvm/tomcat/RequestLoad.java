import jakarta.servlet.ServletException;
import jakarta.servlet.http.HttpServlet;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;
import java.io.FileOutputStream;
import java.io.IOException;
import java.net.HttpURLConnection;
import java.net.URL;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.PreparedStatement;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.concurrent.atomic.AtomicLong;
import java.util.logging.LogManager;
import org.apache.catalina.Context;
import org.apache.catalina.startup.Tomcat;
import org.apache.tomcat.jdbc.pool.DataSource;

/**
 * Tomcat and H2 in one JVM under two threads of clients, for so many seconds or requests: {@code
 * RequestLoad FOLDER SECONDS REQUESTS}. Prints what it did by the tables of the built-in probes,
 * and goes on living until its input ends.
 */
public final class RequestLoad {
    private static final AtomicLong requests = new AtomicLong();
    private static final DataSource pool = new DataSource();

    private RequestLoad() {
    }

    /** One connection, transaction, statement of either kind, and file a request. */
    static final class Order extends HttpServlet {
        private static final long serialVersionUID = 1;
        private final transient Path folder;

        Order(Path where) {
            folder = where;
        }

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response)
                throws ServletException, IOException {
            int id = Integer.parseInt(request.getParameter("id"));
            try (Connection connection = pool.getConnection()) {
                connection.setAutoCommit(false);
                try (PreparedStatement update = connection.prepareStatement(
                             "update orders set state = 'paid' where id = ?")) {
                    update.setInt(1, id % 100);
                    update.executeUpdate();
                }
                connection.commit();
                connection.setAutoCommit(true);
                try (Statement select = connection.createStatement()) {
                    select.executeQuery("select * from orders where id = " + id).next();
                }
            } catch (SQLException e) {
                throw new ServletException(e);
            }
            Path file = folder.resolve("order" + id % 100 + Thread.currentThread().getName());
            try (FileOutputStream out = new FileOutputStream(file.toFile())) {
                out.write(new byte[4096]);
            }
            requests.incrementAndGet();
        }
    }

    private static void ask(String address, long end, long most) {
        byte[] buffer = new byte[1000];
        try {
            for (long i = 0; System.nanoTime() < end && i < most; i++) {
                HttpURLConnection get =
                        (HttpURLConnection) new URL(address + "?id=" + i).openConnection();
                while (get.getInputStream().read(buffer) >= 0) {
                    continue;
                }
            }
        } catch (IOException e) {
            throw new IllegalStateException(e);
        }
    }

    private static long residentKb() throws IOException {
        for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
            if (line.startsWith("VmRSS:")) {
                return Long.parseLong(line.replaceAll("\\D", ""));
            }
        }
        return 0;
    }

    private static Tomcat serve(Path folder) throws Exception {
        pool.setUrl("jdbc:h2:mem:shop");
        pool.setDriverClassName("org.h2.Driver");
        Connection kept = pool.getConnection();
        try (Statement statement = kept.createStatement()) {
            statement.execute("create table orders (id int primary key, state varchar(9))");
            statement.execute("insert into orders select x, 'new' from system_range(0, 99)");
        }
        Tomcat tomcat = new Tomcat();
        tomcat.setBaseDir(folder.toString());
        tomcat.setPort(0);
        tomcat.getConnector().setProperty("address", "127.0.0.1");
        Context context = tomcat.addContext("", folder.toString());
        Tomcat.addServlet(context, "order", new Order(folder));
        context.addServletMappingDecoded("/order", "order");
        tomcat.start();
        return tomcat;
    }

    public static void main(String[] args) throws Exception {
        LogManager.getLogManager().reset();
        Path folder = Path.of(args[0]).toAbsolutePath();
        Tomcat tomcat = serve(folder);
        String address = "http://127.0.0.1:" + tomcat.getConnector().getLocalPort() + "/order";
        long start = System.nanoTime();
        long end = start + Long.parseLong(args[1]) * 1_000_000_000;
        long most = Long.parseLong(args[2]) / 2;
        Thread[] clients = {new Thread(() -> ask(address, end, most)),
                            new Thread(() -> ask(address, end, most))};
        for (Thread client : clients) {
            client.start();
        }
        StringBuilder resident = new StringBuilder("resident MB, every 10 s:");
        for (Thread client : clients) {
            for (; client.isAlive(); client.join(10_000)) {
                resident.append(' ').append(residentKb() >> 10);
            }
        }
        double seconds = (System.nanoTime() - start) / 1e9;
        System.out.println(resident.append(' ').append(residentKb() >> 10));
        long n = requests.get();
        System.out.printf("requests %d in %.1f s, %.0f a second%n", n, seconds, n / seconds);
        // Those in front of the requests: the first connection with its statement.
        String[] tables = {"JSP/Servlet Requests", "Prepared Statements", "Transactions",
                           "File Output Streams"};
        for (String table : tables) {
            System.out.println("did\t" + table + "\t" + n);
        }
        System.out.println("did\tConnections\t" + (n + 1));
        System.out.println("did\tStatements\t" + (n + 1));
        System.out.println("did\tQueries\t" + (2 * n + 2));
        System.out.println("done");
        System.in.read();
        System.exit(0);
    }
}
