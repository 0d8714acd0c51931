// Sums by class as the histograms show them.
#pragma once

#include "client/commands/Command.h"
#include "client/heap/HeapClasses.h"
#include "client/heap/HeapDocument.h"

#include <string>
#include <vector>

namespace vdk {

enum class SortKey { Retained, Shallow, Count, Name };

// What --sort says; by retained sizes where they are known, else by shallow ones.
SortKey sortKey(const Arguments& arguments, bool analyzed);

// What the key compares; nothing sensible for names.
int64_t sortValue(const HeapClassSum& sum, SortKey key);

void sortSums(std::vector<HeapClassSum>& sums, SortKey key);

void addTo(HeapClassSum& sum, const HeapClassSum& other);
HeapClassSum totalOf(const std::vector<HeapClassSum>& sums);

// The first `top` classes.
HeapTable sumTable(const std::vector<HeapClassSum>& sums, size_t top, bool retained);

// "12 objects, 1.2 KB of 345 objects, 67.8 MB in all", the first half for `some` of all.
std::string totalsText(const std::vector<HeapClassSum>& shown, const HeapClassSum& all, bool some);

// "*" in the pattern is any run of characters.
bool classNameMatches(const std::string& pattern, const std::string& name);

} // namespace vdk
