package com.vandrik.probes;

import java.util.WeakHashMap;

/**
 * A weak map from objects, told by {@code equals}, to numbers.
 *
 * @deprecated {@link ObjectRowIndexMap} tells objects by identity and calls none of their methods
 */
@Deprecated
public final class ObjectIntWeakMap {
    private final WeakHashMap<Object, Integer> myMap = new WeakHashMap<Object, Integer>();

    /**
     * Remembers a number, in the place of the one before.
     *
     * @param key the object, whose {@code hashCode} and {@code equals} are called
     * @param value the number
     */
    public synchronized void put(Object key, int value) {
        myMap.put(key, value);
    }

    /**
     * Looks a number up.
     *
     * @param key the object
     * @return its number, -1 if there is none
     */
    public synchronized int get(Object key) {
        return orAbsent(myMap.get(key));
    }

    /**
     * Forgets an object.
     *
     * @param key the object
     * @return the number that it had, -1 if none
     */
    public synchronized int remove(Object key) {
        return orAbsent(myMap.remove(key));
    }

    private static int orAbsent(Integer value) {
        return value == null ? -1 : value;
    }
}
