#include "client/profile/Profile.h"

#include "client/console/Text.h"
#include "client/profile/UserRows.h"

#include <algorithm>
#include <unordered_map>

namespace vdk {

const Measure CpuTime = {"Hot methods", "OWN",   "CALLS",  "calls", "ownNs",
                         "totalNs",     "calls", formatNs, nullptr};
const Measure ElapsedTime = {"Where threads spent their time",
                             "OWN",
                             "CALLS",
                             "calls",
                             "ownNs",
                             "totalNs",
                             "calls",
                             formatNs,
                             nullptr};
const Measure SampleCounts = {"Sampled methods", "OWN",   "CALLS",     "calls", "ownSamples",
                              "totalSamples",    "calls", formatCount, nullptr};
const Measure AllocatedBytes = {"Allocating methods", "BYTES",      "OBJECTS", "objects",
                                "ownBytes",           "totalBytes", "objects", formatBytes,
                                "Allocated classes"};
const Measure LiveBytes = {"Methods that allocated live objects",
                           "BYTES",
                           "OBJECTS",
                           "objects",
                           "ownBytes",
                           "totalBytes",
                           "objects",
                           formatBytes,
                           "Classes of live objects"};
const Measure GarbageBytes = {"Methods that allocated garbage",
                              "BYTES",
                              "OBJECTS",
                              "objects",
                              "ownBytes",
                              "totalBytes",
                              "objects",
                              formatBytes,
                              "Classes of garbage"};

bool ProfileMethod::isHidden() const {
    return (flags & METHOD_HIDDEN) != 0;
}

bool ProfileMethod::isFiltered() const {
    return (flags & METHOD_FILTERED) != 0;
}

std::string ProfileMethod::fullName(bool withParameters) const {
    std::string full = className.empty() ? name : className + "." + name;
    return withParameters ? full + parameters : full;
}

int64_t Profile::total() const {
    int64_t sum = 0;
    for (const Charge& charge : charges) {
        sum += charge.own;
    }
    return sum;
}

SampledCpu& SampledCpu::operator+=(const SampledCpu& other) {
    usedNs += other.usedNs;
    chargedNs += other.chargedNs;
    return *this;
}

// Sums that are smaller than before were cleared in between.
SampledCpu SampledCpu::since(const SampledCpu& earlier) const {
    return usedNs < earlier.usedNs || chargedNs < earlier.chargedNs
               ? *this
               : SampledCpu{usedNs - earlier.usedNs, chargedNs - earlier.chargedNs};
}

bool Profile::isWallTime(int method) const {
    return method >= 0 && size_t(method) < methods.size() &&
           (methods[size_t(method)].flags & METHOD_WALL_TIME) != 0;
}

int64_t Profile::waitsNs() const {
    int64_t sum = 0;
    for (const Charge& charge : charges) {
        if (measure == &CpuTime && isWallTime(frames[size_t(charge.frame)].method)) {
            sum += charge.own;
        }
    }
    return sum;
}

SampledCpu Profile::sampledCpu() const {
    SampledCpu sum;
    for (const ProfileThread& thread : threads) {
        sum += thread.sampled;
    }
    return sum;
}

namespace {

const char SamplerProperty[] = "vdk.sampling.sampler";
const char LostSamplesProperty[] = "vdk.sampling.lost";
const char RefusedTimersProperty[] = "vdk.sampling.refused.timers";
const char NotWalkable[] = "[not walkable]";
const char SamplingIntervalProperty[] = "vdk.allocation.sampling.interval.bytes";

class ProfileMaker {
public:
    explicit ProfileMaker(DB& db) : db(db) {}

    Profile make() {
        readStacks();
        readSampledCpu();
        readCharges();
        readLines();
        readSampler();
        findMeasure();
        readJ2ee();
        return std::move(profile);
    }

    Profile makeOfAllocations(Recorded which) {
        readStacks();
        profile.measure = which == Recorded::All    ? &AllocatedBytes
                          : which == Recorded::Live ? &LiveBytes
                                                    : &GarbageBytes;
        profile.hasCounts = true;
        readSamplingInterval();
        const bool live = nullptr != findUserTable(db, LiveAllocationsTable);
        if (which == Recorded::All || (which == Recorded::Garbage && live)) {
            readAllocations();
        }
        if (which != Recorded::All && live) {
            readLiveObjects(which == Recorded::Live ? 1 : -1);
        }
        sumUpCharges();
        return std::move(profile);
    }

private:
    std::string text(int stringRow) const {
        const char* characters = db.stringPool->getText(stringRow);
        return characters ? characters : "";
    }

