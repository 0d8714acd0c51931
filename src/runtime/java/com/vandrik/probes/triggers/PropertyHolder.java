package com.vandrik.probes.triggers;

import java.util.HashSet;
import java.util.Set;

/** What a line of the trigger text describes: its public fields are properties of that line. */
public abstract class PropertyHolder {
    /** Names of the properties that the line told; null for none. They are written back. */
    private Set<String> myGiven;

    /** Called with all properties in place. Fails with a text for the user. */
    protected void check() {
    }

    /** False if it has been given before. */
    final boolean noteGiven(String property) {
        if (myGiven == null) {
            myGiven = new HashSet<String>();
        }
        return myGiven.add(property);
    }

    final boolean isGiven(String property) {
        return myGiven != null && myGiven.contains(property);
    }
}
