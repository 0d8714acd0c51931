#pragma once

// Names of the agent's Java classes that several layers speak of, as a class file has them or,
// where it says so, as a user writes them.
constexpr char CALLBACK_CLASS[] = "com/vandrik/runtime/Callback";
constexpr char CALLBACK_CLASS_DOTTED[] = "com.vandrik.runtime.Callback";
constexpr char LOADING_PROBE_DOTTED[] = "com.vandrik.probes.builtin.AgentLoadingSupport";
constexpr char J2EE_PROBE_DOTTED[] = "com.vandrik.probes.builtin.J2EESupport";
// The beginning of the names; a number follows.
constexpr char TRIGGER_PROBE_DOTTED[] = "com.vandrik.probes.triggers.MethodListenerProbe_";
