package com.vandrik.probes;

import com.vandrik.runtime.Callback;
import java.lang.reflect.Field;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.List;

/**
 * Base class of the tables that a probe records into. A subclass holds its columns in fields; the
 * mask tells which columns the agent adds and fills by itself. The table comes into being with its
 * first row, so that a probe that never fires leaves nothing behind.
 */
public abstract class Table {
    /** A row has a duration: it is opened and closed, and a column "uptime_ns.end" tells when. */
    public static final long LASTING_EVENTS = 1;

    /**
     * A column "spent_cpu_ns": CPU time of the thread in nanoseconds while the row was open, -1 if
     * another thread closed it. Wants {@link #LASTING_EVENTS} and
     * {@link #RECORD_THREAD_ON_ROW_CREATION}.
     */
    public static final long RECORD_THREAD_CPU_TIME = 8;

    /** A column "thread": the one that made the row. */
    public static final long RECORD_THREAD_ON_ROW_CREATION = 32;

    /** A column "thread.end": the one that closed the row. Wants {@link #LASTING_EVENTS}. */
    public static final long RECORD_THREAD_ON_ROW_CLOSE = 64;

    /** A column "frame": the stack when the row was made. */
    public static final long RECORD_STACKTRACE_ON_ROW_CREATION = 128;

    /** A column "frame.end": the stack when the row was closed. Wants {@link #LASTING_EVENTS}. */
    public static final long RECORD_STACKTRACE_ON_ROW_CLOSE = 256;

    /** Events of a moment: thread and stack. */
    public static final long MASK_FOR_POINT_EVENTS =
            RECORD_THREAD_ON_ROW_CREATION | RECORD_STACKTRACE_ON_ROW_CREATION;

    /** Lasting events that begin and end within one method call. */
    public static final long MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS =
            MASK_FOR_POINT_EVENTS | LASTING_EVENTS | RECORD_THREAD_CPU_TIME;

    /** Lasting events that may end on another thread. */
    public static final long MASK_FOR_GENERIC_LASTING_EVENTS =
            MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS | RECORD_THREAD_ON_ROW_CLOSE |
            RECORD_STACKTRACE_ON_ROW_CLOSE;

    /** For probes that must store a row where none exists. */
    public static final int NO_ROW = -1;

    /** What the agent gives where it makes no row. Its natives would do nothing with it. */
    static final int REFUSED_ROW = Integer.MAX_VALUE;

    private static final int MAX_COLUMNS = 128;
    private static final int NO_THRESHOLD = -1;

    private final long myMask;
    private final String myName;

    /** The number in the database; 0 until the table exists there. */
    private volatile int myIndex;

    private volatile int myMinimumRecordedLastingEventWallTimeMs;
    private volatile int myFrequentSamplingThresholdMs = NO_THRESHOLD;

    /**
     * A table that the agent makes with its first row. Each has a column "uptime_ns", when the row
     * was made.
     *
     * @param name its name, one line of text
     * @param mask bits of this class: what the agent fills in by itself
     * @throws RuntimeException if the name is null, empty or of several lines
     * @throws IllegalArgumentException if a bit wants another one that is not there
     */
    protected Table(String name, long mask) {
        if (name == null) {
            throw new RuntimeException("table name must not be null");
        }
        if (name.isEmpty()) {
            throw new RuntimeException("table name must not be an empty string");
        }
        if (name.indexOf('\n') >= 0) {
            throw new RuntimeException("table name must be one line of text");
        }
        checkMask(mask);
        myName = name;
        myMask = mask;
    }

    private static void checkMask(long mask) {
        if (has(mask, RECORD_THREAD_CPU_TIME) && !has(mask, RECORD_THREAD_ON_ROW_CREATION)) {
            throw new IllegalArgumentException(
                    "If you specify"
                    + " RECORD_THREAD_CPU_TIME_ON_ROW_CREATION, you must also specify"
                    + " RECORD_THREAD_ON_ROW_CREATION");
        }
        if (has(mask, LASTING_EVENTS)) {
            return;
        }
        checkNotSet(mask, RECORD_THREAD_CPU_TIME, "RECORD_THREAD_CPU_TIME");
        checkNotSet(mask, RECORD_THREAD_ON_ROW_CLOSE, "RECORD_THREAD_ON_ROW_CLOSE");
        checkNotSet(mask, RECORD_STACKTRACE_ON_ROW_CLOSE, "RECORD_STACKTRACE_ON_ROW_CLOSE");
    }

    private static void checkNotSet(long mask, long bit, String name) {
        if (has(mask, bit)) {
            throw new IllegalArgumentException("If you specify " + name +
                                               ", you must specify LASTING_EVENTS too");
        }
    }

    private static boolean has(long mask, long bit) {
        return (mask & bit) != 0;
    }

    /**
     * Makes a row, and the table with the first one.
     *
     * @return the new row, which all operations on rows accept, also if the agent did not make one
     * @throws RuntimeException if the fields of the subclass are no columns that a table can have,
     *     or there are 96 tables
     */
    public int createRow() {
        ensureCreated();
        return Callback.createUserTableRow(myIndex, myFrequentSamplingThresholdMs,
                                           myMinimumRecordedLastingEventWallTimeMs);
    }

