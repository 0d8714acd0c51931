// The functions behind the table of reports; each in a file of its own or beside its like.
#pragma once

#include "client/commands/Command.h"

namespace vdk {

int reportHeapSummary(Console& console, const Arguments& arguments);
int reportHeapHistogram(Console& console, const Arguments& arguments);
int reportHeapBiggest(Console& console, const Arguments& arguments);
int reportHeapDominators(Console& console, const Arguments& arguments);
int reportHeapReferences(Console& console, const Arguments& arguments);
int reportHeapReferrers(Console& console, const Arguments& arguments);
int reportHeapPath(Console& console, const Arguments& arguments);
int reportHeapRetained(Console& console, const Arguments& arguments);
int reportHeapStrings(Console& console, const Arguments& arguments);
int reportHeapArrays(Console& console, const Arguments& arguments);
int reportHeapDiff(Console& console, const Arguments& arguments);
int reportHeapGenerations(Console& console, const Arguments& arguments);
int reportHeapSites(Console& console, const Arguments& arguments);
int reportHeapObjects(Console& console, const Arguments& arguments);
int reportHeapShow(Console& console, const Arguments& arguments);
int reportHeapSuspects(Console& console, const Arguments& arguments);
int reportHeapThreads(Console& console, const Arguments& arguments);
int reportHeapLoaders(Console& console, const Arguments& arguments);
int reportHeapPackages(Console& console, const Arguments& arguments);
int reportHeapUnreachable(Console& console, const Arguments& arguments);
int reportHeapHolders(Console& console, const Arguments& arguments);
int reportHeapCollections(Console& console, const Arguments& arguments);
int reportHeapDuplicates(Console& console, const Arguments& arguments);
int reportHeapReferenceObjects(Console& console, const Arguments& arguments);
int reportHeapPaths(Console& console, const Arguments& arguments);
int reportHeapSql(Console& console, const Arguments& arguments);
int reportHeapShell(Console& console, const Arguments& arguments);
int reportHeapServer(Console& console, const Arguments& arguments);
int reportHeapExport(Console& console, const Arguments& arguments);

// What `summary` shows; in a shell the questions that it proposes are typed without their command.
int showHeapFirstScreen(Console& console, const Arguments& arguments, bool inShell);
// The first screen, and with a terminal the shell behind it.
int runHeapWithoutReport(Console& console, const Arguments& arguments);

} // namespace vdk
