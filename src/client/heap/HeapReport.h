// What the reports over a heap share: how objects are named, and the frame of their output.
#pragma once

#include "client/commands/Command.h"
#include "client/heap/HeapSession.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vdk {

// "0x7f3a10" or, in a snapshot, the number of the object.
std::string heapId(const HeapModel& model, int row);

// What an object is, in one line: "java.lang.String @0x7f3a10 \"text\"", "class java.util.Map @..",
// "byte[16] @..", a thread with its name.
std::string heapLabel(const HeapModel& model, int row);

// Text of a string or name of a thread or class that says more about an object; may be empty.
std::string heapDetail(const HeapModel& model, int row, uint32_t maxChars);

// Members "id", "class", "shallow", "retained" (if analyzed), "length" (of arrays) and "text" (if
// there is one) of an open object.
void writeHeapObject(JsonWriter& json, const HeapSession& session, int row);

// How classes are named on the command line.
constexpr char HeapClassNameHint[] =
    "names are like java.util.HashMap$Node or byte[]; * is any text";

// Name of a kind of root.
const char* heapRootName(uint32_t kind);

// "java.lang.Thread \"main\" at com.example.Main.run(Main.java:12)", as far as it is known.
std::string heapRootPlace(const HeapModel& model, const HeapRoot& root);

// The name of a local variable; "" where the file has none.
std::string heapRootVariable(const HeapModel& model, const HeapRoot& root);

// Opens the document of a report: schema, file, format, number of objects, sizes and remarks.
// Remarks on another file that the report is about come first.
void beginHeapDocument(JsonWriter& json, const char* schema, const HeapSession& session,
                       const std::vector<std::string>& otherRemarks = {});

// Throws ClientError for a heap that does not tell when and where its objects were made.
void requireHeapOrigins(const HeapModel& model);
// The frame that made an object, without what stands for its class; null if it was not recorded.
const HeapSiteFrame* heapSiteOf(const HeapModel& model, int row);

// A report of `vdk heap`. HeapReports.cpp lists them.
struct HeapReport {
    const char* name;
    const char* arguments; // as the help shows them
    const char* help;      // one line
    // Options beside those that every report takes, each between blanks: " --where --sort ".
    const char* options;
    // Returns an exit code and throws ClientError.
    int (*run)(Console& console, const Arguments& arguments);
    bool graphNeeded; // shows more than sizes and the dominator tree
};

const std::vector<HeapReport>& heapReports();
std::vector<std::string> heapReportNames();
// "--top", ... of all reports.
std::vector<std::string> heapOptionNames();
// A line for each report.
std::string heapReportHelp();

// The report that the command line asks for shows classes, roots or references.
bool heapReportNeedsGraph(const Arguments& arguments);
// What the command line says about the heap to open.
HeapOptions heapOptions(const Arguments& arguments);
// The arguments behind the name of the report; throws ClientError (Usage) for more or fewer.
const std::vector<std::string>& heapArguments(const Arguments& arguments, size_t least, size_t most,
                                              const char* what);
// Lines to show: --top, or the fallback.
size_t heapTop(const Arguments& arguments, size_t fallback);

} // namespace vdk
