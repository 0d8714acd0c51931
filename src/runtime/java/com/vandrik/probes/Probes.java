package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** Registers and unregisters probes while the application runs. */
public final class Probes {
    private Probes() {
    }

    public static void registerProbes(Class<?>... probes) {
        registerProbes(getNames(probes));
    }

    /** Fails with the messages of the registration. */
    public static void registerProbes(String... classNames) {
        String failure = Callback.registerProbesByName(classNames);
        if (failure != null) {
            throw new RuntimeException(failure);
        }
    }

    public static void unregisterProbes(Class<?>... probes) {
        unregisterProbes(getNames(probes));
    }

    public static void unregisterProbes(String... classNames) {
        Callback.unregisterProbes(classNames);
    }

    private static String[] getNames(Class<?>[] classes) {
        String[] names = new String[classes.length];
        for (int i = 0; i < classes.length; i++) {
            names[i] = classes[i].getName();
        }
        return names;
    }
}
