// Rows of a probe's table one by one, and the conditions that choose them.
#pragma once

#include "client/console/Console.h"
#include "client/events/ProbeTables.h"

#include <string>
#include <vector>

namespace vdk {

// Conditions that a row must meet, each as `COLUMN=TEXT`, `COLUMN!=TEXT`, `COLUMN~PART` (letters
// compared without case), `COLUMN>N` or `COLUMN<N`. Besides the columns of the table and those of
// its master tables there are time (a duration), cpu, thread and method.
class RowConditions {
public:
    // Throws ClientError Usage for a text that is no condition or names no column of the table.
    RowConditions(const ProbeTables& tables, const ProbeTable& table,
                  const std::vector<std::string>& conditions);
    bool accept(const ProbeRow& row) const;

private:
    enum class Test { Equal, Different, Contains, Above, Below };
    struct Condition {
        std::string column;
        ProbeTables::Path path; // empty for time and cpu
        Test test;
        std::string value;
        int64_t number = 0; // of Above and Below
    };
    static Condition parse(const std::string& text);
    bool accept(const Condition& condition, const ProbeRow& row) const;
    int64_t numberOf(const Condition& condition, const ProbeRow& row) const;
    std::string textOf(const Condition& condition, const ProbeRow& row) const;

    const ProbeTables& tables;
    const ProbeTable& table;
    std::vector<Condition> conditions;
};

// Stacks stand under the rows.
void printRows(Console& console, const ProbeTables& tables, const ProbeTable& table,
               const std::vector<const ProbeRow*>& rows, bool withStacks);

// One object for a row.
void writeRow(JsonWriter& json, const ProbeTables& tables, const ProbeTable& table,
              const ProbeRow& row, bool withStacks);

// The methods of a stack from the innermost outwards, without those that are hidden.
std::vector<std::string> stackOf(const ProbeTables& tables, const ProbeTable& table,
                                 const ProbeRow& row);

} // namespace vdk
