package com.vandrik.probes.triggers;

import com.vandrik.probes.triggers.actions.Action;
import java.lang.reflect.Field;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.List;

/**
 * Lines of the trigger text into objects and back. A line is a name and properties, each
 * "name=value", separated by blanks. A property is a public field of the object.
 */
public final class Serialization {
    private static final String ACTION_SUFFIX = "Action";
    private static final String FIELD_PREFIX = "my";

    /**
     * A duration may be told in milliseconds without a unit, under its name with this behind it.
     */
    private static final String MILLISECONDS_SUFFIX = "Ms";

    private static final String PLAIN = " \t\n\r\\";
    private static final String QUOTED = "stnr\\";

    private Serialization() {
    }

    /** The object that a line describes, of one of the classes. Fails with a text for the user. */
    public static PropertyHolder parse(String line, Class<?>[] classes) {
        List<String> words = split(line);
        String name = words.isEmpty() ? "" : words.get(0);
        PropertyHolder object = create(find(name, classes));
        for (int i = 1; i < words.size(); i++) {
            setProperty(object, words.get(i));
        }
        try {
            object.check();
        } catch (IllegalArgumentException e) {
            throw new IllegalArgumentException(name + ": " + e.getMessage());
        }
        return object;
    }

    /**
     * The line of an object: properties that were told, and those that are not as they are alone.
     */
    public static String serialize(PropertyHolder object) {
        StringBuilder text = new StringBuilder(getExternalName(object.getClass()));
        PropertyHolder untouched = create(object.getClass());
        for (Field field : getProperties(object.getClass())) {
            String value = toText(getValue(field, object));
            String name = getPropertyName(field);
            if (object.isGiven(name) || !value.equals(toText(getValue(field, untouched)))) {
                text.append(' ').append(name).append('=').append(quote(value));
            }
        }
        return text.toString();
    }

    /** The name in the text: the class's, of an action without "Action". */
    public static String getExternalName(Class<?> type) {
        String name = type.getSimpleName();
        return Action.class.isAssignableFrom(type) && name.endsWith(ACTION_SUFFIX)
                ? name.substring(0, name.length() - ACTION_SUFFIX.length())
                : name;
    }

    /** The fields that are properties, those of the class itself first. */
    public static List<Field> getProperties(Class<?> type) {
        List<Field> properties = new ArrayList<Field>();
        for (Class<?> at = type; at != PropertyHolder.class; at = at.getSuperclass()) {
            for (Field field : at.getDeclaredFields()) {
                int modifiers = field.getModifiers();
                if (Modifier.isPublic(modifiers) && !Modifier.isStatic(modifiers)) {
                    properties.add(field);
                }
            }
        }
        return properties;
    }

    /** The field's name less "my", with a small first letter. */
    public static String getPropertyName(Field field) {
        String name = field.getName();
        String bare = name.startsWith(FIELD_PREFIX) ? name.substring(FIELD_PREFIX.length()) : name;
        return Character.toLowerCase(bare.charAt(0)) + bare.substring(1);
    }

