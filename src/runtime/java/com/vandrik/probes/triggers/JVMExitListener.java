package com.vandrik.probes.triggers;

/** Fires when the JVM ends. */
public final class JVMExitListener extends EventListener {}
