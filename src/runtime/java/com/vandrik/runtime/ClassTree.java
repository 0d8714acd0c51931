package com.vandrik.runtime;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * The loaded classes by what they extend and implement: tells which classes a probe that is about
 * the instances of a class has to do with.
 */
final class ClassTree {
    /** Classes and interfaces directly below a type, by the type's name. */
    private final Map<String, List<Class<?>>> myBelow = new HashMap<String, List<Class<?>>>();

    private final Map<String, List<Class<?>>> myByName = new HashMap<String, List<Class<?>>>();

    /** What was asked before, by the name of the type. */
    private final Map<String, Set<Class<?>>> myAnswers = new HashMap<String, Set<Class<?>>>();

    ClassTree() {
    }

    void addClass(Class<?> type) {
        if (type.isArray() || type.isPrimitive()) {
            return;
        }
        put(myByName, type.getName(), type);
        Class<?> above = type.getSuperclass();
        if (above != null) {
            put(myBelow, above.getName(), type);
        }
        for (Class<?> implemented : type.getInterfaces()) {
            put(myBelow, implemented.getName(), type);
        }
    }

    /**
     * Whether the methods of the class may run for instances of the named one: it is one itself,
     * or a class below it is, which inherits them.
     */
    boolean isInstanceOf(Class<?> type, String name) {
        Set<Class<?>> answer = myAnswers.get(name);
        if (answer == null) {
            answer = find(name);
            myAnswers.put(name, answer);
        }
        return answer.contains(type);
    }

    private Set<Class<?>> find(String name) {
        Set<Class<?>> instances = new HashSet<Class<?>>();
        List<Class<?>> pending = new ArrayList<Class<?>>();
        addAll(pending, myByName.get(name));
        addAll(pending, myBelow.get(name));
        while (!pending.isEmpty()) {
            Class<?> type = pending.remove(pending.size() - 1);
            if (instances.add(type)) {
                addAll(pending, myBelow.get(type.getName()));
            }
        }
        Set<Class<?>> answer = new HashSet<Class<?>>();
        for (Class<?> instance : instances) {
            addWithTypesAbove(instance, answer);
        }
        return answer;
    }

    private static void addWithTypesAbove(Class<?> type, Set<Class<?>> answer) {
        List<Class<?>> pending = new ArrayList<Class<?>>();
        pending.add(type);
        while (!pending.isEmpty()) {
            Class<?> next = pending.remove(pending.size() - 1);
            if (next == null || !answer.add(next)) {
                continue;
            }
            pending.add(next.getSuperclass());
            for (Class<?> implemented : next.getInterfaces()) {
                pending.add(implemented);
            }
        }
    }

    private static void addAll(List<Class<?>> list, List<Class<?>> more) {
        if (more != null) {
            list.addAll(more);
        }
    }

    private static void put(Map<String, List<Class<?>>> map, String name, Class<?> type) {
        List<Class<?>> list = map.get(name);
        if (list == null) {
            list = new ArrayList<Class<?>>(2);
            map.put(name, list);
        }
        list.add(type);
    }
}
