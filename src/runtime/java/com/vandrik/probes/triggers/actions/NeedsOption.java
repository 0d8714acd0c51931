package com.vandrik.probes.triggers.actions;

/** An action that reaches out of the JVM: the agent's options have to allow it. */
public interface NeedsOption {
    /** Name of the option. */
    String getNeededOption();
}
