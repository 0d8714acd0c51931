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
    @MethodPattern(
            {"*Test:test*()", "*Test:@org.junit.Test *()", "*Test*:@org.junit.Test *()",
             "*IT:@org.junit.Test *()", "*ITCase:@org.junit.Test *()",
             "*Test*:@org.junit.jupiter.api.Test *(*)", "*IT:@org.junit.jupiter.api.Test *(*)",
             "*ITCase:@org.junit.jupiter.api.Test *(*)",
             "*Test*:@org.junit.jupiter.api.RepeatedTest *(*)",
             "*IT:@org.junit.jupiter.api.RepeatedTest *(*)",
             "*ITCase:@org.junit.jupiter.api.RepeatedTest *(*)",
             "*Test*:@org.junit.jupiter.params.ParameterizedTest *(*)",
             "*IT:@org.junit.jupiter.params.ParameterizedTest *(*)",
             "*ITCase:@org.junit.jupiter.params.ParameterizedTest *(*)",
             "*Test*:@org.testng.annotations.Test *(*)", "*IT:@org.testng.annotations.Test *(*)",
             "*ITCase:@org.testng.annotations.Test *(*)"})
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
    @MethodPattern({"*Test:setUp()", "*Test:@org.junit.Before *()", "*Test*:@org.junit.Before *()",
                    "*IT:@org.junit.Before *()", "*ITCase:@org.junit.Before *()",
                    "*Test*:@org.junit.jupiter.api.BeforeEach *(*)",
                    "*IT:@org.junit.jupiter.api.BeforeEach *(*)",
                    "*ITCase:@org.junit.jupiter.api.BeforeEach *(*)",
                    "*Test*:@org.testng.annotations.BeforeMethod *(*)",
                    "*IT:@org.testng.annotations.BeforeMethod *(*)",
                    "*ITCase:@org.testng.annotations.BeforeMethod *(*)"})
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
    @MethodPattern({"*Test:tearDown()", "*Test:@org.junit.After *()", "*Test*:@org.junit.After *()",
                    "*IT:@org.junit.After *()", "*ITCase:@org.junit.After *()",
                    "*Test*:@org.junit.jupiter.api.AfterEach *(*)",
                    "*IT:@org.junit.jupiter.api.AfterEach *(*)",
                    "*ITCase:@org.junit.jupiter.api.AfterEach *(*)",
                    "*Test*:@org.testng.annotations.AfterMethod *(*)",
                    "*IT:@org.testng.annotations.AfterMethod *(*)",
                    "*ITCase:@org.testng.annotations.AfterMethod *(*)"})
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
