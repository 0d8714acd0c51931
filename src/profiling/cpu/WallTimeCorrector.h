#pragma once

#include "core/ground/ZVector.h"

class ThreadInfo;

// WallTimeCorrector repairs the invariant that a frame's time is at least the sum of its
// children's: a wall-time frame under CPU-time frames breaks it. It costs a walk over the whole
// frame tree and runs only for threads that were flagged, and only before data is read. Caller
// holds ourLock.
class WallTimeCorrector {
public:
    // Takes the thread up if it is flagged, and clears its flag.
    void scheduleForCorrection(ThreadInfo* info);
    // Keeps a flagged thread that ends for the next correction, as its ThreadInfo goes away.
    static void threadEnds(ThreadInfo* info);
    // Takes up all threads that ended flagged since the last call.
    void scheduleEndedThreads();
    // Raises parents below the sum of their children, up to the root, for all scheduled threads.
    void correctWallTimes();

private:
    void correctFrame(int frame);

    ZVector<int> scheduled; // tfiThreadIndex values
};
