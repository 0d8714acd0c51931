package bench;

import jakarta.servlet.http.HttpServlet;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;
import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import org.apache.catalina.Context;
import org.apache.catalina.startup.Tomcat;
import org.apache.tomcat.dbcp.dbcp2.BasicDataSource;

/**
 * Tomcat with two pages, made from statements and a transaction of a database in memory behind a
 * pool: "page" finds some rows by their keys, "report" adds up all of them too. "compiled" tells
 * how many milliseconds the JVM has compiled. Prints its port, and ends with its standard input.
 */
public final class ShopServer {
    private static final int CUSTOMERS = 200;
    private static final int ORDERS = 20;

    private ShopServer() {
    }

    private static final class Page extends HttpServlet {
        private static final long serialVersionUID = 1;
        private final transient BasicDataSource pool;

        Page(BasicDataSource pool) {
            this.pool = pool;
        }

        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response)
                throws IOException {
            if (request.getServletPath().equals("/compiled")) {
                response.getWriter().print(
                        ManagementFactory.getCompilationMXBean().getTotalCompilationTime());
                return;
            }
            int customer = Integer.parseInt(request.getParameter("customer")) % CUSTOMERS;
            StringBuilder page = new StringBuilder("<html><body>");
            try (Connection connection = pool.getConnection()) {
                connection.setAutoCommit(false);
                customer(connection, customer, page);
                orders(connection, customer, page);
                if (request.getServletPath().equals("/report")) {
                    report(connection, page);
                }
                visit(connection, customer);
                connection.commit();
            } catch (SQLException e) {
                throw new IOException(e);
            }
            response.setContentType("text/html;charset=UTF-8");
            response.getWriter().append(page).append("</body></html>");
        }

        private static void customer(Connection connection, int customer, StringBuilder page)
                throws SQLException {
            try (PreparedStatement select = connection.prepareStatement(
                         "select name, city from customer where id = ?")) {
                select.setInt(1, customer);
                try (ResultSet rows = select.executeQuery()) {
                    rows.next();
                    page.append("<h1>").append(rows.getString(1)).append(", ");
                    page.append(rows.getString(2)).append("</h1><table>");
                }
            }
        }

        private static void orders(Connection connection, int customer, StringBuilder page)
                throws SQLException {
            try (PreparedStatement select = connection.prepareStatement(
                         "select o.id, i.name, o.pieces, o.pieces * i.price from ordered o "
                         + "join item i on i.id = o.item where o.customer = ? order by o.id")) {
                select.setInt(1, customer);
                try (ResultSet rows = select.executeQuery()) {
                    while (rows.next()) {
                        page.append(String.format(
                                "<tr><td>%d</td><td>%s</td><td>%d</td><td>%s</td></tr>",
                                rows.getInt(1), rows.getString(2), rows.getInt(3),
                                rows.getBigDecimal(4)));
                    }
                }
            }
        }

        private static void report(Connection connection, StringBuilder page) throws SQLException {
            try (PreparedStatement select = connection.prepareStatement(
                         "select i.name, sum(o.pieces), sum(o.pieces * i.price) total "
                         + "from ordered o join item i on i.id = o.item group by i.name "
                         + "order by total desc limit 10");
                 ResultSet rows = select.executeQuery()) {
                while (rows.next()) {
                    page.append("<p>").append(rows.getString(1)).append(": ");
                    page.append(rows.getInt(2)).append(", ").append(rows.getBigDecimal(3));
                }
            }
        }

        private static void visit(Connection connection, int customer) throws SQLException {
            try (PreparedStatement update = connection.prepareStatement(
                         "update customer set visits = visits + 1 where id = ?")) {
                update.setInt(1, customer);
                update.executeUpdate();
            }
        }
    }

    private static BasicDataSource database() throws SQLException {
        BasicDataSource pool = new BasicDataSource();
        pool.setDriverClassName("org.h2.Driver");
        pool.setUrl("jdbc:h2:mem:shop;DB_CLOSE_DELAY=-1");
        pool.setMaxTotal(8);
        try (Connection connection = pool.getConnection();
             java.sql.Statement statement = connection.createStatement()) {
            statement.execute("create table customer (id int primary key, name varchar(40), "
                              + "city varchar(40), visits int)");
            statement.execute("create table item (id int primary key, name varchar(40), "
                              + "price decimal(10, 2))");
            statement.execute("create table ordered (id int primary key, customer int, item int, "
                              + "pieces int)");
            statement.execute("create index by_customer on ordered (customer)");
            statement.execute(
                    "insert into customer select x - 1, 'customer ' || x, 'city ' || x, 0 "
                    + "from system_range(1, " + CUSTOMERS + ")");
            statement.execute("insert into item select x - 1, 'item ' || x, x / 100.0 "
                              + "from system_range(1, 500)");
            statement.execute("insert into ordered select x, mod(x, " + CUSTOMERS +
                              "), mod(x, 500), mod(x, 7) from system_range(1, " +
                              CUSTOMERS * ORDERS + ")");
        }
        return pool;
    }

    public static void main(String[] args) throws Exception {
        Path folder = Files.createTempDirectory("vdk-bench-");
        Tomcat tomcat = new Tomcat();
        tomcat.setBaseDir(folder.toString());
        tomcat.setPort(0);
        tomcat.getConnector().setProperty("address", "127.0.0.1");
        tomcat.getConnector().setProperty("maxKeepAliveRequests", "-1");
        Context context = tomcat.addContext("", folder.toString());
        Tomcat.addServlet(context, "page", new Page(database()));
        for (String path : new String[] {"/page", "/report", "/compiled"}) {
            context.addServletMappingDecoded(path, "page");
        }
        tomcat.start();
        System.out.println(tomcat.getConnector().getLocalPort());
        while (System.in.read() >= 0) {
            continue;
        }
        System.exit(0);
    }
}
