#include "client/foreign/ForeignStacks.h"

#include "client/console/Errors.h"
#include "client/profile/Profile.h"

#include <algorithm>

namespace vdk {

namespace {

const char NoFrames[] = "[no frames]";
const char NoThread[] = "[no thread]";
const size_t MostFrames = 10000; // of a stack; of more the innermost ones count

const char* nameOf(ForeignUnit unit) {
    return unit == ForeignUnit::CpuNs       ? CpuMeasureName
           : unit == ForeignUnit::ElapsedNs ? ElapsedMeasureName
                                            : SamplesMeasureName;
}

} // namespace

ForeignStacks::ForeignStacks() : db(std::make_unique<DB>(-1, -1)) {}

int ForeignStacks::text(const std::string& characters) {
    return db->stringPool->getDBIndex(characters.c_str(), true);
}

int ForeignStacks::methodOf(const std::string& frame) {
    int& known = methods[frame];
    if (known == 0) {
        const size_t end = std::min(frame.find('('), frame.size());
        const size_t dot = end == 0 ? std::string::npos : frame.rfind('.', end - 1);
        const bool hasClass = dot != std::string::npos && dot > 0;
        known = db->methodTable->nextIndex();
        MethodRecord* record = db->methodTable->getRecord(known, true);
        record->classNameStrID = text(hasClass ? frame.substr(0, dot) : "");
        record->methodNameStrID =
            text(hasClass ? frame.substr(dot + 1, end - dot - 1) : frame.substr(0, end));
        record->parametersStrID = text(frame.substr(end));
        record->stamp = db->currentStamp;
    }
    return known;
}

int ForeignStacks::childOf(int parent, int method) {
    int& known = frames[uint64_t(uint32_t(parent)) << 32 | uint32_t(method)];
    if (known == 0) {
        known = db->frameTable->nextIndex();
        FrameRecord* record = db->frameTable->getRecord(known, true);
        record->parent = parent;
        record->method = method;
        record->stamp = db->currentStamp;
        FrameRecord* above = db->frameTable->getRecord(parent, true);
        record->nextSibling = above->firstChild;
        above->firstChild = known;
        above->stamp = db->currentStamp;
        parents.resize(std::max(parents.size(), size_t(known) + 1));
        parents[size_t(known)] = parent;
    }
    return known;
}

std::map<int, int64_t>& ForeignStacks::threadOf(const std::string& name) {
    auto [known, isNew] = threads.try_emplace(name, db->threadTable->peekNextIndex());
    const int index = known->second;
    if (isNew) {
        db->threadTable->nextIndex();
        ThreadRecord* record = db->threadTable->getRecord(index, true);
        record->nameStrID = text(name.empty() ? NoThread : name);
        record->groupStrID = text("");
        record->tfiThreadIndex = index;
        record->trn = index + 2; // numbers below stand for what is no thread
        record->stamp = db->currentStamp;
        values.resize(std::max(values.size(), size_t(index) + 1));
    }
    return values[size_t(index)];
}

void ForeignStacks::add(const std::vector<std::string>& stack, const std::string& thread,
                        int64_t value) {
    if (value < 0 || __builtin_add_overflow(sum, value, &sum)) {
        throw ClientError(ExitCode::BadInput, "foreign.data",
                          value < 0 ? "a stack has a negative value"
                                    : "the sum of the values is too large");
    }
    if (value == 0) {
        return;
    }
    int frame = stack.empty() ? childOf(0, methodOf(NoFrames)) : 0;
    for (size_t i = stack.size() - std::min(stack.size(), MostFrames); i < stack.size(); i++) {
        frame = childOf(frame, methodOf(stack[i]));
    }
    threadOf(thread)[frame] += value;
}

std::unique_ptr<DB> ForeignStacks::take(ForeignUnit unit) {
    PropertyRecord* property = db->propertyTable->getRecord(db->propertyTable->nextIndex(), true);
    property->nameStrID = text(MeasureProperty);
    property->value = text(nameOf(unit));
    property->stamp = db->currentStamp;
    for (size_t thread = 0; thread < values.size(); thread++) {
        std::map<int, int64_t>& totals = values[thread];
        // Rows hold what callees have, too; a frame's caller comes before it.
        for (auto at = totals.rbegin(); at != totals.rend(); ++at) {
            const int tfi = db->threadFrameIndex->getTFI(int(thread), at->first, true);
            CPUProfilingRecord* record = db->cpuProfilingTable->getRecord(tfi, true);
            record->timeNs = at->second;
            record->stamp = db->currentStamp;
            const int parent = parents[size_t(at->first)];
            if (parent > 0) {
                totals[parent] += at->second;
            }
        }
    }
    return std::move(db);
}

} // namespace vdk
