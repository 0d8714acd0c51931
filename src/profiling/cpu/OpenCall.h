#pragma once

#include <cstdint>

// A traced call that has not returned yet.
struct OpenCall {
    // Above every place on a stack: for calls whose entry nobody saw.
    static constexpr uintptr_t UNKNOWN_PLACE = UINTPTR_MAX;

    int method;
    bool filtered;
    bool wall;       // its time is taken from the clock on the wall
    uintptr_t place; // on the thread's stack, which grows downwards, where its entry call ran
};

// One of those that have a frame.
struct OpenFrame {
    long startTime;
    long startCount; // number of calls traced in the thread before it
    long calleeTime; // what was charged to the calls made from there so far
    int frame;
    int method;
    int slot; // of the thread's CallCache, where the call is or was
};

// What a thread knows of how its traced stack relates to the JVM's. Only the thread itself touches
// it.
struct StackWatch {
    static constexpr int LEAST_LOOK = 128;

    bool cut = false;          // the outer part was too deep to be read
    int nextLook = LEAST_LOOK; // number of open calls at which the JVM's stack is looked at
    int patience = 0;          // impossible places that are taken for false alarms from here on
    int falseAlarms = 0;       // patience behind the last alarm
    // How far the entry of a method that caught in recursion lay above its handler's call.
    int catcher = -1;
    uintptr_t catchDistance = 0;
};
