package com.vandrik.probes.builtin;

import com.vandrik.probes.ClassNameColumn;
import com.vandrik.probes.JVM;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.ObjectRowIndexMap;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Param;
import com.vandrik.probes.Table;
import com.vandrik.probes.This;
import java.lang.ref.WeakReference;
import java.util.Arrays;

/**
 * Events that keep the thread of a user interface busy for longer than a user notices. Their types
 * are not named here: these classes do without java.desktop.
 */
public final class AWTEvents {
    private static final int LONG_MS = 100;

    private static final EventTable EVENTS = new EventTable();

    /** The classes of what events run, by event, as an index into the list behind. */
    private static final ObjectRowIndexMap RUNNABLES = new ObjectRowIndexMap();
    private static final ObjectRowIndexMap CLASS_INDICES = new ObjectRowIndexMap();
    private static WeakReference<?>[] ourClasses = new WeakReference<?>[ 64 ];
    private static int ourClassCount;

    private AWTEvents() {
    }

    private static int begin(Object event) {
        if (!JVM.isLivePhase() || event == null) {
            return Table.NO_ROW;
        }
        int row = EVENTS.createRow();
        if (Rows.exists(row)) {
            EVENTS.myEvent.setValue(row, event.getClass());
            EVENTS.myRunnable.setValue(row, classOf(RUNNABLES.get(event)));
        }
        return row;
    }

    private static void end(int row) {
        if (Rows.exists(row)) {
            EVENTS.closeRow(row);
        }
    }

    private static void runs(Object event, Runnable runnable) {
        if (runnable != null && JVM.isLivePhase()) {
            RUNNABLES.put(event, indexOf(runnable.getClass()));
        }
    }

    private static synchronized Class<?> classOf(int index) {
        return index < 0 ? null : (Class<?>) ourClasses[index].get();
    }

    private static synchronized int indexOf(Class<?> type) {
        int index = CLASS_INDICES.get(type);
        if (index >= 0) {
            return index;
        }
        if (ourClassCount == ourClasses.length) {
            ourClasses = Arrays.copyOf(ourClasses, ourClassCount * 2);
        }
        ourClasses[ourClassCount] = new WeakReference<Class<?>>(type);
        CLASS_INDICES.put(type, ourClassCount);
        return ourClassCount++;
    }

    static final class EventTable extends Table {
        final ClassNameColumn myEvent = new ClassNameColumn("Event Class");
        final ClassNameColumn myRunnable = new ClassNameColumn("Runnable Class");

        EventTable() {
            super("Long AWT Events",
                  LASTING_EVENTS | RECORD_THREAD_CPU_TIME | RECORD_THREAD_ON_ROW_CREATION);
            setMinimumRecordedLastingEventTime(LONG_MS);
            setFrequentSamplingThreshold(LONG_MS);
        }
    }

    @MethodPattern("java.awt.EventQueue:dispatchEvent(java.awt.AWTEvent)")
    public static final class Dispatch {
        private Dispatch() {
        }

        public static int onEnter(@Param(1) Object event) {
            try {
                return begin(event);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
                return Table.NO_ROW;
            }
        }

        public static void onReturn(@OnEnterResult int row) {
            try {
                end(row);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }

        public static void onUncaughtException(@OnEnterResult int row) {
            try {
                end(row);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }

    /** What an event runs is hidden in it. */
    @MethodPattern("java.awt.event.InvocationEvent:<init>(Object, int, java.lang.Runnable, *)")
    public static final class Construct {
        private Construct() {
        }

        public static void onReturn(@This Object event, @Param(3) Runnable runnable) {
            try {
                runs(event, runnable);
            } catch (Exception | LinkageError | VirtualMachineError e) {
                Rows.failed(e);
            }
        }
    }
}