    /**
     * Ends the event of a row. A row that was closed before stays as it is.
     *
     * @param row as {@link #createRow} gave it
     * @return false if there is no such row, or it doesn't stay, since the event was too short
     */
    public boolean closeRow(int row) {
        ensureCreated();
        return row != REFUSED_ROW &&
                Callback.closeUserTableRow(myIndex, row, myMinimumRecordedLastingEventWallTimeMs);
    }

    /**
     * Tells whether an event has ended.
     *
     * @param row as {@link #createRow} gave it
     * @return true after {@link #closeRow}; false if there is no such row, or rows don't last
     */
    public boolean isRowClosed(int row) {
        ensureCreated();
        return Callback.isUserTableRowClosed(myIndex, row);
    }

    /**
     * Lasting events that are shorter than this leave no row.
     *
     * @param milliseconds of time, not of CPU time; 0, as at the beginning, keeps all
     */
    public void setMinimumRecordedLastingEventTime(int milliseconds) {
        myMinimumRecordedLastingEventWallTimeMs = milliseconds;
    }

    /**
     * While an event lasts longer than this, telemetry runs at its finest step.
     *
     * @param milliseconds of time; -1, as at the beginning, for never
     */
    public void setFrequentSamplingThreshold(int milliseconds) {
        myFrequentSamplingThresholdMs = milliseconds;
    }

    /**
     * Tells the table's number.
     *
     * @return its number in the agent, 0 until the table has its first row
     */
    public int getIndex() {
        return myIndex;
    }

    String getName() {
        return myName;
    }

    private void ensureCreated() {
        if (myIndex != 0) {
            return;
        }
        synchronized (this) {
            if (myIndex == 0) {
                myIndex = create(findColumns());
            }
        }
    }

    /** The columns of the subclass, in the order of their fields. */
    private List<Column> findColumns() {
        List<Column> columns = new ArrayList<Column>();
        Field[] fields = getClass().getDeclaredFields();
        for (int i = 0; i < fields.length; i++) {
            Field field = fields[i];
            if (!Column.class.isAssignableFrom(field.getType())) {
                continue;
            }
            Column column = getColumn(field);
            if (column instanceof ForeignKeyColumn && containsForeignKey(columns)) {
                throw new RuntimeException("table can have only one column of class " +
                                           column.getClass().getName());
            }
            columns.add(column);
        }
        return columns;
    }

    private Column getColumn(Field field) {
        if (Modifier.isStatic(field.getModifiers())) {
            throw new RuntimeException("column field must not be static: " + field.getName());
        }
        Object value = read(field);
        if (value == null) {
            throw new RuntimeException("field must not be null: " + field.getName());
        }
        Class<?> kind = value.getClass();
        if (kind != IntColumn.class && kind != LongColumn.class && kind != StringColumn.class &&
            kind != ForeignKeyColumn.class && kind != ClassNameColumn.class) {
            throw new RuntimeException("unsupported column class: " + kind.getName() + "; " +
                                       Column.class.getName() + " must not be subclassed by user");
        }
        return (Column) value;
    }

    /**
     * The first table is made ahead of the application's main method: reflection would make the JVM
     * generate code there.
     */
    private Object read(Field field) {
        long[] found = Callback.findField(field.getDeclaringClass(), field.getName());
        if (found == null) {
            throw new RuntimeException("cannot read field: " + field.getName());
        }
        return Callback.readField(this, found[0], (int) found[1], null);
    }

    private static boolean containsForeignKey(List<Column> columns) {
        for (Column column : columns) {
            if (column instanceof ForeignKeyColumn) {
                return true;
            }
        }
        return false;
    }

    /** Makes the table in the database and gives its number. */
    private int create(List<Column> columns) {
        TableDescription description = new TableDescription(MAX_COLUMNS);
        addPredefinedColumns(description);
        int assigned = 0;
        try {
            for (Column column : columns) {
                column.assignToTable(description.getColumnCount());
                assigned++;
                description.add(column.myName, column.getTypeID());
            }
            int index = Callback.createUserTable(description.getText(myName));
            if (index < 0) {
                throw new RuntimeException("table creation failed");
            }
            for (Column column : columns) {
                column.myTableIndex = index;
            }
            return index;
        } catch (RuntimeException e) {
            for (int i = 0; i < assigned; i++) {
                columns.get(i).detach();
            }
            throw e;
        }
    }

    private void addPredefinedColumns(TableDescription description) {
        description.add("uptime_ns", Column.COLUMN_TYPE_LONG);
        if (has(myMask, LASTING_EVENTS)) {
            description.add("uptime_ns.end", Column.COLUMN_TYPE_LONG);
        }
        if (has(myMask, RECORD_THREAD_CPU_TIME)) {
            description.add("spent_cpu_ns", Column.COLUMN_TYPE_LONG);
        }
        if (has(myMask, RECORD_THREAD_ON_ROW_CREATION)) {
            description.add("thread", Column.COLUMN_TYPE_INT);
        }
        if (has(myMask, RECORD_THREAD_ON_ROW_CLOSE)) {
            description.add("thread.end", Column.COLUMN_TYPE_INT);
        }
        if (has(myMask, RECORD_STACKTRACE_ON_ROW_CREATION)) {
            description.add("frame", Column.COLUMN_TYPE_INT);
        }
        if (has(myMask, RECORD_STACKTRACE_ON_ROW_CLOSE)) {
            description.add("frame.end", Column.COLUMN_TYPE_INT);
        }
    }
}
