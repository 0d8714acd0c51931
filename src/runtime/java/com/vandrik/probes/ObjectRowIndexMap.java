package com.vandrik.probes;

/** Remembers the row that belongs to an object, for as long as the object lives. */
public final class ObjectRowIndexMap extends NativeObjectMap {
    /**
     * Remembers a row, in the place of the one before.
     *
     * @param key the object, told by identity
     * @param row its row
     */
    public void put(Object key, int row) {
        putImpl(key, row);
    }

    /**
     * Looks a row up.
     *
     * @param key the object
     * @return its row, {@link Table#NO_ROW} if there is none
     */
    public int get(Object key) {
        return getImpl(key, Table.NO_ROW);
    }

    /**
     * Forgets an object.
     *
     * @param key the object
     * @return the row that it had, {@link Table#NO_ROW} if none
     */
    public int remove(Object key) {
        return removeImpl(key, Table.NO_ROW);
    }

    /**
     * Tells whether an object has a row.
     *
     * @param key the object
     * @return true from {@link #put} to {@link #remove}
     */
    public boolean containsKey(Object key) {
        return containsImpl(key);
    }
}
