#include "client/profile/Selection.h"

#include "client/console/Text.h"
#include "core/ground/WildcardMatch.h"

#include <map>

namespace vdk {

namespace {

std::vector<MethodPattern> patternsOf(const std::vector<std::string>& texts) {
    return {texts.begin(), texts.end()};
}

// Which methods of a profile match one of the patterns.
std::vector<bool> matchingMethods(const Profile& profile, const std::vector<std::string>& texts,
                                  std::set<std::string>* unmatched = nullptr) {
    std::vector<bool> matching(profile.methods.size());
    const std::vector<MethodPattern> patterns = patternsOf(texts);
    for (size_t i = 0; i < patterns.size(); i++) {
        bool isMatched = false;
        for (size_t method = 0; method < profile.methods.size(); method++) {
            if (patterns[i].matches(profile.methods[method])) {
                matching[method] = isMatched = true;
            }
        }
        if (!isMatched && unmatched) {
            unmatched->insert(texts[i]);
        }
    }
    return matching;
}

// Whether a name ends with the text, behind a dot or as a whole.
bool endsWithPart(const std::string& name, const std::string& text) {
    return endsWith(name, text) &&
           (name.size() == text.size() || name[name.size() - text.size() - 1] == '.');
}

} // namespace

MethodPattern::MethodPattern(const std::string& written)
    : pattern(written.substr(0, written.find('('))) {
    for (const char* separator : {"::", "#", ":", "/"}) {
        for (size_t at = 0; (at = pattern.find(separator, at)) != std::string::npos; at++) {
            pattern.replace(at, std::char_traits<char>::length(separator), ".");
        }
    }
    hasWildcard = pattern.find('*') != std::string::npos;
}

bool MethodPattern::matches(const ProfileMethod& method) const {
    const std::string full = method.fullName(false);
    if (hasWildcard) {
        return wildcardMatch(pattern.c_str(), full.c_str());
    }
    return endsWithPart(full, pattern) || endsWithPart(method.className, pattern) ||
           startsWith(method.className, pattern + ".");
}

bool Selection::isEmpty() const {
    return threads.empty() && include.empty() && exclude.empty() && focus.empty() && !noWaits;
}

StackSelector::StackSelector(const Profile& profile, const Selection& chosen) : selection(chosen) {
    unmatched.insert(selection.threads.begin(), selection.threads.end());
    for (const ProfileThread& thread : profile.threads) {
        bool kept = selection.threads.empty();
        for (const std::string& pattern : selection.threads) {
            if (wildcardMatch(pattern.c_str(), thread.name.c_str()) ||
                wildcardMatch(pattern.c_str(), thread.group.c_str())) {
                unmatched.erase(pattern);
                kept = true;
            }
        }
        isThreadKept.push_back(kept);
        if (kept) {
            keptThreads.insert(thread.name);
        }
    }
    markFrames(profile);
}

// A parent stands before its children, so one pass will do.
void StackSelector::markFrames(const Profile& profile) {
    const std::vector<bool> included = matchingMethods(profile, selection.include, &unmatched);
    const std::vector<bool> excluded = matchingMethods(profile, selection.exclude, &unmatched);
    const std::vector<bool> focused = matchingMethods(profile, selection.focus, &unmatched);
    struct Passed {
        bool include, exclude, focus;
    };
    std::vector<Passed> passed(profile.frames.size());
    isFrameKept.resize(profile.frames.size());
    for (size_t i = 0; i < profile.frames.size(); i++) {
        const Profile::Frame& frame = profile.frames[i];
        const size_t method = size_t(frame.method);
        Passed& now = passed[i];
        now = frame.parent > 0 ? passed[size_t(frame.parent)] : Passed{};
        if (i > 0 && focused[method] && !now.focus) {
            firstFrames.push_back(int(i));
        }
        now.include = now.include || included[method];
        now.exclude = now.exclude || excluded[method] ||
                      (selection.noWaits && profile.isWallTime(frame.method));
        now.focus = now.focus || focused[method];
        isFrameKept[i] = (now.include || selection.include.empty()) && !now.exclude &&
                         (now.focus || selection.focus.empty());
    }
}

bool StackSelector::keepsFrame(int frame) const {
    return size_t(frame) < isFrameKept.size() && isFrameKept[size_t(frame)];
}

bool StackSelector::keeps(const std::string& thread, int frame) const {
    return (selection.threads.empty() || keptThreads.count(thread) != 0) && keepsFrame(frame);
}

void StackSelector::apply(Profile& profile) const {
    const auto isKept = [&](const auto& row) {
        return isThreadKept[size_t(row.thread)] && keepsFrame(row.frame);
    };
    keepRows(profile.charges, isKept);
    keepRows(profile.j2ee, isKept);
    for (size_t i = 0; i < profile.threads.size(); i++) {
        if (!isThreadKept[i]) {
            profile.threads[i].sampled = {};
        }
    }
    for (int frame : firstFrames) {
        profile.frames[size_t(frame)].parent = 0;
    }
}

std::vector<std::string> StackSelector::findUnmatched() const {
    return {unmatched.begin(), unmatched.end()};
}

namespace {

// Adds reversed stacks to a profile.
class CallerStacks {
public:
    CallerStacks(const Profile& profile, Profile& callers) : profile(profile), callers(callers) {
        callers.frames.resize(1);
    }

    void add(const Charge& charge) {
        int node = 0;
        for (int frame = charge.frame; frame > 0; frame = profile.frames[size_t(frame)].parent) {
            node = child(node, profile.frames[size_t(frame)].method);
            if (charge.count != 0) {
                callers.charges.push_back({charge.thread, node, 0, charge.count});
            }
        }
        callers.charges.push_back({charge.thread, node, charge.own, 0});
    }

private:
    int child(int parent, int method) {
        auto [entry, isNew] = children.try_emplace({parent, method}, int(callers.frames.size()));
        if (isNew) {
            callers.frames.push_back({parent, method});
        }
        return entry->second;
    }

    const Profile& profile;
    Profile& callers;
    std::map<std::pair<int, int>, int> children;
};

} // namespace

Profile callersOf(const Profile& profile, const std::vector<std::string>& patterns) {
    const std::vector<bool> matching = matchingMethods(profile, patterns);
    std::vector<int> outermost(profile.frames.size());
    for (size_t i = 1; i < profile.frames.size(); i++) {
        const Profile::Frame& frame = profile.frames[i];
        outermost[i] = frame.parent > 0 ? outermost[size_t(frame.parent)] : 0;
        if (outermost[i] == 0 && matching[size_t(frame.method)]) {
            outermost[i] = int(i);
        }
    }
    // What was spent below one frame by one thread is added up first: stacks are deep.
    std::map<std::pair<int, int>, Charge> below;
    for (const Charge& charge : profile.charges) {
        const int frame = outermost[size_t(charge.frame)];
        if (frame == 0) {
            continue;
        }
        const bool isOfMethod = matching[size_t(profile.frames[size_t(charge.frame)].method)];
        Charge& sum = below[{charge.thread, frame}];
        sum = {charge.thread, frame, sum.own + charge.own,
               sum.count + (isOfMethod ? charge.count : 0)};
    }
    Profile callers;
    callers.methods = profile.methods;
    callers.threads = profile.threads;
    callers.hasCounts = profile.hasCounts;
    callers.measure = profile.measure;
    callers.samplingInterval = profile.samplingInterval;
    callers.isOfCallers = true;
    CallerStacks stacks(profile, callers);
    for (const auto& [key, charge] : below) {
        stacks.add(charge);
    }
    return callers;
}

} // namespace vdk
