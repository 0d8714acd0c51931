#include "core/ground/WildcardMatch.h"

// Greedy matching with one point to go back to: when a piece behind a star does not fit, the star
// takes one byte more. An earlier star never has to be tried again, since whatever it could take,
// the later star can take too.
bool wildcardMatch(const char* pattern, const char* text) {
    if (pattern == nullptr) {
        return true;
    }
    const char* retryPattern = nullptr; // behind the last star
    const char* retryText = nullptr;    // what that star does not take yet
    while (*text != 0) {
        if (*pattern == '*') {
            while (*pattern == '*') {
                pattern++;
            }
            if (*pattern == 0) {
                return true;
            }
            retryPattern = pattern;
            retryText = text;
        } else if (*pattern == *text) {
            pattern++;
            text++;
        } else if (retryPattern != nullptr) {
            pattern = retryPattern;
            text = ++retryText;
        } else {
            return false;
        }
    }
    while (*pattern == '*') {
        pattern++;
    }
    return *pattern == 0;
}
