// What `vdk top` shows of an interval: the overview of methods and threads, or one view of what is
// recorded; of one JVM, or of several together.
#pragma once

#include "client/commands/TopMoment.h"

#include <string>
#include <vector>

namespace vdk {

enum class JvmState { Up, Silent, Gone };

// A JVM in the view. Without two moments it has no numbers (yet).
struct TopSubject {
    const AgentInfo& info;
    const DataSource& source; // for what explains an empty view
    JvmState state;
    const Moment* before;
    const Moment* now;
};

class TopView {
public:
    // With `isOfMany` JSON has a list of JVMs, and there is a key that goes through them.
    TopView(Console& console, bool isOfMany) : console(console), isOfMany(isOfMany) {}

    // Shows the intervals of the JVMs. On a terminal all of the screen is used, with `keys` the
    // last line for these.
    void show(const std::vector<TopSubject>& subjects, const TopChoices& choices, bool keys);

private:
    struct Part {
        const TopSubject& subject;
        std::string jvm; // as columns have it; empty where there is one JVM
        TopInterval interval;
    };
    // A line of a list: whose it is, and which of that one's.
    struct Line {
        const Part* part;
        size_t index;
        int64_t weight;
    };

    void print(Console& page);
    void printTimes(Console& page, size_t lines, size_t nameWidth);
    std::vector<std::string> headOf() const;
    std::vector<std::string> headOfOne(const TopSubject& subject) const;
    size_t printHead(Console& page);
    size_t printJvms(Console& page);
    void printMethods(Console& page, size_t lines, size_t nameWidth);
    void printThreads(Console& page, size_t most, size_t nameWidth);
    void printAllocations(Console& page, size_t nameWidth);
    void printShown(Console& page);
    void putOnScreen(const std::string& text);
    void writeJson();
    void writeJvm(JsonWriter& json, const TopSubject& subject, const Part* part);
    void writeAllocations(JsonWriter& json, const TopInterval& interval);
    void writeMethods(JsonWriter& json, const TopInterval& interval, const Profile& profile);
    void writeShown(JsonWriter& json, const TopInterval& interval, const Moment& now);

    template <typename List, typename Weight>
    std::vector<Line> heaviestLines(List list, size_t most, Weight weight) const;
    // Null for one without numbers.
    const Part* partOf(const TopSubject& subject) const;
    bool isOfOne() const { return subjects->size() == 1; }
    // The columns of a list, with one for the JVM ahead of the last.
    std::vector<TextTable::Column> withJvm(std::vector<TextTable::Column> columns) const;
    std::vector<std::string> withJvm(const Part& part, std::vector<std::string> cells) const;
    bool hasCounts() const;
    double seconds() const;
    bool isMethodTable() const {
        return !choices.show || (choices.show == Shown::Cpu && choices.by == Grouping::Method);
    }
    ReportChoices reportChoices() const;

    Console& console;
    const bool isOfMany;
    TopChoices choices;
    bool keys = false;
    const std::vector<TopSubject>* subjects = nullptr; // while they are shown
    std::vector<Part> parts;                           // of those with numbers
    int64_t whole = 0;                                 // CPU time of all
};

} // namespace vdk
