package jvmtest;

import com.sun.jdi.Bootstrap;
import com.sun.jdi.ClassType;
import com.sun.jdi.Location;
import com.sun.jdi.Method;
import com.sun.jdi.StackFrame;
import com.sun.jdi.ThreadReference;
import com.sun.jdi.VirtualMachine;
import com.sun.jdi.connect.AttachingConnector;
import com.sun.jdi.connect.Connector;
import com.sun.jdi.event.Event;
import com.sun.jdi.event.EventSet;
import com.sun.jdi.event.LocatableEvent;
import com.sun.jdi.request.EventRequest;
import com.sun.jdi.request.StepRequest;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** A debugger at a JVM that was started with the jdwp library. It stops one thread at a time. */
public final class Debugger implements AutoCloseable {
    private static final long WAIT_MS = Check.LIMIT_SECONDS * 1000L;
    private static final Pattern LISTENING =
            Pattern.compile("Listening for transport dt_socket at address: (\\d+)\n");

    public final VirtualMachine vm;
    private EventSet stopped;

    public Debugger(Target target) throws Exception {
        Matcher line = LISTENING.matcher(target.output());
        Check.isTrue(line.find(), "jdwp listens; " + target.state());
        AttachingConnector sockets =
                Bootstrap.virtualMachineManager()
                        .attachingConnectors()
                        .stream()
                        .filter(c -> c.name().equals("com.sun.jdi.SocketAttach"))
                        .findFirst()
                        .get();
        Map<String, Connector.Argument> arguments = sockets.defaultArguments();
        arguments.get("hostname").setValue("127.0.0.1");
        arguments.get("port").setValue(line.group(1));
        vm = sockets.attach(arguments);
    }

    /** What the program itself printed. */
    public static String outputOf(Target target) {
        return LISTENING.matcher(target.output()).replaceAll("");
    }

    public Method method(String type, String name) {
        return vm.classesByName(type).get(0).methodsByName(name).get(0);
    }

    public void breakAt(Location location) {
        enable(vm.eventRequestManager().createBreakpointRequest(location));
    }

    public void breakAtThrowsOf(String exception) {
        enable(vm.eventRequestManager().createExceptionRequest(vm.classesByName(exception).get(0),
                                                               true, true));
    }

    private static void enable(EventRequest request) {
        request.setSuspendPolicy(EventRequest.SUSPEND_EVENT_THREAD);
        request.enable();
    }

    /** Waits for the next stop. */
    public LocatableEvent await() throws Exception {
        while (true) {
            EventSet events = vm.eventQueue().remove(WAIT_MS);
            Check.isTrue(events != null, "the debugger's thread stops");
            for (Event event : events) {
                if (event instanceof LocatableEvent) {
                    stopped = events;
                    return (LocatableEvent) event;
                }
            }
            events.resume();
        }
    }

    public void resume() {
        stopped.resume();
    }

    /** One step by line; gives where it ends. */
    public Location step(ThreadReference thread, int depth) throws Exception {
        StepRequest request =
                vm.eventRequestManager().createStepRequest(thread, StepRequest.STEP_LINE, depth);
        request.addCountFilter(1);
        enable(request);
        resume();
        Location location = await().location();
        vm.eventRequestManager().deleteEventRequest(request);
        return location;
    }

    /** Names of the methods on the stack, innermost first. */
    public static List<String> stack(ThreadReference thread) throws Exception {
        List<String> names = new ArrayList<>();
        for (StackFrame frame : thread.frames()) {
            names.add(frame.location().declaringType().name() + "." +
                      frame.location().method().name());
        }
        return names;
    }

    /** Calls a static method on the stopped thread, whatever breakpoints are in it. */
    public String call(ThreadReference thread, Method method, Object number, String text)
            throws Exception {
        List<EventRequest> requests =
                new ArrayList<>(vm.eventRequestManager().breakpointRequests());
        requests.forEach(EventRequest::disable);
        String result =
                ((ClassType) method.declaringType())
                        .invokeMethod(thread, method,
                                      List.of(vm.mirrorOf((Integer) number), vm.mirrorOf(text)),
                                      ClassType.INVOKE_SINGLE_THREADED)
                        .toString();
        requests.forEach(EventRequest::enable);
        return result;
    }

    @Override
    public void close() {
        try {
            vm.dispose();
        } catch (com.sun.jdi.VMDisconnectedException e) {
            return; // the program has ended
        }
    }
}
