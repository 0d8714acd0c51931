// Files and sockets by name: how often they were opened, and what went through them.
#pragma once

#include "client/console/Console.h"
#include "client/events/ProbeTables.h"

namespace vdk {

// The tables whose rows transfers belong to.
struct TransferOwners {
    std::vector<const char*> tables;
    const char* nameColumn;
    const char* title; // of the names
    const char* field; // in JSON
    bool havePorts;    // names end in ":port"; many rare ports of a host are one name
};
extern const TransferOwners FileOwners;
extern const TransferOwners SocketOwners;

// Ports of a host with a smaller share of its connections each than one in so many are one line,
// "host:*", where there are so many of them.
constexpr int64_t RareShare = 20;
constexpr int64_t ManyPorts = 5;

struct TransferSums {
    int64_t opened = 0, open = 0, failed = 0;
    int64_t reads = 0, bytesRead = 0, writes = 0, bytesWritten = 0;
    int64_t timeNs = 0; // of all transfers

    TransferSums& operator+=(const TransferSums& other);
};

std::map<std::string, TransferSums> transferSums(const ProbeTables& tables,
                                                 const TransferOwners& owners);
// Rows of all these tables that were refused.
int64_t refusedTransfers(const ProbeTables& tables, const TransferOwners& owners);

void printTransfers(Console& console, const ProbeTables& tables, const TransferOwners& owners,
                    size_t top);
// The fields of an object that the caller has begun.
void writeTransfers(JsonWriter& json, const ProbeTables& tables, const TransferOwners& owners,
                    size_t top);

} // namespace vdk
