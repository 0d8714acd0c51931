package com.vandrik.probes.triggers;

/** What is known of a call of the application when a method listener fires. */
public final class MethodCall {
    public final Object myThis;
    public final Class<?> myClass;
    public final String myMethod;
    public final String mySignature;
    public final String myParameterTypes;

    /** Null if no action asks for them. */
    public final Object[] myParams;

    public final Object myReturnValue;
    public final Throwable myException;

    public MethodCall(Object self, Class<?> type, String method, String signature,
                      String parameterTypes, Object[] params, Object returnValue,
                      Throwable exception) {
        myThis = self;
        myClass = type;
        myMethod = method;
        mySignature = signature;
        myParameterTypes = parameterTypes;
        myParams = params;
        myReturnValue = returnValue;
        myException = exception;
    }

    public boolean isVoid() {
        return mySignature != null && mySignature.endsWith(")V");
    }
}
