package com.vandrik.probes;

/** A set of objects, told by identity, that doesn't keep them alive. */
public final class ObjectSet extends NativeObjectMap {
    private static final int MEMBER = 1;
    private static final int ABSENT = 0;

    public void add(Object object) {
        putImpl(object, MEMBER);
    }

    public boolean contains(Object object) {
        return containsImpl(object);
    }

    /** Whether the object was in the set. */
    public boolean remove(Object object) {
        return removeImpl(object, ABSENT) == MEMBER;
    }
}
