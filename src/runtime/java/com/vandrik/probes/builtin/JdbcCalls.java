package com.vandrik.probes.builtin;

import com.vandrik.runtime.TypeNames;
import java.lang.reflect.Method;

/**
 * The calls of JDBC. Of wrapped objects only the outermost call of a thread counts, be it a pool's
 * or a driver's; what it calls itself is its own affair.
 */
final class JdbcCalls {
    private static final Outermost CALLS = new Outermost();
    /** In the place of a row for an outermost call that has none. */
    private static final Object COUNTED = "counted";

    private static volatile Method ourGetAutoCommit;
    private static volatile Method ourGetMetaData;
    private static volatile Method ourGetURL;

    private JdbcCalls() {
    }

    /** A call begins that makes no row yet. Null while the JVM starts. */
    static Object enter() {
        try {
            return !Outermost.isLive() ? null : CALLS.enter() ? COUNTED : Outermost.NESTED;
        } catch (Throwable e) {
            Outermost.failed(e);
            return Outermost.NESTED;
        }
    }

    /** Whether a call makes a row; leave follows in any case. */
    static boolean counts(Object call) {
        return call != null && call != Outermost.NESTED;
    }

    /** A call ends. What is asked of its objects on the way out is no call of the application. */
    static void leave(Object call) {
        if (call != null) {
            CALLS.leave();
        }
    }

    static boolean isSource(Object source) {
        return TypeNames.isInstance(source, JdbcObjects.DATA_SOURCE) ||
                TypeNames.isInstance(source, JdbcObjects.POOLED_CONNECTION);
    }

    /** source: what was asked, null for a driver or its manager. */
    static void got(Object source, Object connection, String address) {
        if (!TypeNames.isInstance(connection, JdbcObjects.CONNECTION)) {
            return;
        }
        String known = address != null ? address : JdbcObjects.nameOf(source);
        String name = known != null ? known : getURL(connection);
        if (known == null && source != null) {
            JdbcObjects.nameDataSource(source, name);
        }
        JdbcObjects.opened(connection, name == null ? "" : name);
    }

    static Object enterQuery(Object statement, String sql, String operation) {
        Object call = enter();
        if (call != COUNTED) {
            return call;
        }
        JdbcObjects.Statement known = begin(statement);
        if (known.myIsPrepared) {
            DatabaseTables.PreparedQueries table = DatabaseTables.PREPARED_QUERIES;
            return new OpenRow(table, table.open(known.myRow, operation));
        }
        DatabaseTables.Queries table = DatabaseTables.QUERIES;
        return new OpenRow(table, table.open(known.myRow, sql, operation));
    }

    static Object enterBatch(Object statement, String operation) {
        Object call = enter();
        if (call != COUNTED) {
            return call;
        }
        JdbcObjects.Statement known = begin(statement);
        String sql = known.takeBatch();
        if (known.myIsPrepared) {
            DatabaseTables.PreparedQueries table = DatabaseTables.PREPARED_BATCHES;
            return new OpenRow(table, table.open(known.myRow, operation));
        }
        DatabaseTables.Queries table = DatabaseTables.BATCHES;
        return new OpenRow(table, table.open(known.myRow, sql, operation));
    }

    private static JdbcObjects.Statement begin(Object statement) {
        JdbcObjects.Statement known = JdbcObjects.statement(statement);
        if (known.myConnection != null) {
            known.myConnection.beginTransaction();
        }
        return known;
    }

    static void closed(Object object) {
        JdbcObjects.Connection connection = JdbcObjects.knownConnection(object);
        if (connection != null) {
            connection.close();
        }
        JdbcObjects.Statement statement =
                connection == null ? JdbcObjects.knownStatement(object) : null;
        if (statement != null) {
            statement.close();
        }
    }

    static boolean isAutoCommit(Object connection) {
        Object answer = ask(connection, JdbcObjects.CONNECTION, "getAutoCommit", ourGetAutoCommit);
        return !Boolean.FALSE.equals(answer);
    }

    static String getURL(Object connection) {
        Object data = ask(connection, JdbcObjects.CONNECTION, "getMetaData", ourGetMetaData);
        Object url =
                data == null ? null : ask(data, "java.sql.DatabaseMetaData", "getURL", ourGetURL);
        return url instanceof String ? (String) url : null;
    }

    /** What the application's object answers, null if it can't. The type is the JDK's. */
    private static Object ask(Object object, String type, String name, Method known) {
        try {
            Method method = known;
            if (method == null) {
                Class<?> declaring = TypeNames.find(object, type);
                if (declaring == null) {
                    return null;
                }
                method = declaring.getMethod(name);
                remember(name, method);
            }
            return method.invoke(object);
        } catch (Exception e) {
            return null;
        } catch (LinkageError e) {
            return null;
        }
    }

    private static void remember(String name, Method method) {
        if (name.equals("getAutoCommit")) {
            ourGetAutoCommit = method;
        } else if (name.equals("getMetaData")) {
            ourGetMetaData = method;
        } else {
            ourGetURL = method;
        }
    }
}
