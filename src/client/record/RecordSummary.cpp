#include "client/record/RecordSummary.h"

#include "client/console/Text.h"
#include "client/profile/Report.h"

#include <algorithm>

namespace vdk {

namespace {

std::string amount(int64_t value, const std::string& unit) {
    return unit == "ns"      ? formatNs(value)
           : unit == "bytes" ? formatBytes(value)
                             : formatCount(value);
}

std::string secondsText(double seconds) {
    return formatNs(int64_t(seconds * 1e9));
}

// "6.02 s of CPU, 99.4 % of it sampled, 0.2 % without a stack".
std::string cpuText(const RecordSummary& summary) {
    if (!summary.cpu.isKnown() || !summary.isOfCpu) {
        return "";
    }
    const std::string share = formatPercent(percentOf(summary.cpu.chargedNs, summary.cpu.usedNs));
    std::string text = formatNs(summary.cpu.usedNs) + " of CPU, " + share + " % of it sampled";
    if (summary.notWalkableNs > 0) {
        text += ", " + formatPercent(percentOf(summary.notWalkableNs, summary.cpu.usedNs)) +
                " % without a stack";
    }
    return text;
}

std::string nextStep(const RecordSummary& summary) {
    const std::string file = shellWord(summary.file);
    std::string text = infoOf(summary.form).next;
    for (size_t mark = 0; (mark = text.find('%', mark)) != std::string::npos;) {
        text.replace(mark, 1, file);
        mark += file.size();
    }
    return text;
}

void addHottest(RecordSummary& summary, DataSource& source, const Selection& selection,
                bool onlyCpu) {
    Picture picture({});
    addAll(picture, source.database(), Side::Now, true, selection);
    picture.finish();
    for (const StackTree& tree : picture.trees) {
        if (onlyCpu && tree.id != "cpu") {
            continue;
        }
        const std::vector<NameSums> sums = sumsByName(tree);
        const auto most =
            std::max_element(sums.begin(), sums.end(), [&](const NameSums& a, const NameSums& b) {
                return a.now.own != b.now.own ? a.now.own < b.now.own
                                              : picture.names[size_t(a.name)].full() >
                                                    picture.names[size_t(b.name)].full();
            });
        if (most != sums.end()) {
            summary.hottest.push_back({tree.id, tree.title, tree.unit,
                                       picture.names[size_t(most->name)].full(), most->now.own,
                                       tree.total(Side::Now).own});
        }
    }
}

} // namespace

void summarize(RecordSummary& summary, DataSource& source) {
    const Profile profile = makeProfile(source.database());
    summary.isOfCpu = profile.measure == &CpuTime;
    summary.cpu = profile.sampledCpu();
    summary.sampler = profile.charges.empty() ? "" : samplerText(profile);
    summary.notWalkableNs = profile.notWalkableNs;
    if (profile.waitsNs() > 0) {
        // What burns the CPU comes first, ahead of what the waits bury it under.
        Selection noWaits;
        noWaits.noWaits = true;
        addHottest(summary, source, noWaits, true);
    }
    addHottest(summary, source, {}, false);
}

std::string notesOf(const RecordSummary& summary) {
    std::vector<std::string> parts;
    if (summary.seconds >= 0) {
        parts.push_back("recorded for " + secondsText(summary.seconds));
    }
    for (const std::string& part : {cpuText(summary), summary.sampler}) {
        if (!part.empty()) {
            parts.push_back(part);
        }
    }
    if (summary.lostSeconds > 0) {
        parts.push_back("the last " + secondsText(summary.lostSeconds) + " are missing");
    }
    return join(parts, "; ");
}

void printSummary(std::ostream& out, const RecordSummary& summary) {
    out << printable(summary.session) << " (" << summary.pid << "): ";
    std::string line = summary.seconds >= 0 ? secondsText(summary.seconds) : "";
    if (summary.ended) {
        line += (line.empty() ? "" : ", ") + std::string("until its end");
    }
    const std::string cpu = cpuText(summary);
    line += cpu.empty() ? "" : (line.empty() ? "" : ", ") + cpu;
    out << (line.empty() ? "recorded" : line);
    if (summary.lostSeconds > 0) {
        out << "; its last " << secondsText(summary.lostSeconds) << " are missing, it was killed";
    }
    out << "\n";
    std::vector<std::string> hottest;
    for (const RecordSummary::Hottest& most : summary.hottest) {
        hottest.push_back(most.title + ": " + printable(most.method, 200) + " " +
                          formatPercent(percentOf(most.own, most.all)) + " % of " +
                          amount(most.all, most.unit));
    }
    out << (hottest.empty() ? "nothing was recorded" : join(hottest, "; ")) << "\n"
        << summary.file << ": " << formatBytes(summary.bytes) << "; " << nextStep(summary) << "\n";
}

void writeSummary(JsonWriter& json, const RecordSummary& summary) {
    json.beginObject().field("pid", summary.pid).field("session", summary.session);
    json.field("file", summary.file).field("form", infoOf(summary.form).name);
    json.field("bytes", summary.bytes).key("recordedNs");
    summary.seconds < 0 ? json.nullValue() : json.value(int64_t(summary.seconds * 1e9));
    json.field("ended", summary.ended).field("missingNs", int64_t(summary.lostSeconds * 1e9));
    writeSampled(json, summary.cpu);
    json.field("notWalkableNs", summary.notWalkableNs).key("hottest").beginArray();
    for (const RecordSummary::Hottest& most : summary.hottest) {
        json.beginObject().field("of", most.id).field("unit", most.unit);
        json.field("name", most.method).field("own", most.own).field("total", most.all);
        json.endObject();
    }
    json.endArray().endObject();
}

} // namespace vdk
