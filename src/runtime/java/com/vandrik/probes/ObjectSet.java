package com.vandrik.probes;

/** A set of objects, told by identity, that doesn't keep them alive. */
public final class ObjectSet extends NativeObjectMap {
    private static final int MEMBER = 1;
    private static final int ABSENT = 0;

    /**
     * Takes an object in; one that is in the set stays.
     *
     * @param object told by identity
     */
    public void add(Object object) {
        putImpl(object, MEMBER);
    }

    /**
     * Looks an object up.
     *
     * @param object told by identity
     * @return whether it is in the set
     */
    public boolean contains(Object object) {
        return containsImpl(object);
    }

    /**
     * Takes an object out.
     *
     * @param object told by identity
     * @return whether it was in the set
     */
    public boolean remove(Object object) {
        return removeImpl(object, ABSENT) == MEMBER;
    }
}
