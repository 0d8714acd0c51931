package com.vandrik.probes.triggers;

/** Fires once, when the agent has started. */
public final class JVMStartListener extends EventListener {}
