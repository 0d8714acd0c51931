package com.vandrik.probes.triggers;

import com.vandrik.probes.StringColumn;
import com.vandrik.probes.Table;
import com.vandrik.probes.triggers.actions.Action;
import com.vandrik.probes.triggers.actions.RecordMethodInvocationAction;
import com.vandrik.probes.triggers.macros.MacroProcessor;
import com.vandrik.runtime.Callback;
import com.vandrik.util.ThreadUtil;
import java.util.ArrayList;
import java.util.List;

/**
 * Fires on the threads of the application, when methods that match a pattern begin, return, or are
 * left by an exception. A probe class of its own, made of a template, brings the events.
 */
public final class MethodListener extends EventListener {
    /** Names of the events, as actions have them ahead of them, with the methods of a probe. */
    private static final String[] EVENT_PREFIXES = {"onenter:", "onreturn:", "onexception:"};
    private static final String[] EVENT_MARKERS = {"ON_ENTER", "ON_RETURN",
                                                   "ON_UNCAUGHT_EXCEPTION"};
    private static final String[] CALLBACKS = {"onEnter", "onReturn", "onUncaughtException"};
    private static final int ENTER = 0;
    private static final int RETURN = 1;
    private static final int EXCEPTION = 2;

    private static final String TEMPLATE = "MethodListenerProbe";

    /** What an enter callback gives where no row waits for the end of the call. */
    private static final int NO_CALL = 0;

    private static final long LATE_CALLS_NS = 2000000000L;

    private static final InvocationTable INVOCATIONS = new InvocationTable();

    public String myMethodPattern = "";
    public String myInstanceOf = "";
    public boolean myFillThis;
    public boolean myFillParams;
    public boolean myFillReturnValue;

    private final List<List<Action>> myActionsOfEvents = new ArrayList<List<Action>>();

    /** Name of the generated class; null before. */
    private String myProbeClass;

    private volatile boolean myIsOver;
    private volatile long myEndNs;

    public MethodListener() {
        for (int event = 0; event < EVENT_PREFIXES.length; event++) {
            myActionsOfEvents.add(new ArrayList<Action>());
        }
    }

    @Override
    public void addAction(String line) {
        for (int event = 0; event < EVENT_PREFIXES.length; event++) {
            if (line.startsWith(EVENT_PREFIXES[event])) {
                String rest = line.substring(EVENT_PREFIXES[event].length());
                Action action = Action.parse(Serialization.trim(rest));
                getActions().add(action);
                myActionsOfEvents.get(event).add(action);
                return;
            }
        }
        throw new IllegalArgumentException("an action of MethodListener begins with onenter:,"
                                           + " onreturn: or onexception:, not with " + line);
    }

    @Override
    protected void serializeActions(StringBuilder text) {
        for (int event = 0; event < EVENT_PREFIXES.length; event++) {
            for (Action action : myActionsOfEvents.get(event)) {
                appendAction(text, EVENT_PREFIXES[event] + " ", action);
            }
        }
    }

    @Override
    protected void check() {
        super.check();
        if (myMethodPattern.isEmpty()) {
            throw new IllegalArgumentException("methodPattern is missing");
        }
    }

    /** The reason why there is no such pattern; null if there is. */
    public String getPatternFailure() {
        return Callback.validateMethodPattern(myMethodPattern);
    }

    /** The bytes of a probe class. No two may have one number: such a class stays for ever. */
    public byte[] generateProbeByTemplate(int number) {
        String name = TEMPLATE + "_" + number;
        // Where the agent defines its classes one by one, they have no package object.
        String own = MethodListener.class.getName();
        myProbeClass = own.substring(0, own.lastIndexOf('.') + 1) + name;
        return Callback.patchTemplateClass(getPairs(name).toArray(new String[0]));
    }

    /** What is replaced in the template, and by what. */
    List<String> getPairs(String name) {
        List<String> pairs = new ArrayList<String>();
        addPair(pairs, TEMPLATE, name);
        addPair(pairs, "$$METHOD_PATTERN$$", myMethodPattern);
        addPair(pairs, "$$INSTANCE_OF$$", myInstanceOf);
        boolean hasEnter = !isUnused(ENTER);
        boolean hasExit = !isUnused(RETURN) || !isUnused(EXCEPTION);
        for (int event = ENTER; event <= EXCEPTION; event++) {
            if (isUnused(event) && !closesRows(event)) {
                continue;
            }
            String params = isParamsNeeded(event) ? "" : "_NO_PARAMS";
            String form = event == ENTER ? (hasExit ? "" : "_VOID") + params
                                         : params + (hasEnter ? "" : "_NO_ENTER");
            addPair(pairs, "$$" + EVENT_MARKERS[event] + form + "$$", CALLBACKS[event]);
        }
        return pairs;
    }

    private static void addPair(List<String> pairs, String from, String to) {
        pairs.add(from);
        pairs.add(to);
    }

    private boolean isUnused(int event) {
        return myActionsOfEvents.get(event).isEmpty();
    }

    /** A row that is opened on enter for the other way out of the method is closed here. */
    private boolean closesRows(int event) {
        int other = event == RETURN ? EXCEPTION : RETURN;
        return event != ENTER && !isUnused(other) && recordsInvocation(ENTER);
    }

