package com.vandrik.probes.watch;

import java.lang.reflect.Array;
import java.math.BigDecimal;
import java.math.BigInteger;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicLong;

/**
 * Values as short, printable text, for one event. Without leave no method of the application is
 * called: not toString, and nothing that a class of the application may override.
 */
final class Values {
    static final int LONGEST_TEXT = 100;

    private static final int MOST_ELEMENTS = 8;
    private static final int MOST_CHARACTERS = 4096;
    private static final int DEEPEST = 2;
    private static final int MOST_BITS = 4096;
    private static final String MORE = "...";
    private static final FieldReader MESSAGE = new FieldReader("detailMessage", Throwable.class);

    private final StringBuilder myText = new StringBuilder();
    private final boolean myMayCall;
    private int myLeft = MOST_CHARACTERS;

    Values(boolean mayCall) {
        myMayCall = mayCall;
    }

    String print(Object value) {
        if (myLeft <= 0) {
            return MORE;
        }
        myText.setLength(0);
        append(value, 0);
        myLeft -= myText.length();
        return myText.toString();
    }

    /** Class and message. */
    String printException(Throwable exception) {
        String message = null;
        String type = exception.getClass().getName();
        try {
            message = myMayCall ? exception.getMessage() : messageOf(exception);
        } catch (Throwable e) {
            return type + "!" + e.getClass().getName();
        }
        if (message == null || myLeft <= 0) {
            return type;
        }
        myText.setLength(0);
        appendEscaped(message);
        myLeft -= myText.length();
        return type + ": " + myText;
    }

    /** Without asking a class of the application. */
    static String messageOf(Throwable exception) {
        if (isOfJDK(exception.getClass())) {
            return exception.getMessage();
        }
        Object message = MESSAGE.read(exception);
        return message instanceof String ? (String) message : null;
    }

    /** The text of what is one, or prints as one without code of the application; else null. */
    static String textOf(Object value) {
        if (value instanceof String) {
            return (String) value;
        }
        if (value instanceof Character) {
            return value.toString();
        }
        if (value instanceof Enum) {
            return ((Enum<?>) value).name();
        }
        if (value instanceof Class) {
            return ((Class<?>) value).getName();
        }
        return value != null && printsItself(value.getClass()) ? value.toString() : null;
    }

    /** Classes of the JDK whose toString knows what it prints. */
    private static boolean printsItself(Class<?> type) {
        if (!isOfJDK(type)) {
            return false;
        }
        String name = type.getName();
        return name.startsWith("java.time.") || name.equals("java.util.UUID") ||
                name.equals("java.io.File") || name.equals("java.net.URI");
    }

    private static boolean isOfJDK(Class<?> type) {
        return type.getClassLoader() == null;
    }

    /** A number of the JDK, but for those whose text takes its time. */
    static boolean isNumber(Object value) {
        return value instanceof Number && isOfJDK(value.getClass()) && !isHuge(value);
    }

    private static boolean isHuge(Object number) {
        if (number instanceof BigDecimal) {
            return isHuge(((BigDecimal) number).unscaledValue());
        }
        return number instanceof BigInteger && ((BigInteger) number).bitLength() > MOST_BITS;
    }

    static boolean isWhole(Object number) {
        return number instanceof Integer || number instanceof Long || number instanceof Short ||
                number instanceof Byte || number instanceof AtomicInteger ||
                number instanceof AtomicLong;
    }

    private void append(Object value, int depth) {
        if (value == null || value instanceof Boolean || isNumber(value)) {
            appendCut(String.valueOf(value));
        } else if (value instanceof String) {
            appendQuoted((String) value, '"');
        } else if (value instanceof Character) {
            appendQuoted(value.toString(), '\'');
        } else if (value instanceof Class) {
            appendCut("class " + ((Class<?>) value).getName());
        } else if (value.getClass().isArray()) {
            appendArray(value, depth);
        } else if (textOf(value) != null) {
            appendEscaped(textOf(value));
        } else if (myMayCall) {
            appendByItself(value);
        } else {
            myText.append(value.getClass().getName()).append('@');
            myText.append(Integer.toHexString(System.identityHashCode(value)));
        }
    }

    private void appendByItself(Object value) {
        String text;
        try {
            text = String.valueOf(value);
        } catch (Throwable e) {
            myText.append(value.getClass().getName()).append('!');
            myText.append(e.getClass().getName());
            return;
        }
        appendEscaped(text);
    }

    private void appendArray(Object array, int depth) {
        int length = Array.getLength(array);
        int shown = depth >= DEEPEST ? 0 : Math.min(length, MOST_ELEMENTS);
        String type = nameOf(array.getClass());
        int bracket = type.indexOf('[') + 1;
        myText.append(type, 0, bracket).append(length).append(type, bracket, type.length());
        myText.append('{');
        for (int i = 0; i < shown && myText.length() < myLeft; i++) {
            myText.append(i == 0 ? "" : ", ");
            append(Array.get(array, i), depth + 1);
        }
        if (length > shown) {
            myText.append(shown == 0 ? MORE : ", " + MORE);
        }
        myText.append('}');
    }

    /** {@code int[][]}, not {@code [[I}. */
    private static String nameOf(Class<?> type) {
        return type.isArray() ? nameOf(type.getComponentType()) + "[]" : type.getName();
    }

    private void appendCut(String text) {
        myText.append(text, 0, Math.min(text.length(), LONGEST_TEXT));
        myText.append(text.length() > LONGEST_TEXT ? MORE : "");
    }

    private void appendQuoted(String text, char quote) {
        myText.append(quote);
        appendEscaped(text);
        myText.append(quote);
    }

    private void appendEscaped(String text) {
        int end = Math.min(text.length(), LONGEST_TEXT);
        for (int i = 0; i < end;) {
            int character = text.codePointAt(i);
            i += Character.charCount(character);
            appendEscaped(character);
        }
        myText.append(text.length() > LONGEST_TEXT ? MORE : "");
    }

    private void appendEscaped(int character) {
        int position = "\n\r\t\"\\".indexOf(character);
        if (position >= 0) {
            myText.append('\\').append("nrt\"\\".charAt(position));
        } else if (isPrintable(character)) {
            myText.appendCodePoint(character);
        } else if (Character.isSupplementaryCodePoint(character)) {
            appendUnit(Character.toChars(character)[0]);
            appendUnit(Character.toChars(character)[1]);
        } else {
            appendUnit((char) character);
        }
    }

    private void appendUnit(char unit) {
        String hex = Integer.toHexString(unit);
        myText.append("\\u").append("0000", 0, 4 - hex.length()).append(hex);
    }

    private static boolean isPrintable(int character) {
        if (character >= ' ' && character < 127) {
            return true;
        }
        switch (Character.getType(character)) {
        case Character.CONTROL:
        case Character.FORMAT:
        case Character.SURROGATE:
        case Character.PRIVATE_USE:
        case Character.UNASSIGNED:
        case Character.LINE_SEPARATOR:
        case Character.PARAGRAPH_SEPARATOR:
            return false;
        default:
            return true;
        }
    }
}
