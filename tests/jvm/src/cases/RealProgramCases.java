package cases;

import fixtures.Programs;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Tables;
import jvmtest.Target;
import jvmtest.Tracing;

/**
 * Programs that others wrote, in compilers and languages of their own: rewritten, and traced off
 * and on while they run, they do what they do without the agent, and a count is exact.
 */
public final class RealProgramCases {
    private static final String JDK = "java.*\njdk.*\nsun.*";

    private RealProgramCases() {
    }

    private static int answers(Target target) {
        return target.output().split("done \\d+\n", -1).length - 1;
    }

    private static void tell(Target target, String line) throws Exception {
        int next = answers(target) + 1;
        target.ask(line, "done " + next);
    }

    /** A round of the program ends on each side of every switch. */
    static void staysTheSame(Target target, String filters, String method) throws Exception {
        String plain =
                target.plainOutput("run\nawait\nawait\nawait\nawait\nhalt\ngo\nshow\nstop\n");
        Tracing.calibrate(target);
        tell(target, "run");
        tell(target, "await");
        Tracing.start(target, filters);
        tell(target, "await");
        Tracing.fetch(target).checkTimes();
        Tracing.stop(target);
        tell(target, "await");
        Tracing.start(target, filters);
        tell(target, "await");
        Tracing.stop(target);
        tell(target, "halt");
        Tracing.clear(target);
        Tracing.start(target, filters);
        tell(target, "go");
        Tables tables = Tracing.fetch(target);
        Check.equal(tables.callCounts().get(method), 300L, "calls of " + method);
        tables.checkTimes();
        Tracing.stop(target);
        target.send("show");
        target.finish();
        Check.equal(target.output(), plain, "output");
        Tracing.checkQuiet(target);
    }

    @Case(fixture = Programs.class, args = "programs.GroovyScript", jars = "groovy-all",
          agent = "handlebadtimes")
    static void
    groovyStaysTheSame(Target target) throws Exception {
        staysTheSame(target, JDK + "\ngroovy*\norg.codehaus.*", "Counted.leaf");
    }

    @Case(fixture = Programs.class, args = "programs.ClojureScript",
          jars = {"clojure", "spec.alpha", "core.specs.alpha"}, agent = "handlebadtimes",
          jvm = {"-XX:+UseZGC", "-Xmx512m"}, attach = false)
    static void
    clojureStaysTheSame(Target target) throws Exception {
        staysTheSame(target, JDK + "\nclojure.*", "trial$leaf.invoke");
    }

    /** JNA's part in C is where the system has it; JDKs of others do not look there. */
    @Case(fixture = Programs.class, args = "programs.DirectMapping", jars = "jna",
          agent = "handlebadtimes", jvm = "-Djna.boot.library.path=/usr/lib/x86_64-linux-gnu/jni")
    static void
    nativesThatALibraryBindsStayTheSame(Target target) throws Exception {
        staysTheSame(target, JDK + "\ncom.sun.jna.*", "programs.DirectMapping.leaf");
    }

    @Case(fixture = Programs.class, args = "programs.DatabaseRounds", jars = "h2",
          agent = "handlebadtimes", attach = false,
          variants = {"-XX:+UseShenandoahGC -Xmx512m", "25:-Xcheck:jni -XX:+UseParallelGC",
                      "25:-Xint -XX:+UseSerialGC"})
    static void
    aDatabaseStaysTheSame(Target target) throws Exception {
        String more = target.variant.contains("-Xint") ? "\norg.h2.*" : "";
        staysTheSame(target, JDK + more, "programs.DatabaseRounds.leaf");
    }
}
