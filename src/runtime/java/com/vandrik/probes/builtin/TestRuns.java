package com.vandrik.probes.builtin;

import com.vandrik.probes.ForeignKeyColumn;
import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;
import java.lang.annotation.Annotation;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.HashSet;
import java.util.Set;

/**
 * The rows of {@link JUnitTests}. A test goes on from the first call of its object that sets it up,
 * or of the test itself, to the last one that tears it down; where the class has none of these, to
 * the end of the test.
 */
final class TestRuns {
    static final TestTable TESTS = new TestTable();
    static final StepTable RUN = new StepTable("run");
    static final StepTable SET_UP = new StepTable("setUp");
    static final StepTable TEAR_DOWN = new StepTable("tearDown");

    private static final Outermost CALLS = new Outermost();
    private static final IdentityMap<Test> OPEN = new IdentityMap<Test>();
    private static final ClassValue<Integer> TEAR_DOWNS = new ClassValue<Integer>() {
        @Override
        protected Integer computeValue(Class<?> type) {
            return countTearDowns(type);
        }
    };

    private static final String[] TEARING_DOWN = {"org.junit.After",
                                                  "org.junit.jupiter.api.AfterEach",
                                                  "org.testng.annotations.AfterMethod"};
    private static final String[] ABORTING = {"org.junit.AssumptionViolatedException",
                                              "org.junit.internal.AssumptionViolatedException",
                                              "org.opentest4j.TestAbortedException",
                                              "org.testng.SkipException"};

    private TestRuns() {
    }

    static final class TestTable extends Table {
        final StringColumn myClass = new StringColumn("Test Class");
        final StringColumn myName = new StringColumn("Test Name");
        final StringColumn myStatus = new StringColumn("Status");
        final StringColumn myException = new StringColumn("Exception");

        TestTable() {
            super("JUnit Tests",
                  LASTING_EVENTS | RECORD_THREAD_CPU_TIME | RECORD_THREAD_ON_ROW_CREATION |
                          RECORD_STACKTRACE_ON_ROW_CREATION | RECORD_STACKTRACE_ON_ROW_CLOSE);
        }
    }

    static final class StepTable extends Table {
        final ForeignKeyColumn myTest = new ForeignKeyColumn(TESTS);

        StepTable(String name) {
            super(name, MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS);
        }
    }

    /** A test that goes on. */
    private static final class Test {
        final int myRow;
        int myTearDownsLeft;
        boolean myHasRun;

        Test(int row, int tearDowns) {
            myRow = row;
            myTearDownsLeft = tearDowns;
        }
    }

    private static final class Step {
        final Test myTest;
        final Object myObject;
        final StepTable myTable;
        final int myRow;

        Step(Test test, Object object, StepTable table, int row) {
            myTest = test;
            myObject = object;
            myTable = table;
            myRow = row;
        }
    }

    static Object enter(Object object, StepTable table, String name) {
        if (object == null || !Outermost.isLive()) {
            return null;
        }
        // A method that a test or its superclass calls is no step of its own.
        if (!CALLS.enter()) {
            return Outermost.NESTED;
        }
        Test test = OPEN.get(object);
        if (test == null || table != TEAR_DOWN && test.myHasRun) {
            test = open(object);
        }
        if (table == RUN) {
            test.myHasRun = true;
            TESTS.myName.setValue(test.myRow, name);
        }
        int row = table.createRow();
        table.myTest.setValue(row, test.myRow);
        return new Step(test, object, table, row);
    }

    private static Test open(Object object) {
        int row = TESTS.createRow();
        TESTS.myClass.setValue(row, object.getClass().getName());
        Test test = new Test(row, TEAR_DOWNS.get(object.getClass()));
        OPEN.put(object, test);
        return test;
    }

