package com.vandrik.probes.triggers;

import com.vandrik.probes.ClassRef;
import com.vandrik.probes.InstanceOf;
import com.vandrik.probes.MethodName;
import com.vandrik.probes.MethodParameterTypes;
import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.MethodSignature;
import com.vandrik.probes.OnEnterResult;
import com.vandrik.probes.Params;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.This;
import com.vandrik.probes.ThrownException;
import com.vandrik.probes.triggers.actions.Action;

/**
 * Of each method listener's own copy of this class, one method for each event that has actions is
 * renamed to the callback of a probe. VOID: nothing awaits the end of the call; NO_PARAMS: the
 * parameters, which have to be boxed, are not asked for; NO_ENTER: no callback at the begin.
 */
@MethodPattern("$$METHOD_PATTERN$$")
@InstanceOf("$$INSTANCE_OF$$")
public final class MethodListenerProbe {
    public static Action[] ourOnEnterActions;
    public static Action[] ourOnReturnActions;
    public static Action[] ourOnExceptionActions;
    public static boolean ourFillThis;
    public static boolean ourFillParams;
    public static boolean ourFillReturnValue;

    /** Set last; null until the rest is in place. */
    public static volatile MethodListener ourListener;

    private MethodListenerProbe() {
    }

    public static int $$ON_ENTER$$(@This Object self, @ClassRef Class<?> type,
                                   @MethodName String method, @MethodSignature String signature,
                                   @MethodParameterTypes String types, @Params Object[] params) {
        return onEnterImpl(true, self, type, method, signature, types, params);
    }

    public static int $$ON_ENTER_NO_PARAMS$$(@This Object self, @ClassRef Class<?> type,
                                             @MethodName String method,
                                             @MethodSignature String signature,
                                             @MethodParameterTypes String types) {
        return onEnterImpl(true, self, type, method, signature, types, null);
    }

    public static void $$ON_ENTER_VOID$$(@This Object self, @ClassRef Class<?> type,
                                         @MethodName String method,
                                         @MethodSignature String signature,
                                         @MethodParameterTypes String types,
                                         @Params Object[] params) {
        onEnterImpl(false, self, type, method, signature, types, params);
    }

    public static void $$ON_ENTER_VOID_NO_PARAMS$$(@This Object self, @ClassRef Class<?> type,
                                                   @MethodName String method,
                                                   @MethodSignature String signature,
                                                   @MethodParameterTypes String types) {
        onEnterImpl(false, self, type, method, signature, types, null);
    }

    public static void $$ON_RETURN$$(@This Object self, @ClassRef Class<?> type,
                                     @MethodName String method, @MethodSignature String signature,
                                     @MethodParameterTypes String types, @Params Object[] params,
                                     @OnEnterResult int entered, @ReturnValue Object value) {
        onReturnImpl(self, type, method, signature, types, params, entered, value);
    }

    public static void
    $$ON_RETURN_NO_PARAMS$$(@This Object self, @ClassRef Class<?> type, @MethodName String method,
                            @MethodSignature String signature, @MethodParameterTypes String types,
                            @OnEnterResult int entered, @ReturnValue Object value) {
        onReturnImpl(self, type, method, signature, types, null, entered, value);
    }

    public static void $$ON_RETURN_NO_ENTER$$(@This Object self, @ClassRef Class<?> type,
                                              @MethodName String method,
                                              @MethodSignature String signature,
                                              @MethodParameterTypes String types,
                                              @Params Object[] params, @ReturnValue Object value) {
        onReturnImpl(self, type, method, signature, types, params, 0, value);
    }

    public static void $$ON_RETURN_NO_PARAMS_NO_ENTER$$(@This Object self, @ClassRef Class<?> type,
                                                        @MethodName String method,
                                                        @MethodSignature String signature,
                                                        @MethodParameterTypes String types,
                                                        @ReturnValue Object value) {
        onReturnImpl(self, type, method, signature, types, null, 0, value);
    }

    public static void
    $$ON_UNCAUGHT_EXCEPTION$$(@This Object self, @ClassRef Class<?> type, @MethodName String method,
                              @MethodSignature String signature, @MethodParameterTypes String types,
                              @Params Object[] params, @OnEnterResult int entered,
                              @ThrownException Throwable exception) {
        onExceptionImpl(self, type, method, signature, types, params, entered, exception);
    }

    public static void $$ON_UNCAUGHT_EXCEPTION_NO_PARAMS$$(
            @This Object self, @ClassRef Class<?> type, @MethodName String method,
            @MethodSignature String signature, @MethodParameterTypes String types,
            @OnEnterResult int entered, @ThrownException Throwable exception) {
        onExceptionImpl(self, type, method, signature, types, null, entered, exception);
    }

    public static void
    $$ON_UNCAUGHT_EXCEPTION_NO_ENTER$$(@This Object self, @ClassRef Class<?> type,
                                       @MethodName String method, @MethodSignature String signature,
                                       @MethodParameterTypes String types, @Params Object[] params,
                                       @ThrownException Throwable exception) {
        onExceptionImpl(self, type, method, signature, types, params, 0, exception);
    }

    public static void $$ON_UNCAUGHT_EXCEPTION_NO_PARAMS_NO_ENTER$$(
            @This Object self, @ClassRef Class<?> type, @MethodName String method,
            @MethodSignature String signature, @MethodParameterTypes String types,
            @ThrownException Throwable exception) {
        onExceptionImpl(self, type, method, signature, types, null, 0, exception);
    }

    private static int onEnterImpl(boolean isEndAwaited, Object self, Class<?> type, String method,
                                   String signature, String types, Object[] params) {
        MethodListener listener = ourListener;
        try {
            return listener == null
                    ? 0
                    : listener.enter(ourOnEnterActions, isEndAwaited, ourFillThis, ourFillParams,
                                     new MethodCall(self, type, method, signature, types, params,
                                                    null, null));
        } catch (Throwable failure) {
            Action.failed(failure);
            return 0;
        }
    }

    private static void onReturnImpl(Object self, Class<?> type, String method, String signature,
                                     String types, Object[] params, int entered, Object value) {
        leave(ourOnReturnActions, entered,
              new MethodCall(self, type, method, signature, types, params, value, null));
    }

    private static void onExceptionImpl(Object self, Class<?> type, String method, String signature,
                                        String types, Object[] params, int entered,
                                        Throwable exception) {
        leave(ourOnExceptionActions, entered,
              new MethodCall(self, type, method, signature, types, params, null, exception));
    }

    private static void leave(Action[] actions, int entered, MethodCall call) {
        MethodListener listener = ourListener;
        try {
            if (listener != null) {
                listener.leave(actions, entered, ourFillThis, ourFillParams, ourFillReturnValue,
                               call);
            }
        } catch (Throwable failure) {
            Action.failed(failure);
        }
    }
}
