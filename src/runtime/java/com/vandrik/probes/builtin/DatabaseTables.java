package com.vandrik.probes.builtin;

import com.vandrik.probes.ForeignKeyColumn;
import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;

/** The tables of {@link Databases}. */
final class DatabaseTables {
    /** What the agent gives instead of a row where a table is full. */
    static final int REFUSED_ROW = Integer.MAX_VALUE;

    static final Connections CONNECTIONS = new Connections();
    static final Children STATEMENTS = new Children("Statements", CONNECTIONS);
    static final PreparedStatements PREPARED_STATEMENTS = new PreparedStatements();
    static final Children TRANSACTIONS = new Children("Transactions", CONNECTIONS);
    static final Queries QUERIES = new Queries("Queries");
    static final PreparedQueries PREPARED_QUERIES = new PreparedQueries("Queries");
    static final Queries BATCHES = new Queries("Batches");
    static final PreparedQueries PREPARED_BATCHES = new PreparedQueries("Batches");

    private DatabaseTables() {
    }

    /** Of statements. */
    static Opening of(boolean isPrepared) {
        return isPrepared ? PREPARED_STATEMENTS : STATEMENTS;
    }

    static final class Connections extends Table {
        final StringColumn myDatabase = new StringColumn("Database");

        Connections() {
            super("Connections", MASK_FOR_GENERIC_LASTING_EVENTS);
        }

        int open(String database) {
            int row = createRow();
            if (row != REFUSED_ROW) {
                myDatabase.setValue(row, Redaction.database(database));
            }
            return row;
        }
    }

    /** A table whose rows belong to those of another one. */
    abstract static class Opening extends Table {
        Opening(String name, long mask) {
            super(name, mask);
        }

        abstract int open(int master);
    }

    static final class Children extends Opening {
        final ForeignKeyColumn myMaster;

        Children(String name, Table master) {
            super(name, MASK_FOR_GENERIC_LASTING_EVENTS);
            myMaster = new ForeignKeyColumn(master);
        }

        @Override
        int open(int master) {
            int row = createRow();
            myMaster.setValue(row, master);
            return row;
        }
    }

    static final class PreparedStatements extends Opening {
        final ForeignKeyColumn myMaster = new ForeignKeyColumn(CONNECTIONS);
        final StringColumn mySql = new StringColumn("SQL");

        PreparedStatements() {
            super("Prepared Statements", MASK_FOR_GENERIC_LASTING_EVENTS);
        }

        @Override
        int open(int master) {
            int row = createRow();
            myMaster.setValue(row, master);
            return row;
        }
    }

    /** Executions of plain statements, or of their batches. */
    static final class Queries extends Table {
        final ForeignKeyColumn myMaster = new ForeignKeyColumn(STATEMENTS);
        final StringColumn mySql = new StringColumn("SQL");
        final StringColumn myOperation = new StringColumn("Operation");

        Queries(String name) {
            super(name, MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS);
        }

        int open(int master, String sql, String operation) {
            int row = createRow();
            if (row != REFUSED_ROW) {
                myMaster.setValue(row, master);
                mySql.setValue(row, Redaction.sql(sql));
                myOperation.setValue(row, operation);
            }
            return row;
        }
    }

    /** Those of prepared ones, whose row has the text. */
    static final class PreparedQueries extends Table {
        final ForeignKeyColumn myMaster = new ForeignKeyColumn(PREPARED_STATEMENTS);
        final StringColumn myOperation = new StringColumn("Operation");

        PreparedQueries(String name) {
            super(name, MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS);
        }

        int open(int master, String operation) {
            int row = createRow();
            myMaster.setValue(row, master);
            myOperation.setValue(row, operation);
            return row;
        }
    }
}
