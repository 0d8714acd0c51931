#include "client/profile/Profile.h"

#include "client/console/Text.h"
#include "db/DB.h"

#include <algorithm>
#include <unordered_map>

namespace vdk {

const Measure CpuTime = {"Hot methods", "OWN",     "CALLS", "calls",
                         "ownNs",       "totalNs", "calls", formatNs};
const Measure AllocatedBytes = {"Allocating methods", "BYTES",      "OBJECTS", "objects",
                                "ownBytes",           "totalBytes", "objects", formatBytes};

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

SampledCpu Profile::sampledCpu() const {
    SampledCpu sum;
    for (const ProfileThread& thread : threads) {
        sum += thread.sampled;
    }
    return sum;
}

namespace {

const char SamplingIntervalProperty[] = "vdk.allocation.sampling.interval.bytes";

class ProfileMaker {
public:
    explicit ProfileMaker(DB& db) : db(db) {}

    Profile make() {
        readStacks();
        readSampledCpu();
        readCharges();
        return std::move(profile);
    }

    Profile makeOfAllocations() {
        readStacks();
        profile.measure = &AllocatedBytes;
        profile.hasCounts = true;
        readSamplingInterval();
        readAllocations();
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
        for (int slot = FIRST_USER_TABLE; slot < MAX_TABLE_COUNT; slot++) {
            UserTable* table = db.getUserTable(slot);
            if (table && table->getName() == SampledCpuTable) {
                readSampledCpu(*table, threads);
            }
        }
    }

    static void readSampledCpu(UserTable& table,
                               const std::unordered_map<int, ProfileThread*>& threads) {
        const int thread = table.findColumn("thread"), used = table.findColumn("cpu_ns"),
                  charged = table.findColumn("charged_ns");
        if (thread < 0 || used < 0 || charged < 0) {
            return;
        }
        for (int i = 0; i < table.getCapacity(); i++) {
            const int* row = table.getRecord(i, false);
            if (!row || row[0] <= 0) {
                continue;
            }
            auto found = threads.find(table.getColumn(row, thread));
            if (found != threads.end()) {
                found->second->sampled +=
                    {table.getLongColumn(row, used), table.getLongColumn(row, charged)};
            }
        }
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
        sortCharges();
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

    DB& db;
    Profile profile;
    std::unordered_map<int, int> threadOfKey;
};

} // namespace

Profile makeProfile(DB& db) {
    return ProfileMaker(db).make();
}

Profile makeAllocationProfile(DB& db) {
    return ProfileMaker(db).makeOfAllocations();
}

namespace {

bool isAllocatedClass(const Profile& profile, int frame) {
    const Profile::Frame& row = profile.frames[size_t(frame)];
    return profile.methods[size_t(row.method)].name == AllocatedClass;
}

} // namespace

void foldAllocatedClasses(Profile& profile) {
    for (Charge& charge : profile.charges) {
        const int parent = profile.frames[size_t(charge.frame)].parent;
        if (parent > 0 && isAllocatedClass(profile, charge.frame)) {
            charge.frame = parent;
        }
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
        const int method = profile.frames[size_t(charge.frame)].method;
        ClassAllocations& row = byName[isAllocatedClass(profile, charge.frame)
                                           ? profile.methods[size_t(method)].className
                                           : "<unknown>"];
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