    /** method: of the test, for an exception that it expects. */
    static void leave(Object call, String method, Throwable thrown) {
        if (call == null) {
            return;
        }
        CALLS.leave();
        if (!(call instanceof Step)) {
            return;
        }
        Step step = (Step) call;
        step.myTable.closeRow(step.myRow);
        Test test = step.myTest;
        boolean isExpected = thrown != null && step.myTable == RUN &&
                             isExpected(step.myObject.getClass(), method, thrown);
        if (thrown != null && !isExpected) {
            TESTS.myStatus.setValue(test.myRow, statusOf(thrown));
            TESTS.myException.setValue(test.myRow, describe(thrown));
        } else if (step.myTable == RUN) {
            TESTS.myStatus.setValue(test.myRow, "passed");
        }
        if (thrown != null && step.myTable == SET_UP) {
            // The test is not run; some frameworks tear it down all the same.
            test.myHasRun = true;
            TESTS.closeRow(test.myRow);
        }
        if (isOver(step)) {
            TESTS.closeRow(test.myRow);
            OPEN.remove(step.myObject);
        }
    }

    private static boolean isOver(Step step) {
        if (step.myTable == TEAR_DOWN) {
            step.myTest.myTearDownsLeft--;
            return step.myTest.myTearDownsLeft <= 0;
        }
        return step.myTest.myHasRun && step.myTest.myTearDownsLeft <= 0;
    }

    private static String statusOf(Throwable thrown) {
        for (String aborting : ABORTING) {
            if (isOf(thrown.getClass(), aborting)) {
                return "skipped";
            }
        }
        return thrown instanceof AssertionError ||
                        isOf(thrown.getClass(), "junit.framework.AssertionFailedError")
                ? "failed"
                : "error";
    }

    private static boolean isOf(Class<?> type, String name) {
        for (Class<?> c = type; c != null; c = c.getSuperclass()) {
            if (c.getName().equals(name)) {
                return true;
            }
        }
        return false;
    }

    /** An exception of the application tells its message by its own code. */
    private static String describe(Throwable thrown) {
        try {
            return thrown.toString();
        } catch (Throwable e) {
            return thrown.getClass().getName();
        }
    }

    private static int countTearDowns(Class<?> type) {
        Set<String> names = new HashSet<String>();
        for (Class<?> c = type; c != null; c = c.getSuperclass()) {
            try {
                for (Method method : c.getDeclaredMethods()) {
                    if (isTearDown(c, method)) {
                        names.add(method.getName());
                    }
                }
            } catch (LinkageError e) {
                // A type in a signature is missing; the class works without.
                continue;
            }
        }
        return names.size();
    }

    private static boolean isTearDown(Class<?> type, Method method) {
        boolean isByName = method.getName().equals("tearDown") && type.getName().endsWith("Test") &&
                           method.getParameterTypes().length == 0;
        return !Modifier.isStatic(method.getModifiers()) &&
                (isByName || findAnnotation(method, TEARING_DOWN) != null);
    }

    private static Annotation findAnnotation(Method method, String... names) {
        for (Annotation annotation : method.getDeclaredAnnotations()) {
            for (String name : names) {
                if (annotation.annotationType().getName().equals(name)) {
                    return annotation;
                }
            }
        }
        return null;
    }

    /** The annotations of JUnit 4 and TestNG may name exceptions that the test has to throw. */
    private static boolean isExpected(Class<?> type, String name, Throwable thrown) {
        try {
            for (Class<?> c = type; c != null; c = c.getSuperclass()) {
                for (Method method : c.getDeclaredMethods()) {
                    if (method.getName().equals(name) && names(method, thrown)) {
                        return true;
                    }
                }
            }
        } catch (Exception e) {
            return false;
        } catch (LinkageError e) {
            return false;
        }
        return false;
    }

    private static boolean names(Method method, Throwable thrown) throws Exception {
        Annotation annotation =
                findAnnotation(method, "org.junit.Test", "org.testng.annotations.Test");
        if (annotation == null) {
            return false;
        }
        boolean isJUnit = annotation.annotationType().getName().startsWith("org.junit.");
        Object value = annotation.annotationType()
                               .getMethod(isJUnit ? "expected" : "expectedExceptions")
                               .invoke(annotation);
        Object[] types = value instanceof Object[] ? (Object[]) value : new Object[] {value};
        for (Object each : types) {
            if (((Class<?>) each).isInstance(thrown)) {
                return true;
            }
        }
        return false;
    }
}
