#pragma once

// Exceptions: the table of exceptions by thread, class, throwing and catching frame.
class Exceptions {
public:
    // Empties the table and tells readers. Caller holds ourLock.
    static void clearExceptions();
};
