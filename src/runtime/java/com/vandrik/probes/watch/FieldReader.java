package com.vandrik.probes.watch;

import com.vandrik.runtime.Callback;

/**
 * Reads a field of this name of any object, private ones too, past modules and without a call of
 * the application's code. Keeps what it found for the classes it met first.
 */
final class FieldReader {
    /** What an object has no such field gives. */
    static final Object MISSING = new Object();

    private static final int MOST_KNOWN = 16;

    private final String myName;
    private final Place myOwner;
    private volatile Place[] myPlaces = {};

    /** The field in one class. */
    private static final class Place {
        final Class<?> type;
        final long field;
        /** First character of its signature; 0: there is none. */
        final int kind;

        Place(Class<?> type, long[] found) {
            this.type = type;
            field = found == null ? 0 : found[0];
            kind = found == null ? 0 : (int) found[1];
        }
    }

    FieldReader(String name) {
        myName = name;
        myOwner = null;
    }

    /** Of the objects of one class, for ever; the others keep classes only as long as a watch. */
    FieldReader(String name, Class<?> owner) {
        myName = name;
        myOwner = new Place(owner, Callback.findField(owner, name));
    }

    /** Numbers come as Long or Double. */
    Object read(Object object) {
        Place place = placeIn(object.getClass());
        if (place.kind == 0) {
            return MISSING;
        }
        long[] bits = new long[1];
        Object value = Callback.readField(object, place.field, place.kind, bits);
        switch (place.kind) {
        case 'L':
        case '[':
            return value;
        case 'Z':
            return Boolean.valueOf(bits[0] != 0);
        case 'C':
            return Character.valueOf((char) bits[0]);
        case 'D':
            return Double.valueOf(Double.longBitsToDouble(bits[0]));
        case 'F':
            return Double.valueOf(Float.intBitsToFloat((int) bits[0]));
        default:
            return Long.valueOf(bits[0]);
        }
    }

    private Place placeIn(Class<?> type) {
        if (myOwner != null) {
            return myOwner;
        }
        Place[] places = myPlaces;
        for (Place place : places) {
            if (place.type == type) {
                return place;
            }
        }
        Place place = new Place(type, Callback.findField(type, myName));
        if (places.length < MOST_KNOWN) {
            Place[] more = new Place[places.length + 1];
            System.arraycopy(places, 0, more, 0, places.length);
            more[places.length] = place;
            myPlaces = more;
        }
        return place;
    }
}