    private boolean recordsInvocation(int event) {
        for (Action action : myActionsOfEvents.get(event)) {
            if (action instanceof RecordMethodInvocationAction) {
                return true;
            }
        }
        return false;
    }

    private boolean isParamsNeeded(int event) {
        for (Action action : myActionsOfEvents.get(event)) {
            if (action.isParamsNeeded() ||
                (action instanceof RecordMethodInvocationAction && myFillParams)) {
                return true;
            }
        }
        return false;
    }

    /** Null before there is one. */
    public String getProbeClass() {
        return myProbeClass;
    }

    /** Gives the loaded probe class what it does on each event. */
    public void fillProbeClass() throws ReflectiveOperationException {
        Class<?> type = Class.forName(myProbeClass, true, null);
        setStatic(type, "ourOnEnterActions", getActionsOf(ENTER));
        setStatic(type, "ourOnReturnActions", getActionsOf(RETURN));
        setStatic(type, "ourOnExceptionActions", getActionsOf(EXCEPTION));
        setStatic(type, "ourFillThis", myFillThis);
        setStatic(type, "ourFillParams", myFillParams);
        setStatic(type, "ourFillReturnValue", myFillReturnValue);
        setStatic(type, "ourListener", this);
    }

    private static void setStatic(Class<?> type, String field, Object value)
            throws ReflectiveOperationException {
        type.getField(field).set(null, value);
    }

    private Action[] getActionsOf(int event) {
        return myActionsOfEvents.get(event).toArray(new Action[0]);
    }

    /** No call that begins from now on is an event, nor is the end of one that takes long. */
    public void end() {
        myEndNs = System.nanoTime();
        myIsOver = true;
    }

    /**
     * A thread may have been at the door when the last method lost its calls of the probe. What
     * the agent's own threads do is no event.
     */
    private boolean claimCall() {
        return !ThreadUtil.isAgentThread(Thread.currentThread()) &&
                (!myIsOver || System.nanoTime() - myEndNs < LATE_CALLS_NS) && claimTrigger();
    }

    /** A call begins. Gives what the end of the call is to get. */
    int enter(Action[] actions, boolean isEndAwaited, boolean fillThis, boolean fillParams,
              MethodCall call) {
        if (!claimCall()) {
            return NO_CALL;
        }
        int row = Table.NO_ROW;
        for (Action action : actions) {
            if (action instanceof RecordMethodInvocationAction && row == Table.NO_ROW) {
                row = open(call, fillThis, fillParams);
            } else {
                perform(action, call);
            }
        }
        if (row == Table.NO_ROW || isEndAwaited) {
            return row + 1;
        }
        INVOCATIONS.closeRow(row);
        return NO_CALL;
    }

    /** A call ends. */
    void leave(Action[] actions, int entered, boolean fillThis, boolean fillParams,
               boolean fillResult, MethodCall call) {
        int row = entered - 1;
        try {
            boolean fires = actions.length != 0 && claimCall();
            for (int i = 0; fires && i < actions.length; i++) {
                if (!(actions[i] instanceof RecordMethodInvocationAction)) {
                    perform(actions[i], call);
                    continue;
                }
                if (row == Table.NO_ROW) {
                    row = open(call, fillThis, fillParams);
                }
                INVOCATIONS.fillEnd(row, call, fillResult);
            }
        } finally {
            if (row != Table.NO_ROW) {
                INVOCATIONS.closeRow(row);
            }
        }
    }

    private static void perform(Action action, MethodCall call) {
        Action.performSafe(action, call.myThis, call.myClass, call.myMethod, call.mySignature,
                           call.myParameterTypes, call.myParams, call.myReturnValue,
                           call.myException);
    }

    private static int open(MethodCall call, boolean fillThis, boolean fillParams) {
        int row = INVOCATIONS.createRow();
        if (fillThis) {
            INVOCATIONS.myThis.setValue(row, MacroProcessor.toShortText(call.myThis));
        }
        if (fillParams && call.myParams != null) {
            INVOCATIONS.myParameters.setValue(row, MacroProcessor.toShortTexts(call.myParams));
        }
        return row;
    }

    /** A row of a call whose end nobody has to wait for. */
    public static void record(MethodCall call) {
        int row = open(call, true, true);
        INVOCATIONS.fillEnd(row, call, true);
        INVOCATIONS.closeRow(row);
    }

    static final class InvocationTable extends Table {
        final StringColumn myThis = new StringColumn("This");
        final StringColumn myParameters = new StringColumn("Parameters");
        final StringColumn myReturnValue = new StringColumn("Return Value");
        final StringColumn myException = new StringColumn("Exception");

        InvocationTable() {
            super("Method Invocation", MASK_FOR_SINGLE_METHOD_CALL_LASTING_EVENTS);
        }

        void fillEnd(int row, MethodCall call, boolean fillResult) {
            if (call.myException != null) {
                myException.setValue(row, MacroProcessor.toSafeText(call.myException));
            } else if (fillResult) {
                myReturnValue.setValue(
                        row, call.isVoid() ? MacroProcessor.VOID
                                           : MacroProcessor.toShortText(call.myReturnValue));
            }
        }
    }
}
