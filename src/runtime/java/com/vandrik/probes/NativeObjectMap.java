package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** A map from objects, told by identity, to numbers that doesn't keep the objects alive. */
abstract class NativeObjectMap {
    /** The native map; 0, which every operation ignores, once it is freed. */
    private long myHandle = Callback.createObjectMap();

    final void putImpl(Object key, int value) {
        Callback.objectMapPut(myHandle, key, value);
    }

    final int getImpl(Object key, int absent) {
        return Callback.objectMapGet(myHandle, key, absent);
    }

    final int removeImpl(Object key, int absent) {
        return Callback.objectMapRemove(myHandle, key, absent);
    }

    final boolean containsImpl(Object key) {
        return Callback.objectMapContains(myHandle, key);
    }

    @Override
    protected void finalize() {
        long handle = myHandle;
        myHandle = 0;
        Callback.deleteObjectMap(handle);
    }
}
