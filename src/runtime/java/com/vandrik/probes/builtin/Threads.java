package com.vandrik.probes.builtin;

import com.vandrik.probes.ForeignKeyColumn;
import com.vandrik.probes.JVM;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.ObjectRowIndexMap;
import com.vandrik.probes.Param;
import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;
import com.vandrik.probes.This;
import com.vandrik.util.ThreadUtil;

/**
 * Threads from their construction to their end, virtual ones too, and the names that they got on
 * the way. Threads of the agent and of the JDK's own housekeeping have no row.
 */
public final class Threads {
    private static final LifeCycle LIFE_CYCLE = new LifeCycle();
    private static final NameHistory NAME_HISTORY = new NameHistory(LIFE_CYCLE);
    private static final ObjectRowIndexMap ROWS = new ObjectRowIndexMap();

    private static final String SYSTEM_GROUP = "system";
    /** Made by the JVM to wait for the end of all others. */
    private static final String JVM_END = "DestroyJavaVM";
    /** Those that run virtual threads, wake them, and do what libraries do behind the scenes. */
    private static final String[] HOUSEKEEPING_CLASSES = {"jdk.internal.misc.CarrierThread",
                                                          "java.util.concurrent.DelayScheduler",
                                                          "jdk.internal.misc.InnocuousThread"};

    private Threads() {
    }

    static void appeared(Thread thread) {
        if (!JVM.isLivePhase() || isHousekeeping(thread)) {
            return;
        }
        String name = thread.getName();
        synchronized (ROWS) {
            if (ROWS.containsKey(thread)) {
                return;
            }
            int row = LIFE_CYCLE.createRow();
            if (Rows.exists(row)) {
                LIFE_CYCLE.myName.setValue(row, name);
                ROWS.put(thread, row);
            }
        }
    }

    static void renamed(Thread thread, String name) {
        int threadRow = JVM.isLivePhase() ? ROWS.get(thread) : Table.NO_ROW;
        int row = Rows.exists(threadRow) ? NAME_HISTORY.createRow() : Table.NO_ROW;
        if (Rows.exists(row)) {
            NAME_HISTORY.myName.setValue(row, name);
            NAME_HISTORY.myThread.setValue(row, threadRow);
        }
    }

    static void ended(Thread thread) {
        int row = JVM.isLivePhase() ? ROWS.remove(thread) : Table.NO_ROW;
        if (Rows.exists(row)) {
            LIFE_CYCLE.closeRow(row);
        }
    }

    private static boolean isHousekeeping(Thread thread) {
        String name = thread.getName();
        if (name == null || ThreadUtil.isAgentThreadName(name) || name.equals(JVM_END)) {
            return true;
        }
        String className = thread.getClass().getName();
        for (String housekeeping : HOUSEKEEPING_CLASSES) {
            if (className.equals(housekeeping)) {
                return true;
            }
        }
        ThreadGroup group = thread.getThreadGroup();
        return group != null && SYSTEM_GROUP.equals(group.getName());
    }

    static final class LifeCycle extends Table {
        /** The first name; later ones are in the history. */
        final StringColumn myName = new StringColumn("Name");

        LifeCycle() {
            super("Thread Life Cycle", MASK_FOR_GENERIC_LASTING_EVENTS);
        }
    }

    static final class NameHistory extends Table {
        final StringColumn myName = new StringColumn("Name");
        final ForeignKeyColumn myThread;

        NameHistory(Table threads) {
            super("Name History", MASK_FOR_POINT_EVENTS);
            myThread = new ForeignKeyColumn(threads);
        }
    }

    @MethodPattern("java.lang.Thread:<init>(*)")
    public static final class Construct {
        private Construct() {
        }

        public static void onReturn(@This Thread thread) {
            try {
                appeared(thread);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    /** For those that were constructed before the probe was there. */
    @MethodPattern(
            {"java.lang.Thread:start()", "java.lang.Thread:start(jdk.internal.vm.ThreadContainer)"})
    public static final class Start {
        private Start() {
        }

        public static void onEnter(@This Thread thread) {
            try {
                appeared(thread);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    @MethodPattern("java.lang.Thread:setName(String)")
    public static final class Rename {
        private Rename() {
        }

        public static void onReturn(@This Thread thread, @Param(1) String name) {
            try {
                renamed(thread, name);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    /** The second is the last that a virtual thread does, on its carrier. */
    @MethodPattern({"java.lang.Thread:exit()", "java.lang.Thread:clearReferences()"})
    public static final class End {
        private End() {
        }

        public static void onEnter(@This Thread thread) {
            try {
                ended(thread);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }
}
