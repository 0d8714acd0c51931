package programs;

import jakarta.servlet.ServletException;
import java.io.ByteArrayOutputStream;
import java.io.FileInputStream;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.ArrayList;
import java.util.List;
import javax.naming.InitialContext;
import javax.sql.DataSource;
import org.apache.catalina.Context;
import org.apache.tomcat.util.descriptor.web.ContextResource;

/**
 * What a shop does while it serves requests, counted as it is done: it looks its database up, and
 * uses files, a socket and a child process.
 */
final class Orders {
    private static final String ADDRESS = "jdbc:h2:mem:shop";
    private static final String NAME = "java:comp/env/jdbc/shop";
    private static final String[] TABLES = {"JSP/Servlet Requests",
                                            "Connections",
                                            "Statements",
                                            "Prepared Statements",
                                            "Transactions",
                                            "Queries",
                                            "Batches",
                                            "File Input Streams",
                                            "Failed File Input Streams",
                                            "File Output Streams",
                                            "Reads",
                                            "Writes",
                                            "Socket Connections",
                                            "Stream Reads",
                                            "Stream Writes",
                                            "Processes",
                                            "Input Operations",
                                            "Output Operations"};

    private final EventCounts counts = new EventCounts();
    private final Path folder;
    private final ServerSocket echo = new ServerSocket(0, 50, InetAddress.getLoopbackAddress());
    private final Connection keepsDatabase = DriverManager.getConnection(ADDRESS);
    private final List<Connection> leaked = new ArrayList<>();

    Orders(Path folder) throws Exception {
        this.folder = folder;
        keepsDatabase.createStatement().execute("create table orders (id int, state varchar(9))");
        Thread thread = new Thread(this::answer, "echo");
        thread.setDaemon(true);
        thread.start();
    }

    void addDatabase(Context context) {
        ContextResource resource = new ContextResource();
        resource.setName("jdbc/shop");
        resource.setType("javax.sql.DataSource");
        resource.setProperty("factory", "org.apache.tomcat.jdbc.pool.DataSourceFactory");
        resource.setProperty("driverClassName", "org.h2.Driver");
        resource.setProperty("url", ADDRESS);
        resource.setProperty("initialSize", "1");
        context.getNamingResources().addResource(resource);
    }

    private void answer() {
        while (true) {
            try (Socket socket = echo.accept()) {
                socket.getOutputStream().write(socket.getInputStream().readAllBytes());
            } catch (IOException e) {
                throw new IllegalStateException(e);
            }
        }
    }

    private static Connection connect() throws Exception {
        return ((DataSource) new InitialContext().lookup(NAME)).getConnection();
    }

    void serve(String page, int id) throws ServletException {
        try {
            String in = " in /shop/" + page;
            counts.did("JSP/Servlet Requests /shop/" + page + " id=?");
            switch (page) {
            case "order":
                store(id, in);
                int length = 1000 + id;
                copyFile(folder.resolve("order" + id), new byte[length], in);
                ask(new byte[length], in);
                pipe(new byte[length], in);
                break;
            case "leak":
                leaked.add(connect());
                counts.did("Connections open " + NAME + in);
                break;
            default:
                fail(in);
            }
        } catch (Exception e) {
            throw new ServletException(e);
        }
    }

    private void store(int id, String in) throws Exception {
        String of = " of Connections " + NAME + in;
        try (Connection connection = connect()) {
            counts.did("Connections " + NAME + in);
            connection.setAutoCommit(false);
            String sql = "insert into orders values (?, 'paid')";
            try (PreparedStatement insert = connection.prepareStatement(sql)) {
                insert.setInt(1, id);
                insert.executeUpdate();
                String master = "Prepared Statements insert into orders values (?, ?)" + of;
                counts.did(master);
                counts.did("Queries executeUpdate of " + master);
            }
            connection.commit();
            counts.did("Transactions" + of);
            connection.setAutoCommit(true);
            query(connection, "select * from orders where id = " + id);
            counts.did("Statements" + of);
            counts.did("Queries select * from orders where id = ? executeQuery of Statements" + of);
        }
    }

    private static void query(Connection connection, String sql) throws SQLException {
        try (Statement statement = connection.createStatement()) {
            statement.executeQuery(sql).next();
        }
    }

    private void copyFile(Path file, byte[] bytes, String in) throws IOException {
        try (FileOutputStream out = new FileOutputStream(file.toFile())) {
            out.write(bytes);
        }
        counts.did("File Output Streams " + file + in);
        counts.did("Writes of File Output Streams " + file + in, bytes.length);
        try (FileInputStream stream = new FileInputStream(file.toFile())) {
            counts.did("Reads of File Input Streams " + file + in, stream.readAllBytes().length);
        }
        counts.did("File Input Streams " + file + in);
    }

    private void ask(byte[] bytes, String in) throws IOException {
        try (Socket socket = new Socket(echo.getInetAddress(), echo.getLocalPort())) {
            String connection = "Socket Connections " + socket.getRemoteSocketAddress() + in;
            counts.did(connection);
            socket.getOutputStream().write(bytes);
            socket.shutdownOutput();
            counts.did("Stream Writes of " + connection, bytes.length);
            counts.did("Stream Reads of " + connection,
                       socket.getInputStream().readAllBytes().length);
        }
    }

    private void pipe(byte[] bytes, String in) throws Exception {
        Process process = new ProcessBuilder("sh", "-c", "cat # order").start();
        try (OutputStream out = process.getOutputStream()) {
            out.write(bytes);
        }
        String row = "Processes sh -c \"cat # order\" " + process.waitFor() + in;
        counts.did(row);
        counts.did("Output Operations of " + row, bytes.length);
        try (InputStream from = process.getInputStream()) {
            counts.did("Input Operations of " + row,
                       (int) from.transferTo(new ByteArrayOutputStream()));
        }
    }

    private void fail(String in) throws Exception {
        Path missing = folder.resolve("missing order");
        try {
            new FileInputStream(missing.toFile()).close();
        } catch (IOException expected) {
            counts.did("Failed File Input Streams " + missing + in);
        }
        String of = " of Connections " + NAME + in;
        counts.did("Connections " + NAME + in);
        counts.did("Statements" + of);
        counts.did("Queries select * from no_orders executeQuery of Statements" + of);
        try (Connection connection = connect()) {
            query(connection, "select * from no_orders");
        }
    }

    void compare() throws Exception {
        // What loads classes or logs in a request is left to itself.
        counts.compareThose("^JSP/Servlet Requests /shop/|(order\\d*|jdbc/shop|order\" 0|:" +
                                    echo.getLocalPort() + ") in /shop/",
                            "orders", TABLES);
    }
}
