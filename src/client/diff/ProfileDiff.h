// Two recordings compared: per thing that was recorded what each method and each call path has in
// both, and whether that is more than somebody allows.
#pragma once

#include "client/picture/Picture.h"

#include <optional>
#include <string>
#include <vector>

namespace vdk {

// What values are compared by: as they are, by second of recording, call, request, or as shares.
enum class Per { Nothing, Second, Call, Request, Share };

// What each side has of these; 0 where it is not known.
struct Extent {
    double seconds = 0, calls = 0, requests = 0;
};

struct DiffRow {
    std::string name;
    NameSums::Of base, now; // as recorded
};

struct DiffSection {
    std::string id, title, unit, countTitle;
    double factor = 1; // for values of the base
    int64_t base = 0, now = 0;
    std::vector<DiffRow> rows;  // by falling change of own values
    std::vector<DiffRow> paths; // likewise; frames with " > " between them

    double changeOfOwn(const DiffRow& row) const {
        return double(row.now.own) - double(row.base.own) * factor;
    }
};

// Throws ClientError Usage where it is not known how much of that there is.
double factorFor(Per per, const Extent& base, const Extent& now, const DiffSection& section);
std::vector<DiffSection> diffSections(const Picture& picture);
void sortByChange(DiffSection& section);

// "PATTERN:10%": how much the total of methods may grow, or how large a share of all they may have
// themselves. The pattern is a method's, as MethodPattern has it, or the word total.
struct DiffLimit {
    std::string pattern;
    double percent = 0;
    bool isOfGrowth = true;
};
// Throws ClientError Usage for a text of another form.
DiffLimit diffLimit(const std::string& text, bool isOfGrowth);

// The reasons for a no. What is less than `leastPercent` of all at both sides is not looked at.
std::vector<std::string> brokenLimits(const std::vector<DiffSection>& sections,
                                      const std::vector<DiffLimit>& limits, double leastPercent);

std::string amountOf(double value, const std::string& unit);
// "+12.3%", "new" or "gone".
std::string growthOf(double base, double now);

} // namespace vdk
