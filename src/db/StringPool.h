#pragma once

#include "core/ground/ZMap.h"
#include "core/ground/ZSet.h"
#include "core/ground/ZVector.h"

class DB;

// StringPool maps text to rows of the table string: a record holds no characters, only such an
// index. Index 0 means no string, everywhere. A key of the map is the text of its row, which owns
// it. A look-up is one hash probe without allocation. The database's owner locks, and an index not
// yet stored in a record may be collected as soon as that lock is released.
class StringPool {
public:
    explicit StringPool(DB* database)
        : indices(INITIAL_CAPACITY), db(database), newTexts(0), textsAfterLastWalk(0), events(0),
          slotsOfLastWalk(0) {}
    StringPool(const StringPool&) = delete;
    StringPool& operator=(const StringPool&) = delete;

    // Index of the text; 0 for null, and for an unknown text without create.
    int getDBIndex(const char* text, bool create);
    // Puts the text at a given index, in place of any text there. Null does nothing. The index pool
    // of the table is not touched.
    void setDBIndex(const char* text, int index);
    // Stores a row as another process wrote it: with its stamp, and without text if that is null
    // (a deleted row). Takes the text over, which must come from malloc.
    void loadRow(int index, int stamp, char* text);
    // Text of a row, null for index 0 and rows without text.
    const char* getText(int index) const;
    // Deletes the rows that no row of another table refers to, in any field that the record
    // catalogue says holds a string. The walk is over whole tables.
    void collectGarbageStrings();
    // Collects if the texts have about doubled since the last time, so a new text costs the same
    // however many there were. Called where rows come and go and no index is held outside a record.
    void collectIfGrown();
    // Collects, unless so little happened since the last time that the walk would be too dear:
    // `events` more threads, or other events that may leave texts behind, have ended.
    void collectIfEarned(int events);
    // From here on collections spare the rows in this set, whatever it holds then: for indices that
    // are kept outside the tables. The set outlives the pool.
    void keepNamed(const ZSet<int>* rows) { keptRows.push(rows); }
    // Forgets all texts; for the table, which is about to free them.
    void forgetAll() { indices.clear(); }

private:
    static constexpr int INITIAL_CAPACITY = 1000;

    ZMap<const char*, int> indices;
    ZVector<const ZSet<int>*> keptRows;
    DB* db;
    // Since the last collection, and of it.
    long newTexts;
    long textsAfterLastWalk;
    long events;
    long slotsOfLastWalk;
};
