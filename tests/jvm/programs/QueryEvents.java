package programs;

import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import org.apache.tomcat.dbcp.dbcp2.BasicDataSource;
import org.apache.tomcat.jdbc.pool.DataSource;
import org.h2.jdbcx.JdbcConnectionPool;

/** Uses H2 with and without pools, which wrap what the driver gives them. */
final class QueryEvents {
    private final EventCounts counts = new EventCounts();
    private final List<Statement> leaked = new ArrayList<>();

    QueryEvents() throws Exception {
    }

    private void rounds(String database, Callable<Connection> source) throws Exception {
        // Nobody closes it, so that the database in memory stays.
        leaked.add(source.call().createStatement());
        counts.did("Connections open " + database);
        counts.did("Statements open of Connections open " + database);
        for (int i = 0; i < 3; i++) {
            round(database, source.call(), i);
        }
    }

    private void round(String database, Connection connection, int i) throws Exception {
        String of = " of Connections " + database;
        counts.did("Connections " + database);
        Statement statement = connection.createStatement();
        counts.did("Statements" + of);
        if (i == 0) {
            statement.executeUpdate("create table if not exists item (id int, name varchar(9))");
            counts.did("Queries create table if not exists item (id int, name varchar(?)) "
                       + "executeUpdate of Statements" + of);
        }
        connection.setAutoCommit(false);
        prepared(connection, of);
        connection.commit();
        counts.did("Transactions" + of);
        statement.addBatch("insert into item values (" + i + ", 'it''s')");
        statement.addBatch("delete from item where id = 77");
        statement.executeBatch();
        counts.did("Batches insert into item values (?, ?);\ndelete from item where id = ? "
                   + "executeBatch of Statements" + of);
        connection.rollback();
        counts.did("Transactions" + of);
        connection.setAutoCommit(true);
        try {
            statement.execute("select secret from nowhere");
            throw new IllegalStateException("there is such a table");
        } catch (SQLException expected) {
            counts.did("Queries select secret from nowhere execute of Statements" + of);
        }
        // Closes the statement too.
        connection.close();
    }

    private void prepared(Connection connection, String of) throws SQLException {
        String sql = "insert into item values (?, 'x')";
        String master = "Prepared Statements insert into item values (?, ?)" + of;
        try (PreparedStatement insert = connection.prepareStatement(sql)) {
            counts.did(master);
            for (int i = 0; i < 5; i++) {
                insert.setInt(1, i);
                insert.executeUpdate();
                counts.did("Queries executeUpdate of " + master);
                insert.addBatch();
            }
            insert.executeBatch();
            counts.did("Batches executeBatch of " + master);
        }
    }

    void run() throws Exception {
        String address = "jdbc:h2:mem:direct;USER=sa;PASSWORD=secret";
        rounds("jdbc:h2:mem:direct;USER=?;PASSWORD=?", () -> DriverManager.getConnection(address));
        JdbcConnectionPool pool = JdbcConnectionPool.create("jdbc:h2:mem:pool", "", "");
        rounds("jdbc:h2:mem:pool", pool::getConnection);
        DataSource proxies = new DataSource();
        proxies.setUrl("jdbc:h2:mem:proxies");
        proxies.setDriverClassName("org.h2.Driver");
        proxies.setValidationQuery("select 78");
        proxies.setTestOnBorrow(true);
        rounds("jdbc:h2:mem:proxies", proxies::getConnection);
        BasicDataSource wrappers = new BasicDataSource();
        wrappers.setUrl("jdbc:h2:mem:wrappers");
        wrappers.setValidationQuery("select 78");
        wrappers.setPoolPreparedStatements(true);
        rounds("jdbc:h2:mem:wrappers", wrappers::getConnection);
        counts.compare("queries", "Connections", "Statements", "Prepared Statements",
                       "Transactions", "Queries", "Batches");
        for (Statement statement : leaked) {
            statement.getConnection().close();
        }
    }
}
