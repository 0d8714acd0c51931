#pragma once

class ThreadInfo;

// The platform thread that runs the current virtual one: what virtual threads do is booked there,
// as they have no ThreadInfo of their own.

// Of the thread that the calling native thread is; null if the agent does not know it. Not to be
// called with ourLock held: the first call on a thread may ask the JVM, which waits until no
// virtual thread is being mounted or unmounted.
ThreadInfo* getCarrierThreadInfo();

// The same if it was found before, null otherwise. Asks nobody.
ThreadInfo* getNativeThreadInfo();

// On the thread itself: it begins to be this one, or ends.
void setNativeThreadInfo(ThreadInfo* info);