    template <typename T, typename Visitor>
    static void eachLive(DBTable<T>* table, Visitor visitor) {
        table->eachRecord([&](int index, T& record) {
            if (record.stamp > 0) {
                visitor(index, record);
            }
        });
    }

    void readStacks() {
        readMethods();
        readFrames();
        readThreads();
    }

    void readMethods() {
        profile.methods.resize(1);
        profile.methods[0].name = "<unknown>";
        eachLive(db.methodTable, [&](int index, const MethodRecord& record) {
            if (size_t(index) >= profile.methods.size()) {
                profile.methods.resize(size_t(index) + 1, profile.methods[0]);
            }
            ProfileMethod& method = profile.methods[size_t(index)];
            method.className = text(record.classNameStrID);
            method.name = text(record.methodNameStrID);
            method.parameters = text(record.parametersStrID);
            method.flags = record.flags;
        });
    }

    // A parent always has a lower index than its children, as frames are never given back. A row
    // that breaks this is left out, with all below it.
    void readFrames() {
        profile.frames.resize(1);
        eachLive(db.frameTable, [&](int index, const FrameRecord& record) {
            if (index == 0 || record.parent < 0 || record.parent >= index) {
                return;
            }
            if (size_t(index) >= profile.frames.size()) {
                profile.frames.resize(size_t(index) + 1);
            }
            Profile::Frame& frame = profile.frames[size_t(index)];
            frame.parent = record.parent;
            bool known = record.method > 0 && size_t(record.method) < profile.methods.size();
            frame.method = known ? record.method : 0;
        });
    }

    void readThreads() {
        eachLive(db.threadTable, [&](int, const ThreadRecord& record) {
            if (record.tfiThreadIndex != 0) {
                threadOfKey[record.tfiThreadIndex] = int(profile.threads.size());
            }
            profile.threads.push_back({record.trn,
                                       text(record.nameStrID),
                                       text(record.groupStrID),
                                       record.nativeThreadID,
                                       {}});
        });
    }

    void readSampledCpu() {
        std::unordered_map<int, ProfileThread*> threads;
        for (ProfileThread& thread : profile.threads) {
            threads[thread.trn] = &thread;
        }
        eachUserRow(db, SampledCpuTable, SampledCpuColumns,
                    [&](const UserTable& table, const int* row, const auto& columns) {
                        auto found = threads.find(table.getColumn(row, columns[0]));
                        if (found != threads.end()) {
                            found->second->sampled += {table.getLongColumn(row, columns[1]),
                                                       table.getLongColumn(row, columns[2])};
                        }
                    });
    }

    void readLines() {
        eachUserRow(
            db, SampledLinesTable, SampledLinesColumns,
            [&](const UserTable& table, const int* row, const auto& columns) {
                const LineTime part = {table.getColumn(row, columns[2]),
                                       table.getLongColumn(row, columns[3])};
                if (part.line > 0 && part.ownNs > 0) {
                    const int thread = threadOfNumber(table.getColumn(row, columns[0]));
                    profile.lines[{thread, table.getColumn(row, columns[1])}].push_back(part);
                }
            });
    }

    int findThread(int key) {
        auto found = threadOfKey.find(key);
        if (found != threadOfKey.end()) {
            return found->second;
        }
        int index = int(profile.threads.size());
        profile.threads.push_back({0, "<thread " + std::to_string(key) + ">", "", 0, {}});
        return threadOfKey[key] = index;
    }

    void readCharges() {
        eachLive(db.threadFrameTable, [&](int index, const ThreadFrameRecord& pair) {
            const CPUProfilingRecord* record = db.cpuProfilingTable->getRecord(index, false);
            if (!record || record->stamp <= 0 || pair.frame <= 0 ||
                size_t(pair.frame) >= profile.frames.size()) {
                return;
            }
            profile.charges.push_back(
                {findThread(pair.tfiThreadIndex), pair.frame, record->timeNs, record->count});
            profile.hasCounts = profile.hasCounts || record->count > 0;
        });
        sortCharges();
        auto& charges = profile.charges;
        for (size_t from = 0; from < charges.size();) {
            size_t to = from;
            while (to < charges.size() && charges[to].thread == charges[from].thread) {
                to++;
            }
            takeChildrenOff(from, to);
            from = to;
        }
    }

