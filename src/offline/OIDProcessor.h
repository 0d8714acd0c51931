#pragma once

// OIDProcessor: turns the object ids of a heap into row numbers, which are the sorted order of the
// ids from 1 on. Ids are collected, sorted once and then looked up by binary search. One thread at
// a time.
class OIDProcessor {
public:
    // wide: ids take 8 bytes, otherwise 4, and an id beyond 32 bits is an internal error. capacity
    // is the most ids that will come. Throws std::bad_alloc.
    OIDProcessor(bool wide, int capacity);
    ~OIDProcessor();
    OIDProcessor(const OIDProcessor&) = delete;
    OIDProcessor& operator=(const OIDProcessor&) = delete;

    // Appends count ids; more than the capacity is an internal error.
    void processOIDs(const long* oids, int count);
    // Sorts the ids. To be called once all have come.
    void convertOIDsToIndices();
    // The row number of an id, 0 if it never came.
    int getIndex(long oid) const;
    int getCount() const { return count; }

private:
    long idAt(int position) const { return wideIds != nullptr ? wideIds[position] : ids[position]; }

    int capacity;
    int count;
    long* wideIds; // one of the two is null
    int* ids;
};
