#pragma once

#include "core/ground/NameBits.h"
#include "instrument/ClassBatches.h"

// ClassesBack: loaded classes that carry calls which nobody wants any more are retransformed, a
// batch at a time. Those whose definition was under way meanwhile follow in a few later looks.
class ClassesBack {
public:
    // Whether a class of this internal name may carry such calls. Called with ourLock held.
    typedef bool (*Carries)(const ZString& name);

    // Neither this nor step() may be called with ourLock held.
    ClassesBack(JNIEnv* javaEnv, Carries carries);

    // The next batch, or the next look. False when none is left.
    bool step();

    int getSize() const { return classes.getSize(); }
    int getPlace() const { return classes.getPlace(); } // failed ones among them
    int getDone() const { return classes.getDone(); }
    long getLongestStopNs() const { return classes.getLongestStopNs(); }

private:
    // Whether there are classes that were not seen before.
    bool collect();

    JNIEnv* env;
    const Carries mayCarry;
    ClassList classes;
    NameBits<1U << 17> collected;
    int looks = 0;
};
