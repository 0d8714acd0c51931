// Which stacks of a profile a user wants to see: of which threads, through which methods, and from
// which method on; and the stacks turned round, from methods to their callers.
#pragma once

#include "client/profile/Profile.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace vdk {

// Methods, as people write them. Without a * a text stands for the method, the class or the package
// of that name, its beginning left out or not: `HashMap.put`, `HashMap`, `java.util`. With one it
// is compared with the class and the method, `java.util.*` or `*.get*`. `#`, `::`, `:` and `/` are
// as good as the dots, and parameters are passed over.
class MethodPattern {
public:
    explicit MethodPattern(const std::string& written);
    bool matches(const ProfileMethod& method) const;

private:
    std::string pattern;
    bool hasWildcard;
};

struct Selection {
    std::vector<std::string> threads; // names of threads or their groups, * being any text
    std::vector<std::string> include; // a stack needs a method of one of these,
    std::vector<std::string> exclude; // and none of these
    std::vector<std::string> focus;   // stacks begin at these; what never gets there is left out
    bool noWaits = false;             // nor methods that are measured in elapsed time

    bool isEmpty() const;
};

// What a selection keeps of a profile, and of rows that are told by its frames. The profile is
// looked at once, when this is made.
class StackSelector {
public:
    StackSelector(const Profile& profile, const Selection& selection);
    // Of a row that knows its thread by name.
    bool keeps(const std::string& thread, int frame) const;
    // Takes from the profile what is not kept, and lets its stacks begin where they are wanted to.
    void apply(Profile& profile) const;
    // The patterns that nothing of the profile matches.
    std::vector<std::string> findUnmatched() const;

private:
    bool keepsFrame(int frame) const;
    void markFrames(const Profile& profile);

    const Selection selection;
    std::vector<bool> isThreadKept;    // by index of Profile::threads
    std::set<std::string> keptThreads; // their names
    std::vector<bool> isFrameKept;
    std::vector<int> firstFrames; // where stacks begin
    std::set<std::string> unmatched;
};

template <typename Row, typename Kept>
void keepRows(std::vector<Row>& rows, Kept isKept) {
    rows.erase(
        std::remove_if(rows.begin(), rows.end(), [&](const Row& row) { return !isKept(row); }),
        rows.end());
}

// The profile of the callers of methods: its trees begin at the methods that match, and the
// children of a node are who called it. Each stack counts once, for the outermost of these methods
// on it, with all that was spent in it; counts are those of the methods themselves, whoever called
// them. Own times have no meaning in it.
Profile callersOf(const Profile& profile, const std::vector<std::string>& patterns);

} // namespace vdk
