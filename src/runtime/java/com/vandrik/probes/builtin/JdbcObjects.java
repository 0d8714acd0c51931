package com.vandrik.probes.builtin;

import com.vandrik.probes.Table;
import com.vandrik.runtime.TypeNames;

/** What is known of the application's connections, statements and data sources. */
final class JdbcObjects {
    static final String CONNECTION = "java.sql.Connection";
    static final String STATEMENT = "java.sql.Statement";
    static final String PREPARED_STATEMENT = "java.sql.PreparedStatement";
    static final String DATA_SOURCE = "javax.sql.DataSource";
    static final String POOLED_CONNECTION = "javax.sql.PooledConnection";

    private static final IdentityMap<Connection> CONNECTIONS = new IdentityMap<Connection>();
    private static final IdentityMap<Statement> STATEMENTS = new IdentityMap<Statement>();
    /** Addresses of data sources. */
    private static final IdentityMap<String> DATA_SOURCES = new IdentityMap<String>();
    /** What a row has in the place of its master where there is none. */
    private static final int NO_ROW = Table.NO_ROW;

    private JdbcObjects() {
    }

    /** A connection; its fields are guarded by itself. */
    static final class Connection {
        final int myRow;
        boolean myIsAutoCommit;
        private int myTransaction = NO_ROW;
        private boolean myIsClosed;
        /** Those that have open rows, so that they end with the connection. */
        private Statement myFirst;

        Connection(int row, boolean isAutoCommit) {
            myRow = row;
            myIsAutoCommit = isAutoCommit;
        }

        synchronized boolean isClosed() {
            return myIsClosed;
        }

        /** Work is done: a transaction begins unless each statement is one. */
        synchronized void beginTransaction() {
            if (!myIsAutoCommit && !myIsClosed && myTransaction == NO_ROW) {
                myTransaction = DatabaseTables.TRANSACTIONS.open(myRow);
            }
        }

        synchronized void endTransaction() {
            if (myTransaction != NO_ROW) {
                DatabaseTables.TRANSACTIONS.closeRow(myTransaction);
                myTransaction = NO_ROW;
            }
        }

        synchronized void setAutoCommit(boolean isOn) {
            if (isOn) {
                endTransaction();
            }
            myIsAutoCommit = isOn;
        }

        synchronized void add(Statement statement) {
            statement.myNext = myFirst;
            if (myFirst != null) {
                myFirst.myPrevious = statement;
            }
            myFirst = statement;
        }

        synchronized void remove(Statement statement) {
            if (myIsClosed) {
                return; // whoever closes it walks over the list
            }
            if (statement.myPrevious != null) {
                statement.myPrevious.myNext = statement.myNext;
            } else if (myFirst == statement) {
                myFirst = statement.myNext;
            }
            if (statement.myNext != null) {
                statement.myNext.myPrevious = statement.myPrevious;
            }
            statement.myPrevious = null;
            statement.myNext = null;
        }

        void close() {
            Statement each;
            synchronized (this) {
                if (myIsClosed) {
                    return;
                }
                myIsClosed = true;
                endTransaction();
                each = myFirst;
                myFirst = null;
            }
            while (each != null) {
                Statement next = each.myNext;
                each.closeRow();
                each = next;
            }
            DatabaseTables.CONNECTIONS.closeRow(myRow);
        }
    }

    /** A statement; prepared if it has a text of its own. */
    static final class Statement {
        final Connection myConnection;
        final boolean myIsPrepared;
        final int myRow;
        private boolean myIsClosed;
        private StringBuilder myBatch;
        /** In characters; of a long batch only the head is kept. */
        private long myBatchLength;
        /** In the list of the connection, which guards them. */
        private Statement myPrevious;
        private Statement myNext;

        Statement(Connection connection, boolean isPrepared, int row) {
            myConnection = connection;
            myIsPrepared = isPrepared;
            myRow = row;
        }

        synchronized boolean isClosed() {
            return myIsClosed;
        }

        synchronized void addToBatch(String sql) {
            if (sql == null) {
                return;
            }
            String separator = myBatch == null ? "" : ";\n";
            if (myBatch == null) {
                myBatch = new StringBuilder();
            }
            myBatchLength += separator.length() + sql.length();
            if (myBatch.length() <= Texts.MAX_LENGTH) {
                int end = Math.min(sql.length(), Texts.MAX_LENGTH + 1);
                myBatch.append(separator).append(sql, 0, end);
            }
        }

        synchronized String takeBatch() {
            String batch = myBatch == null ? "" : Texts.cut(myBatch.toString(), myBatchLength);
            myBatch = null;
            myBatchLength = 0;
            return batch;
        }

        private void closeRow() {
            synchronized (this) {
                if (myIsClosed) {
                    return;
                }
                myIsClosed = true;
            }
            DatabaseTables.of(myIsPrepared).closeRow(myRow);
        }

        void close() {
            if (myConnection != null) {
                myConnection.remove(this);
            }
            closeRow();
        }
    }

    /** The application got a connection, of which the same object may have been known before. */
    static void opened(Object connection, String database) {
        Connection known = CONNECTIONS.get(connection);
        if (known == null || known.isClosed()) {
            create(connection, database);
        }
    }

    private static Connection create(Object connection, String database) {
        boolean isAutoCommit = JdbcCalls.isAutoCommit(connection);
        String address = database != null ? database : JdbcCalls.getURL(connection);
        Connection created = new Connection(DatabaseTables.CONNECTIONS.open(address), isAutoCommit);
        CONNECTIONS.put(connection, created);
        return created;
    }

    /** One that was opened before the probe was there is taken up when it is first used. */
    static Connection connection(Object connection) {
        Connection known = CONNECTIONS.get(connection);
        return known == null ? create(connection, null) : known;
    }

    /** Null if it is not known. */
    static Connection knownConnection(Object connection) {
        return CONNECTIONS.get(connection);
    }

    /** A statement was made; sql is null if it is not prepared. */
    static void created(Object connection, Object statement, String sql) {
        Statement known = STATEMENTS.get(statement);
        if (statement != null && (known == null || known.isClosed())) {
            create(connection(connection), statement, sql);
        }
    }

    private static Statement create(Connection connection, Object statement, String sql) {
        boolean isPrepared = TypeNames.isInstance(statement, PREPARED_STATEMENT);
        int master = connection == null ? NO_ROW : connection.myRow;
        Statement created =
                new Statement(connection, isPrepared, DatabaseTables.of(isPrepared).open(master));
        if (isPrepared && created.myRow != DatabaseTables.REFUSED_ROW) {
            DatabaseTables.PREPARED_STATEMENTS.mySql.setValue(created.myRow, Redaction.sql(sql));
        }
        // The list stays as short as the table of rows.
        if (connection != null && created.myRow != DatabaseTables.REFUSED_ROW) {
            connection.add(created);
        }
        STATEMENTS.put(statement, created);
        return created;
    }

    /** The same as for connections; which one it came from is not known then. */
    static Statement statement(Object statement) {
        Statement known = STATEMENTS.get(statement);
        return known == null ? create(null, statement, null) : known;
    }

    static Statement knownStatement(Object statement) {
        return STATEMENTS.get(statement);
    }

    static void nameDataSource(Object dataSource, String address) {
        if (dataSource != null && address != null) {
            DATA_SOURCES.put(dataSource, address);
        }
    }

    /** The address of a source of connections; null if it is not known. */
    static String nameOf(Object dataSource) {
        return dataSource == null ? null : DATA_SOURCES.get(dataSource);
    }
}
