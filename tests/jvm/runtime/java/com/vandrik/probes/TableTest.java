package com.vandrik.probes;

import com.vandrik.runtime.FakeNatives;
import java.util.List;
import jvmtest.Check;

/** Tables of probes up to the description that the database makes them from. */
public final class TableTest {
    private TableTest() {
    }

    private static class Plain extends Table {
        final StringColumn myName = new StringColumn("Name");

        Plain(long mask) {
            super("Plain", mask);
        }
    }

    private static final class AllKinds extends Table {
        int myNoColumn;
        final IntColumn myInt = new IntColumn("Int");
        final LongColumn myLong = new LongColumn("Long");
        final ClassNameColumn myClass = new ClassNameColumn("Class");
        final ForeignKeyColumn myMaster = new ForeignKeyColumn(new Plain(160));
        private final Column myText = new StringColumn("Text");

        AllKinds() {
            super("All Kinds", MASK_FOR_GENERIC_LASTING_EVENTS);
        }
    }

    private static final class SameName extends Table {
        final IntColumn myFirst = new IntColumn("x");
        final LongColumn mySecond = new LongColumn("x");

        SameName() {
            super("Same Name", 160);
        }
    }

    private static final class NullColumn extends Table {
        final IntColumn myColumn = null;

        NullColumn() {
            super("Null Column", 160);
        }
    }

    private static final class StaticColumn extends Table {
        static final IntColumn COLUMN = new IntColumn("x");

        StaticColumn() {
            super("Static Column", 160);
        }
    }

    private static final class Borrowed extends Table {
        final StringColumn myColumn;

        Borrowed(StringColumn column) {
            super("Borrowed", 160);
            myColumn = column;
        }
    }

    private static final class TwoKeys extends Table {
        final ForeignKeyColumn myFirst = new ForeignKeyColumn(new Plain(160));
        final ForeignKeyColumn mySecond = new ForeignKeyColumn(new Plain(160));

        TwoKeys() {
            super("Two Keys", 160);
        }
    }

    private static String describe(Table table) {
        List<String> tables = FakeNatives.TABLES;
        table.createRow();
        return tables.get(tables.size() - 1);
    }

    static void testMaskMakesThePredefinedColumns() {
        Check.equal(describe(new Plain(Table.MASK_FOR_POINT_EVENTS)),
                    "Plain\n4\nuptime_ns\n1\nthread\n0\nframe\n0\nName\n2\n", "point events");
        Check.equal(describe(new Plain(Table.MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS)),
                    "Plain\n6\nuptime_ns\n1\nuptime_ns.end\n1\nspent_cpu_ns\n1\nthread\n0\n"
                            + "frame\n0\nName\n2\n",
                    "events of one call");
        Check.equal(describe(new AllKinds()),
                    "All Kinds\n12\nuptime_ns\n1\nuptime_ns.end\n1\nspent_cpu_ns\n1\nthread\n0\n"
                            + "thread.end\n0\nframe\n0\nframe.end\n0\nInt\n0\nLong\n1\nClass\n4\n"
                            + "Plain\n3\nText\n2\n",
                    "generic lasting events");
    }

    static void testTableComesWithItsFirstRowAndOnce() {
        Plain table = new Plain(160);
        int before = FakeNatives.TABLES.size();
        Check.equal(table.getIndex(), 0, "index ahead of the first row");
        table.createRow();
        table.createRow();
        Check.equal(FakeNatives.TABLES.size(), before + 1, "tables made");
        Check.equal(table.getIndex(), before + 32, "index");
        table.myName.setValue(0, "value");
    }

    static void testMisuseFailsWithItsWords() {
        Plain attached = new Plain(160);
        attached.createRow();
        Object[][] cases = {
                {new SameName(), "column with this name already exists: x"},
                {new NullColumn(), "field must not be null: myColumn"},
                {new StaticColumn(), "column field must not be static: COLUMN"},
                {new TwoKeys(),
                 "table can have only one column of class com.vandrik.probes.ForeignKeyColumn"},
                {new Borrowed(attached.myName), "Cannot add column instance to several tables"},
        };
        for (Object[] row : cases) {
            try {
                ((Table) row[0]).createRow();
                throw new AssertionError("accepted, expected: " + row[1]);
            } catch (RuntimeException e) {
                Check.equal(e.getMessage(), row[1], "message");
            }
        }
    }

    static void testMasksThatContradictThemselvesAreRefused() {
        Object[][] cases = {
                {8L | 1,
                 "If you specify RECORD_THREAD_CPU_TIME_ON_ROW_CREATION, you must also specify"
                         + " RECORD_THREAD_ON_ROW_CREATION"},
                {8L | 32,
                 "If you specify RECORD_THREAD_CPU_TIME, you must specify LASTING_EVENTS too"},
                {64L,
                 "If you specify RECORD_THREAD_ON_ROW_CLOSE, you must specify LASTING_EVENTS too"},
                {256L,
                 "If you specify RECORD_STACKTRACE_ON_ROW_CLOSE, you must specify LASTING_EVENTS too"},
        };
        for (Object[] row : cases) {
            try {
                new Plain((Long) row[0]);
                throw new AssertionError("accepted, expected: " + row[1]);
            } catch (IllegalArgumentException e) {
                Check.equal(e.getMessage(), row[1], "message");
            }
        }
    }

    static void testAColumnWithoutATableFails() {
        try {
            new IntColumn("Lost").setValue(0, 1);
            throw new AssertionError("accepted");
        } catch (RuntimeException e) {
            Check.contains(e.getMessage(),
                           "Column Lost is not attached to a table;"
                                   +
                                   " ensure that (a) column is assigned to a field of Table class",
                           "message");
        }
    }
}
