package com.vandrik.probes;

/** Remembers the row that belongs to an object, for as long as the object lives. */
public final class ObjectRowIndexMap extends NativeObjectMap {
    public void put(Object key, int row) {
        putImpl(key, row);
    }

    /** {@link Table#NO_ROW} if there is none. */
    public int get(Object key) {
        return getImpl(key, Table.NO_ROW);
    }

    /** Gives the row that the object had, {@link Table#NO_ROW} if none. */
    public int remove(Object key) {
        return removeImpl(key, Table.NO_ROW);
    }

    public boolean containsKey(Object key) {
        return containsImpl(key);
    }
}
