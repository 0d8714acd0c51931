// A recording as a set of tables and views, for SQL and CSV: what reports show, by numbers that
// join, and behind that the tables of the database as they are.
#pragma once

#include "client/commands/Sources.h"
#include "client/heap/sql/SqlTable.h"
#include "client/picture/Picture.h"
#include "client/profile/Selection.h"

#include <string>
#include <vector>

namespace vdk {

struct RecordedChoices {
    Selection selection; // of what reports show; the tables of the database are whole
    bool filters = false;
    bool signatures = false;
    bool rawNames = false;
};

// The tables read from the database, which must outlive them and not change.
std::vector<SqlTable> recordedTables(DB& db, const RecordedChoices& choices,
                                     std::vector<std::string>& unmatched);
const std::vector<SqlView>& recordedViews();

} // namespace vdk
