package programs;

import static org.junit.platform.engine.discovery.DiscoverySelectors.selectClass;

import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Assertions;
import org.junit.jupiter.api.Assumptions;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.RepeatedTest;
import org.junit.jupiter.api.Test;
import org.junit.platform.launcher.LauncherDiscoveryRequest;
import org.junit.platform.launcher.core.LauncherDiscoveryRequestBuilder;
import org.junit.platform.launcher.core.LauncherFactory;

/** The same of JUnit 5. */
final class NewerTest {
    private static EventCounts counts;

    private static void did(String test) {
        counts.did("JUnit Tests programs.NewerTest " + test);
        for (String step : new String[] {"setUp", "run", "tearDown"}) {
            counts.did(step + " of JUnit Tests programs.NewerTest " + test);
        }
    }

    @BeforeEach
    void before() {
    }

    @AfterEach
    void after() {
    }

    @Test
    void passes() {
        did("passes passed");
    }

    @Test
    void fails() {
        did("fails failed org.opentest4j.AssertionFailedError: because");
        Assertions.fail("because");
    }

    @RepeatedTest(2)
    void breaks() {
        did("breaks error java.lang.IllegalStateException: broken");
        throw new IllegalStateException("broken");
    }

    @Test
    void isSkipped() {
        did("isSkipped skipped org.opentest4j.TestAbortedException: "
            + "Assumption failed: assumption is not true");
        Assumptions.assumeTrue(false);
    }

    static void run(EventCounts all) {
        counts = all;
        LauncherDiscoveryRequest request = LauncherDiscoveryRequestBuilder.request()
                                                   .selectors(selectClass(NewerTest.class))
                                                   .build();
        LauncherFactory.create().execute(request);
    }
}