    /** A value as one word. */
    public static String quote(String value) {
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < value.length(); i++) {
            char c = value.charAt(i);
            int special = PLAIN.indexOf(c);
            if (special >= 0) {
                text.append('\\').append(QUOTED.charAt(special));
            } else {
                text.append(c);
            }
        }
        return text.toString();
    }

    /** A backslash ahead of any other letter stands for itself. */
    public static String unquote(String word) {
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < word.length(); i++) {
            char c = word.charAt(i);
            int special =
                    c == '\\' && i + 1 < word.length() ? QUOTED.indexOf(word.charAt(i + 1)) : -1;
            if (special >= 0) {
                text.append(PLAIN.charAt(special));
                i++;
            } else {
                text.append(c);
            }
        }
        return text.toString();
    }

    /** A carriage return is what some editors leave at the end of a line. */
    static boolean isBlank(char c) {
        return c == ' ' || c == '\t' || c == '\r';
    }

    static String trim(String line) {
        int start = 0;
        int end = line.length();
        while (start < end && isBlank(line.charAt(start))) {
            start++;
        }
        while (start < end && isBlank(line.charAt(end - 1))) {
            end--;
        }
        return line.substring(start, end);
    }

    private static List<String> split(String line) {
        List<String> words = new ArrayList<String>();
        int start = 0;
        for (int i = 0; i <= line.length(); i++) {
            if (i == line.length() || isBlank(line.charAt(i))) {
                if (i > start) {
                    words.add(line.substring(start, i));
                }
                start = i + 1;
            }
        }
        return words;
    }

    private static Class<?> find(String name, Class<?>[] classes) {
        StringBuilder known = new StringBuilder();
        for (Class<?> type : classes) {
            if (getExternalName(type).equals(name)) {
                return type;
            }
            known.append(known.length() == 0 ? "" : ", ").append(getExternalName(type));
        }
        String kind = Action.class.isAssignableFrom(classes[0]) ? "action" : "event listener";
        throw new IllegalArgumentException("unknown " + kind + ": " + name +
                                           "; there are: " + known);
    }

    private static PropertyHolder create(Class<?> type) {
        try {
            return (PropertyHolder) type.newInstance();
        } catch (Exception e) {
            throw new IllegalStateException("cannot make an object of " + type.getName(), e);
        }
    }

    private static void setProperty(PropertyHolder object, String word) {
        String owner = getExternalName(object.getClass());
        int equals = word.indexOf('=');
        if (equals < 0) {
            throw new IllegalArgumentException(owner + ": a property without a value: " + word);
        }
        String name = word.substring(0, equals);
        Field field = findProperty(object, name);
        boolean isMilliseconds = !getPropertyName(field).equals(name);
        if (!object.noteGiven(getPropertyName(field))) {
            throw new IllegalArgumentException(owner + ": a property given twice: " + name);
        }
        String value = unquote(word.substring(equals + 1));
        try {
            setValue(field, object,
                     isMilliseconds && endsWithDigit(value)
                             ? value + Duration.Unit.MILLISECONDS.myPostfix
                             : value);
        } catch (IllegalArgumentException e) {
            throw new IllegalArgumentException(owner + ", " + name + ": " + e.getMessage());
        }
    }

    private static boolean endsWithDigit(String value) {
        return !value.isEmpty() && Character.isDigit(value.charAt(value.length() - 1));
    }

    private static Field findProperty(PropertyHolder object, String name) {
        StringBuilder known = new StringBuilder();
        for (Field field : getProperties(object.getClass())) {
            String property = getPropertyName(field);
            if (property.equals(name) ||
                field.getType() == Duration.class && name.equals(property + MILLISECONDS_SUFFIX)) {
                return field;
            }
            known.append(known.length() == 0 ? "; there are: " : ", ").append(property);
        }
        throw new IllegalArgumentException(getExternalName(object.getClass()) +
                                           ": unknown property: " + name +
                                           (known.length() == 0 ? "; it has none" : known));
    }

    private static Object getValue(Field field, PropertyHolder object) {
        try {
            return field.get(object);
        } catch (IllegalAccessException e) {
            throw new IllegalStateException("cannot read field " + field, e);
        }
    }

    private static String toText(Object value) {
        return value == null ? "" : value.toString();
    }

    private static void setValue(Field field, PropertyHolder object, String text) {
        try {
            field.set(object, toValue(field.getType(), text));
        } catch (IllegalAccessException e) {
            throw new IllegalStateException("cannot set field " + field, e);
        }
    }

    static Object toValue(Class<?> type, String text) {
        if (type == String.class) {
            return text;
        }
        if (type == Duration.class) {
            return Duration.parse(text);
        }
        if (type == boolean.class) {
            return toBoolean(text);
        }
        if (type == long.class) {
            return Duration.parseNumber(text);
        }
        if (type != int.class) {
            throw new IllegalArgumentException("Unexpected field type: " + type.getName());
        }
        long value = Duration.parseNumber(text);
        if (value != (int) value) {
            throw new IllegalArgumentException("number out of range: " + text);
        }
        return (int) value;
    }

    private static boolean toBoolean(String text) {
        if (!text.equals("true") && !text.equals("false")) {
            throw new IllegalArgumentException("neither true nor false: " + text);
        }
        return text.equals("true");
    }
}
