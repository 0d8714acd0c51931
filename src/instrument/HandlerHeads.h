#pragma once

#include "classfile/CodeAttribute.h"

// HandlerHeads: where the exception handlers of a method begin that get a call.
//
// DESCRIPTION
//   The call brings the traced stack to what the real one is. It is left out
//   - where the handler throws on without calling or creating anything: the monitor exit of a
//     synchronized block, the increment in a `finally`. What follows it is another handler's;
//   - where an error in the call could lead back to it: inside a range whose handler stands ahead
//   of
//     this one, or inside the handler's own range. A range that begins with its own handler, as old
//     compilers make them, is cut to begin behind the call;
//   - where no instruction begins.
class HandlerHeads {
public:
    struct Head {
        int position;
        bool catches; // a class of exceptions, as `catch` does; not all, as `finally`
    };
    // A row of the exception table whose range begins with its own handler, which is one of the
    // heads.
    struct OwnRange {
        int row;
        bool catches;
    };

    // Nothing but the scratch arena holds what is found.
    HandlerHeads(CodeAttribute* body, ClassArena& scratch);

    // Ascending.
    const ArenaVector<Head>& getHeads() const { return heads; }
    const ArenaVector<OwnRange>& ownRanges() const { return own; }
    bool anyCatches() const;

private:
    ArenaVector<Head> heads;
    ArenaVector<OwnRange> own;
};
