package programs;

import fixtures.Programs;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.sql.Statement;

/** An H2 database in memory under JDBC; every round makes one anew, and inserts 300 rows. */
public final class DatabaseRounds implements Programs.Program {
    /** Called by the database, by reflection. */
    public static int leaf(int i) {
        return i * 2;
    }

    private static void select(Connection connection, String query, StringBuilder text)
            throws SQLException {
        try (Statement statement = connection.createStatement();
             ResultSet rows = statement.executeQuery(query)) {
            int columns = rows.getMetaData().getColumnCount();
            while (rows.next()) {
                for (int i = 1; i <= columns; i++) {
                    text.append(rows.getString(i)).append(i < columns ? "|" : "\n");
                }
            }
        }
    }

    private static void fill(Connection connection) throws SQLException {
        try (PreparedStatement insert =
                     connection.prepareStatement("insert into item values (?, ?, ?, ?)")) {
            for (int i = 0; i < 300; i++) {
                insert.setInt(1, i);
                insert.setString(2, "name " + i % 17);
                insert.setBigDecimal(3, java.math.BigDecimal.valueOf(i, 2));
                insert.setBytes(4, new byte[] {(byte) i, (byte) (i >> 1)});
                insert.executeUpdate();
            }
        }
    }

    @Override
    public String round() throws Exception {
        StringBuilder text = new StringBuilder();
        try (Connection connection = DriverManager.getConnection("jdbc:h2:mem:");
             Statement statement = connection.createStatement()) {
            statement.execute("create table item (id int primary key, name varchar(40), "
                              + "price decimal(10, 2), data varbinary(10))");
            statement.execute("create index by_name on item (name)");
            statement.execute("create alias leaf for \"programs.DatabaseRounds.leaf\"");
            connection.setAutoCommit(false);
            fill(connection);
            connection.commit();
            select(connection,
                   "select name, count(*), sum(price) from item group by name "
                           + "having count(*) > 17 order by 1",
                   text);
            select(connection,
                   "select a.id, b.id, upper(b.name) from item a join item b on a.id = b.id * 2 "
                           + "where a.name like '%1%' order by 1",
                   text);
            select(connection, "select sum(leaf(id)) from item", text);
            statement.execute("delete from item where id % 2 = 0");
            connection.rollback();
            select(connection, "select count(*) from item", text);
            try {
                statement.execute("insert into item values (1, 'again', 0, null)");
            } catch (SQLException e) {
                text.append(e.getSQLState()).append('\n');
            }
            select(connection,
                   "with recursive t(n) as (select 1 union all select n + 1 from t "
                           + "where n < 50) select sum(n) from t",
                   text);
        }
        return text.toString();
    }
}
