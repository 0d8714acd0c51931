// Ways through the references of an opened heap.
#pragma once

#include "client/heap/HeapSession.h"

#include <string>
#include <vector>

namespace vdk {

// A shortest path: the rows from the root to the object, empty if no root reaches it; of several
// the one of the lowest rows, seen from the object. Weak, soft and phantom references are passed
// over unless alsoWeak. Uses the table of referrers only if it is there.
std::vector<int> shortestPath(const HeapSession& session, int target, bool alsoWeak);

// What the first reference from one object to another is, "?" if there is none.
std::string nameOfReference(const HeapModel& model, int from, int to);

// The roots that a row is, in the order of the file.
std::vector<const HeapRoot*> rootsOf(const HeapModel& model, int row);

// "root: thread main ...", the object at the root and each step below it, a line each, indented.
void printPath(Console& console, const HeapModel& model, const std::vector<int>& path,
               const std::string& indentation);

// The fields "roots" and "path".
void writePath(JsonWriter& json, const HeapSession& session, const std::vector<int>& path);

} // namespace vdk
