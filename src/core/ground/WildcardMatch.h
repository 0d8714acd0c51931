#pragma once

// The one text matcher of the system. "*" stands for any run of bytes, also an empty one;
// everything else is compared exactly. A null pattern matches everything; text must not be null.
// Takes time proportional to the product of the lengths at worst, whatever the pattern.
bool wildcardMatch(const char* pattern, const char* text);
