package cases;

import com.sun.jdi.Location;
import com.sun.jdi.Method;
import com.sun.jdi.ThreadReference;
import com.sun.jdi.event.ExceptionEvent;
import com.sun.jdi.event.LocatableEvent;
import com.sun.jdi.request.StepRequest;
import fixtures.Debugged;
import java.util.List;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Debugger;
import jvmtest.Sampling;
import jvmtest.Target;
import jvmtest.Tracing;

/** A debugger at a program that is rewritten and traced: it sees the program, not the agent. */
public final class DebuggerCases {
    private static final String JDWP =
            "-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,address=127.0.0.1:0";
    private static final String CLASS = Debugged.class.getName();

    private DebuggerCases() {
    }

    /** Stops in work, looks, walks through it line by line, and goes on to the exception. */
    private static void debug(Target target, Debugger debugger, int number) throws Exception {
        Method work = debugger.method(CLASS, "work");
        List<Location> lines = work.allLineLocations();
        target.send(Integer.toString(number));
        LocatableEvent stop = debugger.await();
        ThreadReference thread = stop.thread();
        Check.equal(stop.location(), lines.get(0), "place of the breakpoint");
        // After an attach main still runs as it was before its class was rewritten.
        String main = target.attached ? ".<obsolete>" : ".main";
        Check.equal(Debugger.stack(thread),
                    List.of(CLASS + ".work", CLASS + ".outer", CLASS + main), "stack");
        Check.equal(thread.frame(0).getArgumentValues().toString(), "[" + number + ", \"text\"]",
                    "arguments");
        Check.equal(debugger.call(thread, work, 10, "abc"), "23", "an evaluated call");
        for (int i = 1; i < lines.size(); i++) {
            Check.equal(debugger.step(thread, StepRequest.STEP_OVER).lineNumber(),
                        lines.get(i).lineNumber(), "line after step " + i);
        }
        Location caller = debugger.step(thread, StepRequest.STEP_OUT);
        Check.equal(caller.method().name(), "outer", "caller");
        Check.equal(caller.lineNumber(), lines.get(0).lineNumber() - 5, "line of the call");
        debugger.resume();
        LocatableEvent thrown = debugger.await();
        Check.isTrue(thrown instanceof ExceptionEvent, "an exception stops, not " + thrown);
        Check.equal(thrown.location().method().name(), "fails", "thrower");
        Check.equal(((ExceptionEvent) thrown).catchLocation().method().name(), "catches",
                    "catcher");
        debugger.resume();
        target.awaitOutput("done " + number + " " + (number * 2 + 5) + " expected\n");
    }

    /** A step into a call ends in the method called, whatever the agent inserted there. */
    private static void stepInto(Target target, Debugger debugger, int number) throws Exception {
        debugger.vm.eventRequestManager().deleteAllBreakpoints();
        Method outer = debugger.method(CLASS, "outer");
        debugger.breakAt(outer.allLineLocations().get(0));
        target.send(Integer.toString(number));
        ThreadReference thread = debugger.await().thread();
        Location inside = debugger.step(thread, StepRequest.STEP_INTO);
        Check.equal(inside.declaringType().name() + "." + inside.method().name(), CLASS + ".work",
                    "method stepped into");
        debugger.resume();
        debugger.await(); // the exception
        debugger.resume();
        target.awaitOutput("done " + number + " ");
    }

    private static void debugsTraced(Target target) throws Exception {
        if (target.attached) {
            // Later, as tracing starts, it would take the breakpoints of the class away.
            Tracing.retransform(target);
        }
        try (Debugger debugger = new Debugger(target)) {
            debugger.breakAt(debugger.method(CLASS, "work").allLineLocations().get(0));
            debugger.breakAtThrowsOf("java.lang.IllegalStateException");
            debug(target, debugger, 1);
            Tracing.start(target, "java.*");
            debug(target, debugger, 2);
            Tracing.fetch(target).checkTimes();
            // Two calls: the program's and the evaluated one.
            Check.equal(Tracing.fetch(target).callCounts().get(CLASS + ".work"), 2L, "calls");
            target.send("3");
            debugger.await();
            Tracing.stop(target);
            debugger.resume();
            debugger.await();
            Tracing.start(target, "");
            debugger.resume();
            target.awaitOutput("done 3 11 expected\n");
            stepInto(target, debugger, 4);
            Tracing.stop(target);
            stepInto(target, debugger, 5);
            Sampling.start(target);
            Sampling.capture(target); // all threads halt, but for what the debugger holds
            target.finish();
        }
        Check.equal(Debugger.outputOf(target),
                    "ready\ndone 1 7 expected\ndone 2 9 expected\ndone 3 11 expected\n"
                            + "done 4 13 expected\ndone 5 15 expected\nbye\n",
                    "output");
    }

    @Case(fixture = Debugged.class, agent = "handlebadtimes", jvmFirst = JDWP, attach = false)
    static void debugsWithTheDebuggerBeforeTheAgent(Target target) throws Exception {
        debugsTraced(target);
    }

    @Case(fixture = Debugged.class, agent = "handlebadtimes", jvm = JDWP)
    static void debugsWithTheDebuggerAfterTheAgent(Target target) throws Exception {
        debugsTraced(target);
    }

    /** The agent comes while a thread stands at a breakpoint, which it leaves there. */
    @Case(fixture = Debugged.class, noAgent = true, attach = false,
          jvm = {JDWP, "-XX:+IgnoreUnrecognizedVMOptions", "-XX:+EnableDynamicAgentLoading"})
    static void
    attachesWhileADebuggerHoldsAThread(Target target) throws Exception {
        try (Debugger debugger = new Debugger(target)) {
            Location inWork = debugger.method(CLASS, "work").allLineLocations().get(0);
            debugger.breakAt(inWork);
            target.send("1");
            ThreadReference thread = debugger.await().thread();
            target.attach(target.agentOptions("handlebadtimes"));
            Tracing.start(target, "java.*");
            Check.equal(debugger.step(thread, StepRequest.STEP_OUT).method().name(), "<obsolete>",
                        "caller, whose class was rewritten meanwhile");
            debugger.resume();
            target.awaitOutput("done 1 7 expected\n");
            target.send("2");
            target.awaitOutput("done 2 9 expected\n"); // the breakpoint went with the old code
            Check.equal(Tracing.fetch(target).callCounts().get(CLASS + ".work"), 1L, "calls");
            Tracing.stop(target);
            target.finish();
        }
    }
}
