package com.vandrik.probes.builtin;

import com.vandrik.probes.InstanceOf;
import com.vandrik.probes.MethodName;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Param;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.This;

/** JDBC: connections, statements, transactions, and what is executed. */
public final class Databases {
    private Databases() {
    }

    static void leaveSource(Object source, Object connection, Object call) {
        try {
            if (JdbcCalls.counts(call)) {
                JdbcCalls.got(source, connection, null);
            }
        } catch (Throwable e) {
            Outermost.failed(e);
        } finally {
            JdbcCalls.leave(call);
        }
    }

    /** A data source hands out a connection. */
    @MethodPattern({"*:getConnection()", "*:getConnection(String, String)"})
    @InstanceOf("javax.sql.DataSource")
    public static final class DataSourceConnection {
        private DataSourceConnection() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object source, @ReturnValue Object connection,
                                    @OnEnterResult Object call) {
            leaveSource(source, connection, call);
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** So does a driver's object for pools. */
    @MethodPattern("*:getConnection()")
    @InstanceOf("javax.sql.PooledConnection")
    public static final class PooledConnection {
        private PooledConnection() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object source, @ReturnValue Object connection,
                                    @OnEnterResult Object call) {
            leaveSource(source, connection, call);
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** A driver opens a connection, asked by its manager. */
    @MethodPattern(
            {"java.sql.DriverManager:getConnection(String, java.util.Properties, java.lang.ClassLoader)",
             "java.sql.DriverManager:getConnection(String, java.util.Properties, java.lang.Class)"})
    public static final class ManagerConnection {
        private ManagerConnection() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@Param(1) String url, @ReturnValue Object connection,
                                    @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcCalls.got(null, connection, url);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** A driver opens a connection, asked by the application. */
    @MethodPattern("*:connect(String, java.util.Properties)")
    @InstanceOf("java.sql.Driver")
    public static final class DriverConnection {
        private DriverConnection() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@Param(1) String url, @ReturnValue Object connection,
                                    @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcCalls.got(null, connection, url);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** Pools make their connections for themselves. */
    @MethodPattern({"com.zaxxer.hikari.pool.PoolBase:newConnection()",
                    "*.dbcp.PoolableConnectionFactory:makeObject()",
                    "*.dbcp2.PoolableConnectionFactory:makeObject()",
                    "org.apache.tomcat.jdbc.pool.PooledConnection:connect()"})
    public static final class PoolInternals {
        private PoolInternals() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** A pool asks whether a connection is still there. */
    @MethodPattern("*:isValid(int) boolean")
    @InstanceOf("java.sql.Connection")
    public static final class TestConnection {
        private TestConnection() {
        }

        public static Object onEnter() {
            return PoolInternals.onEnter();
        }

        public static void onReturn(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** A connection makes a plain statement. */
    @MethodPattern("*:createStatement(*)")
    @InstanceOf("java.sql.Connection")
    public static final class CreateStatement {
        private CreateStatement() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object connection, @ReturnValue Object statement,
                                    @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcObjects.created(connection, statement, null);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** A connection prepares a statement. */
    @MethodPattern({"*:prepareStatement(*)", "*:prepareCall(*)"})
    @InstanceOf("java.sql.Connection")
    public static final class PrepareStatement {
        private PrepareStatement() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object connection, @ReturnValue Object statement,
                                    @Param(1) String sql, @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcObjects.created(connection, statement, sql);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** A statement is executed. */
    @MethodPattern(
            {"*:execute(*)", "*:executeQuery(*)", "*:executeUpdate(*)", "*:executeLargeUpdate(*)"})
    @InstanceOf("java.sql.Statement")
    public static final class Execute {
        private Execute() {
        }

        public static Object onEnter(@This Object statement, @Param(1) String sql,
                                     @MethodName String operation) {
            try {
                return JdbcCalls.enterQuery(statement, sql, operation);
            } catch (Throwable e) {
                Outermost.failed(e);
                return Outermost.NESTED;
            }
        }

        public static void onReturn(@OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    OpenRow.close(call);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    OpenRow.close(call);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }
    }

    /** A batch is executed. */
    @MethodPattern({"*:executeBatch()", "*:executeLargeBatch()"})
    @InstanceOf("java.sql.Statement")
    public static final class ExecuteBatch {
        private ExecuteBatch() {
        }

        public static Object onEnter(@This Object statement, @MethodName String operation) {
            try {
                return JdbcCalls.enterBatch(statement, operation);
            } catch (Throwable e) {
                Outermost.failed(e);
                return Outermost.NESTED;
            }
        }

        public static void onReturn(@OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    OpenRow.close(call);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    OpenRow.close(call);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }
    }

    /** A text is added to a batch. */
    @MethodPattern("*:addBatch(String)")
    @InstanceOf("java.sql.Statement")
    public static final class AddBatch {
        private AddBatch() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object statement, @Param(1) String sql,
                                    @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcObjects.statement(statement).addToBatch(sql);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** A batch is given up. */
    @MethodPattern("*:clearBatch()")
    @InstanceOf("java.sql.Statement")
    public static final class ClearBatch {
        private ClearBatch() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object statement, @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcObjects.statement(statement).takeBatch();
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** A transaction ends. */
    @MethodPattern({"*:commit() void", "*:rollback() void"})
    @InstanceOf("java.sql.Connection")
    public static final class EndTransaction {
        private EndTransaction() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object connection, @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcObjects.connection(connection).endTransaction();
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** Each statement is, or is no more, a transaction of its own. */
    @MethodPattern("*:setAutoCommit(boolean) void")
    @InstanceOf("java.sql.Connection")
    public static final class SetAutoCommit {
        private SetAutoCommit() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object connection, @Param(1) boolean isOn,
                                    @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcObjects.connection(connection).setAutoCommit(isOn);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@OnEnterResult Object call) {
            JdbcCalls.leave(call);
        }
    }

    /** A connection is closed, or goes back to its pool. */
    @MethodPattern({"*:close() void", "*:abort(java.util.concurrent.Executor) void"})
    @InstanceOf("java.sql.Connection")
    public static final class CloseConnection {
        private CloseConnection() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object object, @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcCalls.closed(object);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@This Object object, @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcCalls.closed(object);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }
    }

    /** A statement is closed. */
    @MethodPattern("*:close() void")
    @InstanceOf("java.sql.Statement")
    public static final class CloseStatement {
        private CloseStatement() {
        }

        public static Object onEnter() {
            return JdbcCalls.enter();
        }

        public static void onReturn(@This Object object, @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcCalls.closed(object);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }

        public static void onUncaughtException(@This Object object, @OnEnterResult Object call) {
            try {
                if (JdbcCalls.counts(call)) {
                    JdbcCalls.closed(object);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            } finally {
                JdbcCalls.leave(call);
            }
        }
    }

    /** A data source has a name. */
    @MethodPattern("javax.naming.InitialContext:lookup(String)")
    public static final class Lookup {
        private Lookup() {
        }

        public static void onReturn(@ReturnValue Object found, @Param(1) String name) {
            try {
                if (JdbcCalls.isSource(found)) {
                    JdbcObjects.nameDataSource(found, name);
                }
            } catch (Throwable e) {
                Outermost.failed(e);
            }
        }
    }

    /** A pool learns the address of its database. */
    @MethodPattern({"org.apache.commons.dbcp.BasicDataSource:setUrl(String)",
                    "org.apache.commons.dbcp2.BasicDataSource:setUrl(String)",
                    "org.apache.tomcat.dbcp.dbcp2.BasicDataSource:setUrl(String)"})
    public static final class SetUrl {
        private SetUrl() {
        }

        public static void onReturn(@This Object source, @Param(1) String url) {
            try {
                JdbcObjects.nameDataSource(source, url);
            } catch (Throwable e) {
                Outermost.failed(e);
            }
        }
    }
}