    // Elapsed times, which never stand beside CPU times, have what threads did as innermost frame.
    void findMeasure() {
        for (const Charge& charge : profile.charges) {
            if (profile.measure != &CpuTime) {
                return;
            }
            const int method = profile.frames[size_t(charge.frame)].method;
            const ProfileMethod& leaf = profile.methods[size_t(method)];
            if (charge.own > 0 && leaf.className.empty() && isActivity(leaf.name)) {
                profile.measure = &ElapsedTime;
                return;
            }
        }
    }

    static bool isActivity(const std::string& name) {
        static const char* const all[] = {"[running]",  "[runnable]", "[blocked]", "[waiting]",
                                          "[sleeping]", "[parked]",   "[io]"};
        return std::find(std::begin(all), std::end(all), name) != std::end(all);
    }

    void readJ2ee() {
        eachLive(db.j2eeTable, [&](int, const J2EERecord& record) {
            if (record.frame > 0 && size_t(record.frame) < profile.frames.size()) {
                profile.j2ee.push_back({threadOfNumber(record.trn), record.frame, record.typeID,
                                        text(record.nameStrID), record.timeNs, record.count});
            }
        });
    }

    void readSampler() {
        eachLive(db.propertyTable, [&](int, const PropertyRecord& record) {
            const std::string name = text(record.nameStrID);
            if (name == MeasureProperty) {
                const std::string measure = text(record.value);
                profile.measure = measure == SamplesMeasureName   ? &SampleCounts
                                  : measure == ElapsedMeasureName ? &ElapsedTime
                                                                  : &CpuTime;
            } else if (name == SamplerProperty) {
                profile.sampler = text(record.value);
            } else if (name == LostSamplesProperty) {
                profile.lostSamples = record.value;
            } else if (name == RefusedTimersProperty) {
                profile.threadsWithoutTimer = record.value;
            }
        });
        std::vector<bool> isLost(profile.frames.size());
        for (size_t i = 1; i < profile.frames.size(); i++) {
            const Profile::Frame& frame = profile.frames[i];
            const bool isOutermost =
                frame.parent == 0 && size_t(frame.method) < profile.methods.size();
            isLost[i] =
                frame.parent > 0
                    ? isLost[size_t(frame.parent)]
                    : isOutermost && profile.methods[size_t(frame.method)].name == NotWalkable;
        }
        for (const Charge& charge : profile.charges) {
            profile.notWalkableNs += isLost[size_t(charge.frame)] ? charge.own : 0;
        }
    }

    void readSamplingInterval() {
        eachLive(db.propertyTable, [&](int, const PropertyRecord& record) {
            if (text(record.nameStrID) == SamplingIntervalProperty) {
                profile.samplingInterval = record.value;
            }
        });
    }

    void readAllocations() {
        eachLive(db.threadFrameTable, [&](int index, const ThreadFrameRecord& pair) {
            const AllocInfoRecord* record = db.allocInfoTable->getRecord(index, false);
            if (record && record->stamp > 0 && pair.frame > 0 &&
                size_t(pair.frame) < profile.frames.size() && record->objectCount > 0) {
                profile.charges.push_back({findThread(pair.tfiThreadIndex), pair.frame,
                                           record->objectBytes, record->objectCount});
            }
        });
    }

    // The thread of a number. Rows of threads that ended long ago are one thread's in `allocinfo`.
    int threadOfNumber(int trn) {
        if (indexOfTrn.empty()) {
            for (size_t i = 0; i < profile.threads.size(); i++) {
                indexOfTrn.emplace(profile.threads[i].trn, int(i));
            }
        }
        auto found = indexOfTrn.find(trn);
        found = found == indexOfTrn.end() ? indexOfTrn.find(OldestFinishedTrn) : found;
        if (found != indexOfTrn.end()) {
            return found->second;
        }
        profile.threads.push_back({trn, "<thread " + std::to_string(trn) + ">", "", 0, {}});
        return indexOfTrn[trn] = int(profile.threads.size()) - 1;
    }

