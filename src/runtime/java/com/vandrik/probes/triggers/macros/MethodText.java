package com.vandrik.probes.triggers.macros;

import com.vandrik.probes.triggers.MethodCall;
import java.lang.reflect.Field;
import java.lang.reflect.Modifier;

/** Texts of what is known of a call. */
final class MethodText {
    static final String TO_STRING = "TO_STRING";

    private static final String AGENT_PREFIX = "com.vandrik.";

    private MethodText() {
    }

    static String of(Object value, String option) {
        return option.equals(TO_STRING) ? MacroProcessor.toSafeText(value)
                                        : MacroProcessor.toShortText(value);
    }

    static String ofException(Throwable exception, boolean isMessage) {
        if (exception == null || !isMessage) {
            return MacroProcessor.toSafeText(exception);
        }
        try {
            return MacroProcessor.toSafeText(exception.getMessage());
        } catch (Throwable failure) {
            return "<getMessage() of " + exception.getClass().getName() +
                    " failed: " + failure.getClass().getName() + ">";
        }
    }

    /** The value of a field of the object, or of its class where there is no object. */
    static String ofField(MethodCall call, String name) {
        Class<?> first = call.myThis == null ? call.myClass : call.myThis.getClass();
        for (Class<?> type = first; type != null; type = type.getSuperclass()) {
            try {
                Field field = type.getDeclaredField(name);
                if (call.myThis == null && !Modifier.isStatic(field.getModifiers())) {
                    return MacroProcessor.UNKNOWN;
                }
                field.setAccessible(true);
                return MacroProcessor.toSafeText(field.get(call.myThis));
            } catch (NoSuchFieldException e) {
                // one of a superclass may be meant
            } catch (Throwable failure) {
                return "<field " + name + " cannot be read: " + MacroProcessor.toSafeText(failure) +
                        ">";
            }
        }
        return MacroProcessor.UNKNOWN;
    }

    /** In the form of a thread dump, without the agent's own frames. */
    static String currentStack() {
        Thread thread = Thread.currentThread();
        StringBuilder text = new StringBuilder();
        text.append('"').append(thread.getName()).append('"');
        boolean isAgent = true;
        for (StackTraceElement frame : thread.getStackTrace()) {
            isAgent = isAgent && (frame.getClassName().startsWith(AGENT_PREFIX) ||
                                  frame.getClassName().equals(Thread.class.getName()));
            if (!isAgent) {
                text.append("\n\tat ").append(frame);
            }
        }
        return text.toString();
    }
}
