#pragma once

// FilteredMethods: which rows of the table `method` are filtered, a byte each, for who can read
// nothing else of the database. There are none until somebody asks for them, and from then on those
// whose filters are applied again.
namespace FilteredMethods {

constexpr int MOST_METHODS = 1 << 22; // what is beyond is not told

// The bytes, 1 for a filtered method; null where there is no memory. Never moved or freed;
// untouched where no methods are.
const unsigned char* bytes();
// Caller holds ourLock.
void set(int method, bool isFiltered);

} // namespace FilteredMethods
