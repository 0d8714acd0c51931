package jvmtest;

import java.lang.annotation.Retention;
import java.lang.annotation.RetentionPolicy;

/**
 * Marks a test method: {@code void name(Target target)} runs once for each JDK and each way in
 * (load, attach) that the case admits, against a fresh JVM that runs the fixture with the agent.
 */
@Retention(RetentionPolicy.RUNTIME)
public @interface Case {
    /** The program that the JVM runs. It prints "ready" and obeys lines on standard input. */
    Class<?> fixture();

    /** Agent options, beside those of the harness (port, tmpdir, quiet). */
    String agent() default "";

    String[] jvm() default {};

    /**
     * The case runs once for each of these rows of JVM options, which blanks separate. "25:" in
     * front is the lowest release that the row makes sense on.
     */
    String[] variants() default "";

    /** JVM options that stand before the agent's. */
    String[] jvmFirst() default {};

    /**
     * Jars of the system that the fixture needs, by their names in /usr/share/java, where * is any
     * text.
     */
    String[] jars() default {};

    String[] args() default {};

    boolean load() default true;

    boolean attach() default true;

    /** Lowest JDK release that the case makes sense on. */
    int since() default 17;

    /** Measures CPU shares: nothing else may run meanwhile. */
    boolean alone() default false;

    /** The agent is expected not to come up: the harness waits neither for ready nor for a port. */
    boolean noAgent() default false;
}
