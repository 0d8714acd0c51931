// The run functions of the commands; the tables that list them are in tables/. Each gives an exit
// code and throws ClientError.
#pragma once

#include "client/commands/Command.h"

namespace vdk {

int runList(Console& console, const Arguments& arguments);
int runRun(Console& console, const Arguments& arguments);
int runAttach(Console& console, const Arguments& arguments);
int runDetach(Console& console, const Arguments& arguments);
int runDoctor(Console& console, const Arguments& arguments);
int runStatus(Console& console, const Arguments& arguments);
int runRecord(Console& console, const Arguments& arguments);
int runSample(Console& console, const Arguments& arguments);
int runTrace(Console& console, const Arguments& arguments);
int runAlloc(Console& console, const Arguments& arguments);
int runRetransform(Console& console, const Arguments& arguments);
int runMonitors(Console& console, const Arguments& arguments);
int runExceptions(Console& console, const Arguments& arguments);
int runGeneration(Console& console, const Arguments& arguments);
int runClear(Console& console, const Arguments& arguments);
int runTop(Console& console, const Arguments& arguments);
int runThreads(Console& console, const Arguments& arguments);
int runThreadsNow(Console& console, const Arguments& arguments);
int runTelemetry(Console& console, const Arguments& arguments);
int runDump(Console& console, const Arguments& arguments);
int runGc(Console& console, const Arguments& arguments);
int runStats(Console& console, const Arguments& arguments);
int runSnapshot(Console& console, const Arguments& arguments);
int runReport(Console& console, const Arguments& arguments);
int runWatch(Console& console, const Arguments& arguments);
int runStack(Console& console, const Arguments& arguments);
int runMonitor(Console& console, const Arguments& arguments);
int runProbes(Console& console, const Arguments& arguments);
int runTriggers(Console& console, const Arguments& arguments);
int runTriggersCheck(Console& console, const Arguments& arguments);
int runTables(Console& console, const Arguments& arguments);
int runTable(Console& console, const Arguments& arguments);
int runSql(Console& console, const Arguments& arguments);
int runRequests(Console& console, const Arguments& arguments);
int runFiles(Console& console, const Arguments& arguments);
int runSockets(Console& console, const Arguments& arguments);
int runDiff(Console& console, const Arguments& arguments);
int runExport(Console& console, const Arguments& arguments);
int runHeap(Console& console, const Arguments& arguments);
int runHeapLive(Console& console, const Arguments& arguments);
// The part of runHeapCapture that asks the agent.
int captureWithSites(Console& console, const Arguments& arguments);
int runHeapCapture(Console& console, const Arguments& arguments);
int runMetrics(Console& console, const Arguments& arguments);
int runMcp(Console& console, const Arguments& arguments);
int runPush(Console& console, const Arguments& arguments);
int runCompletions(Console& console, const Arguments& arguments);

} // namespace vdk
