package com.vandrik.probes;

import com.vandrik.runtime.Callback;

/** Registers and unregisters probes while the application runs. */
public final class Probes {
    private Probes() {
    }

    /**
     * Registers probes and puts their calls into the classes that are loaded; returns when that is
     * done. None is registered if one is at fault.
     *
     * @param probes their classes, looked up by their names
     * @throws RuntimeException with the messages of the registration
     */
    public static void registerProbes(Class<?>... probes) {
        registerProbes(getNames(probes));
    }

    /**
     * Registers probes and puts their calls into the classes that are loaded; returns when that is
     * done. None is registered if one is at fault.
     *
     * @param classNames full names; a probe may be nested in the named class
     * @throws RuntimeException with the messages of the registration
     */
    public static void registerProbes(String... classNames) {
        String failure = Callback.registerProbesByName(classNames);
        if (failure != null) {
            throw new RuntimeException(failure);
        }
    }

    /**
     * Takes probes out of the classes again, those nested in the named ones too; returns when that
     * is done. Names of no probe are passed over.
     *
     * @param probes their classes
     */
    public static void unregisterProbes(Class<?>... probes) {
        unregisterProbes(getNames(probes));
    }

    /**
     * Takes probes out of the classes again, those nested in the named ones too; returns when that
     * is done. Names of no probe are passed over.
     *
     * @param classNames full names
     */
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
