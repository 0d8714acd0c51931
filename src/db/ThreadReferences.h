#pragma once

#include "core/ground/ZSet.h"

class DB;

// Takes those running numbers of threads out of the set that a live row of some table names, in any
// field that the record catalogue or a predefined column says holds one; the rows of thread itself
// do not count. Gives the number of rows looked at. The database's owner locks.
long removeNamedThreads(DB* db, ZSet<int>* trns);
