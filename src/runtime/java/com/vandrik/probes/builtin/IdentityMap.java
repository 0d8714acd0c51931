package com.vandrik.probes.builtin;

import java.lang.ref.Reference;
import java.lang.ref.ReferenceQueue;
import java.lang.ref.WeakReference;
import java.util.HashMap;
import java.util.Map;

/**
 * What a probe keeps of objects of the application, told by identity, for as long as they live.
 * Calls none of their methods. A value must not refer to its key.
 */
final class IdentityMap<V> {
    private final Map<Object, V> myValues = new HashMap<Object, V>();
    private final ReferenceQueue<Object> myDead = new ReferenceQueue<Object>();

    /** A key that is only looked up with. */
    private static final class Lookup {
        private final Object myObject;

        Lookup(Object object) {
            myObject = object;
        }

        @Override
        public int hashCode() {
            return System.identityHashCode(myObject);
        }

        @Override
        public boolean equals(Object other) {
            return other instanceof Key && ((Key) other).get() == myObject;
        }
    }

    private static final class Key extends WeakReference<Object> {
        private final int myHash;

        Key(Object object, ReferenceQueue<Object> queue) {
            super(object, queue);
            myHash = System.identityHashCode(object);
        }

        @Override
        public int hashCode() {
            return myHash;
        }

        @Override
        public boolean equals(Object other) {
            if (this == other) {
                return true;
            }
            Object object = get();
            return object != null && other instanceof Key && ((Key) other).get() == object;
        }
    }

    synchronized V get(Object object) {
        return myValues.get(new Lookup(object));
    }

    synchronized void put(Object object, V value) {
        forgetDead();
        myValues.remove(new Lookup(object));
        myValues.put(new Key(object, myDead), value);
    }

    synchronized V remove(Object object) {
        forgetDead();
        return myValues.remove(new Lookup(object));
    }

    synchronized int getSize() {
        forgetDead();
        return myValues.size();
    }

    private void forgetDead() {
        for (Reference<?> dead = myDead.poll(); dead != null; dead = myDead.poll()) {
            myValues.remove(dead);
        }
    }
}
