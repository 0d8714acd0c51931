#pragma once

// The texts and lists of filters that hold where no file says otherwise. Each comes in two parts:
// the list as users know it from the documentation, and what the JVMs of today need for the same
// effect, with the reason of each row.

struct WaitMethod {
    const char* className;
    const char* methodName;
    const char* reason; // null in the first part
};

extern const char* const ourDefaultGeneralFilters[];
extern const int ourDefaultGeneralFilterCount;

struct FilterAddition {
    const char* line;
    const char* reason;
};
extern const FilterAddition ourGeneralFilterAdditions[];
extern const int ourGeneralFilterAdditionCount;

extern const char ourDefaultWallTimeText[];
extern const FilterAddition ourWallTimeAdditions[];
extern const int ourWallTimeAdditionCount;

extern const WaitMethod ourWaitMethods[];
extern const int ourWaitMethodCount;
extern const WaitMethod ourWaitMethodAdditions[];
extern const int ourWaitMethodAdditionCount;
