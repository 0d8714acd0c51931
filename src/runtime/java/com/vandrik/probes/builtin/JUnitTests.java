package com.vandrik.probes.builtin;

import com.vandrik.probes.MethodName;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.This;
import com.vandrik.probes.ThrownException;

/** Tests of JUnit 3, 4 and 5 and of TestNG, with what sets them up and tears them down. */
public final class JUnitTests {
    private JUnitTests() {
    }

    static Object enter(Object test, TestRuns.StepTable table, String name) {
        try {
            return TestRuns.enter(test, table, name);
        } catch (Throwable e) {
            Outermost.failed(e);
            return Outermost.NESTED;
        }
    }

    static void leave(Object call, String name, Throwable thrown) {
        try {
            TestRuns.leave(call, name, thrown);
        } catch (Throwable e) {
            Outermost.failed(e);
        }
    }

    /** The test itself. */
    @MethodPattern({"*Test:test*()", "*Test:@org.junit.Test *()", "*:@org.junit.Test *()",
                    "*:@org.junit.jupiter.api.Test *(*)",
                    "*:@org.junit.jupiter.api.RepeatedTest *(*)",
                    "*:@org.junit.jupiter.params.ParameterizedTest *(*)",
                    "*:@org.testng.annotations.Test *(*)"})
    public static final class Run {
        private Run() {
        }

        public static Object onEnter(@This Object test, @MethodName String name) {
            return enter(test, TestRuns.RUN, name);
        }

        public static void onReturn(@MethodName String name, @OnEnterResult Object call) {
            leave(call, name, null);
        }

        public static void onUncaughtException(@MethodName String name, @OnEnterResult Object call,
                                               @ThrownException Throwable thrown) {
            leave(call, name, thrown);
        }
    }

    /** What comes before each test. */
    @MethodPattern({"*Test:setUp()", "*Test:@org.junit.Before *()", "*:@org.junit.Before *()",
                    "*:@org.junit.jupiter.api.BeforeEach *(*)",
                    "*:@org.testng.annotations.BeforeMethod *(*)"})
    public static final class SetUp {
        private SetUp() {
        }

        public static Object onEnter(@This Object test, @MethodName String name) {
            return enter(test, TestRuns.SET_UP, name);
        }

        public static void onReturn(@MethodName String name, @OnEnterResult Object call) {
            leave(call, name, null);
        }

        public static void onUncaughtException(@MethodName String name, @OnEnterResult Object call,
                                               @ThrownException Throwable thrown) {
            leave(call, name, thrown);
        }
    }

    /** What comes behind each test. */
    @MethodPattern({"*Test:tearDown()", "*Test:@org.junit.After *()", "*:@org.junit.After *()",
                    "*:@org.junit.jupiter.api.AfterEach *(*)",
                    "*:@org.testng.annotations.AfterMethod *(*)"})
    public static final class TearDown {
        private TearDown() {
        }

        public static Object onEnter(@This Object test, @MethodName String name) {
            return enter(test, TestRuns.TEAR_DOWN, name);
        }

        public static void onReturn(@MethodName String name, @OnEnterResult Object call) {
            leave(call, name, null);
        }

        public static void onUncaughtException(@MethodName String name, @OnEnterResult Object call,
                                               @ThrownException Throwable thrown) {
            leave(call, name, thrown);
        }
    }
}