    // Adds the objects that live, or takes them off.
    void readLiveObjects(int sign) {
        eachUserRow(db, LiveAllocationsTable, {"thread", "frame", "live_objects", "live_bytes"},
                    [&](const UserTable& table, const int* row, const auto& columns) {
                        const int frame = table.getColumn(row, columns[1]);
                        if (frame > 0 && size_t(frame) < profile.frames.size()) {
                            profile.charges.push_back(
                                {threadOfNumber(table.getColumn(row, columns[0])), frame,
                                 sign * table.getLongColumn(row, columns[3]),
                                 sign * table.getLongColumn(row, columns[2])});
                        }
                    });
    }

    // One charge for each thread and frame. Nothing is left of objects that all live.
    void sumUpCharges() {
        sortCharges();
        std::vector<Charge> sums;
        for (const Charge& charge : profile.charges) {
            if (!sums.empty() && sums.back().thread == charge.thread &&
                sums.back().frame == charge.frame) {
                sums.back().own += charge.own;
                sums.back().count += charge.count;
            } else {
                sums.push_back(charge);
            }
        }
        sums.erase(std::remove_if(sums.begin(), sums.end(),
                                  [](const Charge& sum) { return sum.count <= 0; }),
                   sums.end());
        profile.charges = std::move(sums);
    }

    void sortCharges() {
        auto& charges = profile.charges;
        std::sort(charges.begin(), charges.end(), [](const Charge& a, const Charge& b) {
            return a.thread != b.thread ? a.thread < b.thread : a.frame < b.frame;
        });
    }

    // Turns the times with callees of one thread, sorted by frame, into own times.
    void takeChildrenOff(size_t from, size_t to) {
        auto& charges = profile.charges;
        std::unordered_map<int, int64_t> childrenNs;
        for (size_t i = from; i < to; i++) {
            childrenNs[profile.frames[size_t(charges[i].frame)].parent] += charges[i].own;
        }
        for (size_t i = from; i < to; i++) {
            auto children = childrenNs.find(charges[i].frame);
            if (children != childrenNs.end()) {
                charges[i].own -= children->second;
            }
            charges[i].own = std::max<int64_t>(charges[i].own, 0);
        }
    }

    static constexpr int OldestFinishedTrn = 1;

    DB& db;
    Profile profile;
    std::unordered_map<int, int> threadOfKey;
    std::unordered_map<int, int> indexOfTrn;
};

} // namespace

Profile makeProfile(DB& db) {
    return ProfileMaker(db).make();
}

Profile makeAllocationProfile(DB& db, Recorded which) {
    return ProfileMaker(db).makeOfAllocations(which);
}

bool knowsLiveObjects(DB& db) {
    return findUserTable(db, LiveAllocationsTable) != nullptr;
}

namespace {

bool isAllocatedClass(const Profile& profile, int frame) {
    const Profile::Frame& row = profile.frames[size_t(frame)];
    return profile.methods[size_t(row.method)].name == AllocatedClass;
}

} // namespace

std::string allocatedClass(const Profile& profile, int frame) {
    const int method = profile.frames[size_t(frame)].method;
    return isAllocatedClass(profile, frame) ? profile.methods[size_t(method)].className
                                            : "<unknown>";
}

int allocatingFrame(const Profile& profile, int frame) {
    const int parent = profile.frames[size_t(frame)].parent;
    return parent > 0 && isAllocatedClass(profile, frame) ? parent : frame;
}

void foldAllocatedClasses(Profile& profile) {
    for (Charge& charge : profile.charges) {
        charge.frame = allocatingFrame(profile, charge.frame);
    }
}

std::vector<ClassAllocations> allocatedClasses(const Profile& profile,
                                               const std::vector<int>& threads) {
    std::unordered_map<std::string, ClassAllocations> byName;
    for (const Charge& charge : profile.charges) {
        if (!threads.empty() &&
            std::find(threads.begin(), threads.end(), charge.thread) == threads.end()) {
            continue;
        }
        ClassAllocations& row = byName[allocatedClass(profile, charge.frame)];
        row.bytes += charge.own;
        row.objects += charge.count;
    }
    std::vector<ClassAllocations> rows;
    for (auto& [name, row] : byName) {
        row.name = name;
        rows.push_back(row);
    }
    std::sort(rows.begin(), rows.end(), [](const ClassAllocations& a, const ClassAllocations& b) {
        return a.bytes != b.bytes ? a.bytes > b.bytes : a.name < b.name;
    });
    return rows;
}

} // namespace vdk
