package com.vandrik.probes.triggers.macros;

import com.vandrik.probes.triggers.MethodCall;
import java.util.ArrayList;
import java.util.List;

/** A text with macros, "${NAME}" or "${NAME OPTION}", taken apart once and put together often. */
public final class MacroProcessor {
    public static final String UNKNOWN = "<unknown>";
    public static final String VOID = "<void>";

    /** What prints as text where other objects print as class and hash code. */
    public static final Class<?>[] SIMPLE_TYPES = {
            Boolean.class, Character.class, Byte.class,   Short.class,  Integer.class,
            Long.class,    Float.class,     Double.class, String.class,
    };

    /** A value of the application may be of any length. */
    private static final int MAX_VALUE = 10000;

    private static final String OPEN = "${";
    private static final char CLOSE = '}';

    private final List<Piece> myPieces = new ArrayList<Piece>();

    public MacroProcessor(String text) {
        int at = 0;
        while (at < text.length()) {
            int open = text.indexOf(OPEN, at);
            int close = open < 0 ? -1 : text.indexOf(CLOSE, open);
            if (close < 0) {
                addText(text.substring(at));
                return;
            }
            addText(text.substring(at, open));
            myPieces.add(Piece.ofMacro(text.substring(open + OPEN.length(), close)));
            at = close + 1;
        }
    }

    private void addText(String text) {
        if (!text.isEmpty()) {
            myPieces.add(new Piece(text, null, null));
        }
    }

    public boolean isParamsNeeded() {
        for (Piece piece : myPieces) {
            if (piece.myMacro == Macro.PARAMS) {
                return true;
            }
        }
        return false;
    }

    /** The call is null outside an event of a method. */
    public String process(MethodCall call) {
        StringBuilder text = new StringBuilder();
        for (Piece piece : myPieces) {
            text.append(piece.toText(call));
        }
        return text.toString();
    }

    /** Class and hash code of an object, the text of a simple value. Runs no code of its class. */
    public static String toShortText(Object value) {
        if (value == null) {
            return "null";
        }
        for (Class<?> simple : SIMPLE_TYPES) {
            if (value.getClass() == simple) {
                return cut(value.toString(), MAX_VALUE);
            }
        }
        return value.getClass().getName() + "@" +
                Integer.toHexString(System.identityHashCode(value));
    }

    /** What the value's own class says of it, whatever that may do. */
    public static String toSafeText(Object value) {
        try {
            return cut(String.valueOf(String.valueOf(value)), MAX_VALUE);
        } catch (Throwable failure) {
            return "<toString() of " + value.getClass().getName() +
                    " failed: " + failure.getClass().getName() + ">";
        }
    }

    public static String toShortTexts(Object[] values) {
        return toTexts(values, false);
    }

    static String toTexts(Object[] values, boolean isSafeText) {
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < values.length; i++) {
            text.append(i == 0 ? "" : ", ");
            text.append(isSafeText ? toSafeText(values[i]) : toShortText(values[i]));
        }
        return cut(text.toString(), MAX_VALUE);
    }

    public static String cut(String text, int length) {
        return text.length() <= length
                ? text
                : text.substring(0, length) + "... (" + text.length() + " characters)";
    }

    /** Plain text, or a macro with what stands behind its name. */
    private static final class Piece {
        final String myText;
        final Macro myMacro;
        final String myOption;

        Piece(String text, Macro macro, String option) {
            myText = text;
            myMacro = macro;
            myOption = option;
        }

        static Piece ofMacro(String inner) {
            int blank = inner.indexOf(' ');
            String name = blank < 0 ? inner : inner.substring(0, blank);
            String option = blank < 0 ? "" : inner.substring(blank + 1).trim();
            Macro macro = Macro.find(name);
            return macro == null || !macro.takes(option) ? new Piece(UNKNOWN, null, null)
                                                         : new Piece(null, macro, option);
        }

        String toText(MethodCall call) {
            if (myMacro == null) {
                return myText;
            }
            if (myMacro.isOfMethod() && call == null) {
                return "<macro " + myMacro.name() + " is undefined outside method call>";
            }
            return myMacro.toText(call, myOption);
        }
    }
}
