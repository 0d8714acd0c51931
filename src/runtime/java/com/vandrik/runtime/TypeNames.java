package com.vandrik.runtime;

import java.util.HashMap;
import java.util.Map;

/**
 * The classes and interfaces that a class is of, by their names: for tests in code that can't link
 * the type in question, as its loader or module may not see it. Keeps no class alive.
 */
public final class TypeNames {
    private static final ClassValue<Map<String, Class<?>>> TYPES =
            new ClassValue<Map<String, Class<?>>>() {
                @Override
                protected Map<String, Class<?>> computeValue(Class<?> type) {
                    Map<String, Class<?>> found = new HashMap<String, Class<?>>();
                    for (Class<?> c = type; c != null; c = c.getSuperclass()) {
                        add(found, c);
                    }
                    return found;
                }
            };

    private TypeNames() {
    }

    private static void add(Map<String, Class<?>> found, Class<?> type) {
        found.put(type.getName(), type);
        for (Class<?> each : type.getInterfaces()) {
            if (!found.containsKey(each.getName())) {
                add(found, each);
            }
        }
    }

    /** In woven code: what {@code instanceof} would tell. False for null. Dotted name. */
    public static boolean isInstance(Object object, String typeName) {
        return object != null && TYPES.get(object.getClass()).containsKey(typeName);
    }

    /** The type of this name that the object is of, null if it isn't. */
    public static Class<?> find(Object object, String typeName) {
        return object == null ? null : find(object.getClass(), typeName);
    }

    /** The type of this name that objects of the class are of, null if they aren't. */
    public static Class<?> find(Class<?> type, String typeName) {
        return TYPES.get(type).get(typeName);
    }
}
