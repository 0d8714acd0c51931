package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.probes.triggers.PropertyHolder;
import com.vandrik.probes.triggers.Serialization;
import com.vandrik.runtime.Core;

/** What is done on an event, as told by a line of the trigger text below that of the event. */
public abstract class Action extends PropertyHolder {
    public static final Class<?>[] ALL_CLASSES = {
            PrintMessageAction.class,
            AdvanceGenerationAction.class,
            CaptureHPROFSnapshotAction.class,
            CaptureMemorySnapshotAction.class,
            CapturePerformanceSnapshotAction.class,
            DisableExceptionTelemetryAction.class,
            DisableStackTelemetryAction.class,
            EnableExceptionTelemetryAction.class,
            EnableStackTelemetryAction.class,
            EmptyAction.class,
            ForceGCAction.class,
            RecordMethodInvocationAction.class,
            StartAllocationRecordingAction.class,
            StartCPUSamplingAction.class,
            StartCPUTracingAction.class,
            StartMonitorProfilingAction.class,
            StopAllocationRecordingAction.class,
            StopCPUProfilingAction.class,
            StopMonitorProfilingAction.class,
            RunCommandAction.class,
            PostWebhookAction.class,
            SampleForAction.class,
            RecordAllocationsForAction.class,
            SleepAction.class,
            WaitForEventToFinishAction.class,
    };

    /** The action that a line describes. Fails with a text for the user. */
    public static Action parse(String line) {
        return (Action) Serialization.parse(line, ALL_CLASSES);
    }

    /** Outside an event of a method all but the action is null. Nothing leaves it. */
    public static void performSafe(Action action, Object self, Class<?> type, String method,
                                   String signature, String parameterTypes, Object[] params,
                                   Object returnValue, Throwable exception) {
        try {
            action.perform(method == null
                                   ? null
                                   : new MethodCall(self, type, method, signature, parameterTypes,
                                                    params, returnValue, exception));
        } catch (Throwable failure) {
            failed(failure);
        }
    }

    public static void failed(Throwable failure) {
        Core.logIfMemoryAllows("Action failed: ", failure);
    }

    /** The call is null outside an event of a method. */
    protected abstract void perform(MethodCall call) throws Exception;

    /** Whether it reads the parameters of a call. */
    public boolean isParamsNeeded() {
        return false;
    }

    public boolean isOfMethodsOnly() {
        return false;
    }

    /** For what answers with the text of a failure, or null. */
    protected static void check(String failure) {
        if (failure != null) {
            throw new IllegalStateException(failure);
        }
    }
}
