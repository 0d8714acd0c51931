#pragma once

// The keys by which a thread stands in the database. ThreadInfo, the agent's per-thread state,
// derives from it; the indexes need no more of a thread than this.
struct ThreadKeys {
    int tfiThreadIndex = 0; // key in ThreadFrameIndex, reused after the thread was merged away
    int trn = 0;            // running number, never reused
    bool needsWallTimeCorrection = false;
};
