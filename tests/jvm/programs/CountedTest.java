package programs;

import org.junit.After;
import org.junit.Assert;
import org.junit.Assume;
import org.junit.Before;
import org.junit.Test;
import org.junit.runner.JUnitCore;

/** Tests of JUnit 4, of each way to end. */
public final class CountedTest {
    private static final EventCounts counts = make();

    private static EventCounts make() {
        try {
            return new EventCounts();
        } catch (Exception e) {
            throw new IllegalStateException(e);
        }
    }

    private static void did(String test) {
        counts.did("JUnit Tests programs.CountedTest " + test);
        for (String step : new String[] {"setUp", "run", "tearDown", "tearDown"}) {
            counts.did(step + " of JUnit Tests programs.CountedTest " + test);
        }
    }

    @Before
    public void before() {
    }

    @After
    public void after() {
    }

    @After
    public void afterwards() {
    }

    @Test
    public void passes() {
        did("passes passed");
    }

    @Test
    public void fails() {
        did("fails failed java.lang.AssertionError: because");
        Assert.fail("because");
    }

    @Test(expected = IllegalStateException.class)
    public void throwsAsExpected() {
        did("throwsAsExpected passed");
        throw new IllegalStateException();
    }

    @Test
    public void breaks() {
        did("breaks error java.lang.IllegalStateException: broken");
        throw new IllegalStateException("broken");
    }

    @Test
    public void isSkipped() {
        did("isSkipped skipped org.junit.AssumptionViolatedException: got: <false>, expected: "
            + "is <true>");
        Assume.assumeTrue(false);
    }

    static void run() throws Exception {
        JUnitCore.runClasses(CountedTest.class);
        NewerTest.run(counts);
        counts.compare("tests", "JUnit Tests", "setUp", "run", "tearDown");
    }
}
