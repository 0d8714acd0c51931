#pragma once

#include "core/ground/ZVector.h"

#include <jvmti.h>

// StackMemory: the last stack that was read of a thread, as handles and as frames, both from the
// outermost call on. Two samples of a thread mostly share the outer part of their stacks, and for
// that part the frames need no look-up. Handles of a live stack never change their meaning and
// frames are never released, so what it holds stays true.
struct StackMemory {
    ZVector<jmethodID> methods;
    ZVector<int> frames;

    // How many calls of a stack, whose innermost frame comes first, are the same from the outermost
    // one on.
    int commonDepth(const jvmtiFrameInfo* innermost, int depth) const {
        const int limit = depth < methods.getSize() ? depth : methods.getSize();
        const jmethodID* known = methods.data();
        int common = 0;
        while (common < limit && known[common] == innermost[depth - 1 - common].method) {
            common++;
        }
        return common;
    }

    void truncate(int depth) {
        methods.removeRange(depth, methods.getSize());
        frames.removeRange(depth, frames.getSize());
    }
};
