#pragma once

#include "classfile/ClassFile.h"
#include "instrument/CallSet.h"

class ClassNameFilter;

// WantedCalls: the one place that decides which calls a class carries.
//
// DESCRIPTION
//   The set follows from what is wanted at this moment, what the class is, and the JVM. Calls of
//   tracing and of allocations are wanted from the start on wherever these may ever run, since they
//   are switched by the class Callback; with the option `ondemand` they are switched here as the
//   others are, while the JVM runs: the load hook asks for each class, as it is loaded and whenever
//   it is retransformed, so after a switch the loaded classes for which isAffected holds have to be
//   retransformed (OnDemandCalls.h for those of recordings).
// IMPLEMENTATION
//   Which classes have a `catch`, and which carry calls there, is kept as bits by the hash of the
//   name: a few classes too many are retransformed, and the memory does not grow.
//
// Caller holds ourLock in every operation but now().
class WantedCalls {
public:
    // The kinds that some class may carry; while the agent is away nothing but what loaders have
    // already. Empty: no class has to be looked at. Takes no lock.
    static CallSet now();
    // What a class carries that is being loaded or retransformed. unasked: it was there before the
    // agent, and is retransformed for the sake of a switch alone.
    static ClassCalls ofClass(ClassFile& classFile, bool unasked);
    // The hook has rewritten the class, or left it as it is.
    static void onRewritten(const ZString& name, CallSet calls, bool hasCatches);

    // Switches kinds on that are not wanted from the start on, or off. Classes that carry calls at
    // `catch` stay affected until forgetCarriers.
    static void switchKinds(CallSet kinds, bool isOn);
    // Calls at `catch` come into classes that this filter lets through; null passes all. It is the
    // callee's from here on.
    static void setCatchFilter(ClassNameFilter* filter);
    // Whether a loaded class may have to be retransformed after a switch of these kinds: when they
    // are on, what may take them, and else what may carry them. Internal name.
    static bool isAffected(const ZString& name, CallSet kinds);
    static void forgetCarriers();

    // With `ondemand`: calls of tracing come only into classes of these patterns, ";" between them;
    // empty for all.
    static void setTracedOnly(const ZString& patterns);
    static bool isTraced(const ZString& name);
    // Whether the class was given calls of a recording since they were last forgotten.
    static bool mayCarryRecording(const ZString& name);
    static void forgetRecording();
};
