#pragma once

#include "heapfile/HeapModel.h"
#include "heapfile/HprofFormat.h"
#include "heapfile/HprofScan.h"
#include "heapfile/JvmLayout.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

// How the second pass turns an object of a class into references.
struct HprofClassPlan {
    uint64_t classId;
    int row;
    uint32_t firstOffset;    // in HprofClasses::referenceOffsets
    uint32_t referenceCount; // of the reference fields of an instance
    int32_t instanceSize;    // in the JVM's memory
    // Offset of the field with the number of words that an instance has behind its fields; -1 where
    // all instances are alike.
    int32_t wordsOffset = -1;
    // The size rests on a few distances between objects: to be compared with all of them.
    bool checkGaps = false;
    int32_t computedSize = 0; // by the fields alone; with checkGaps
};

// The classes of a dump: fills HeapModel::classes from the class records, gives rows to classes
// that are only mentioned, finds the sizes of instances, and offers the plans to the second pass.
class HprofClasses {
public:
    HprofClasses(const MappedFile& file, const HprofRecords& hprofRecords,
                 const HprofScan& hprofScan, HeapModel& heapModel);

    // The plan of a class that an object of the dump has; never null for those.
    const HprofClassPlan* find(uint64_t classId) const {
        for (size_t i = hashOf(classId) & planMask;; i = (i + 1) & planMask) {
            const HprofClassPlan* plan = planTable[i];
            if (!plan || plan->classId == classId) {
                return plan;
            }
        }
    }
    // Row of the class of arrays of an HPROF type.
    int primitiveArrayRow(uint8_t type) const { return primitiveRows[type]; }
    // Offsets of reference fields in the data of an instance, for plans.
    const uint32_t* referenceOffsets() const { return offsets.data(); }
    const JvmLayout& layout() const { return jvmLayout; }
    // Size of an instance that holds a stretch of a stack of that many words, as plan.wordsOffset
    // tells them.
    int64_t stackChunkSize(const HprofClassPlan& plan, uint32_t words) const;
    // References that all rows of classes have together.
    uint64_t classReferences() const { return classReferenceCount; }
    // Identifiers at the positions of a class row's list, and its size in the JVM's memory.
    struct ClassRow {
        int row;
        int64_t size;
        uint64_t recordOffset;
        std::vector<uint64_t> references;
    };
    const std::vector<ClassRow>& classRows() const { return rowsOfClasses; }

private:
    static size_t hashOf(uint64_t id) {
        return static_cast<size_t>(id * 0x9e3779b97f4a7c15ULL >> 24);
    }
    void readClassRecord(uint64_t from);
    void readTypedValues(uint64_t& at, HeapClass& result, ClassRow& row);
    void addMentionedClasses();
    int addSyntheticClass(const std::string& name);
    void makePlans();
    void makePlan(size_t classIndex, uint64_t classId);
    std::vector<int> superclassChain(int classIndex) const;
    std::vector<std::string> fieldTypesFromTop(int classIndex) const;
    void detectLayout();
    void measureInstances();
    void setClassObjectSizes();
    int64_t staticBytes(const HeapClass& type) const;

    // Gaps behind sampled instances of a class.
    struct Measured {
        uint64_t smallestGap = 0;
        uint32_t ofThatGap = 0;
        uint32_t samples = 0;
    };
    struct Sizing; // what the sizes of all classes share while they are found
    void sampleGaps(std::unordered_map<uint64_t, Measured>& gaps) const;
    int64_t addedBytes(int classIndex, Sizing& sizing) const;
    int64_t settleSize(const Measured& measured, int64_t computed, int64_t lowest,
                       bool isPadded) const;
    void planStackChunks(HprofClassPlan& plan, HeapClass& type, int classIndex,
                         JvmLayout::Style style) const;

    const uint8_t* base;
    uint64_t mostOffsets; // bound of `offsets`, by what the file justifies
    const HprofRecords& records;
    const HprofScan& scan;
    HeapModel& model;
    uint32_t idSize;
    JvmLayout jvmLayout;
    std::vector<uint64_t> classIds; // by index in model.classes; 0 for arrays without a record
    std::vector<uint64_t> superIds;
    std::unordered_map<uint64_t, int> indexOfClassId;
    std::vector<HprofClassPlan> plans;
    std::vector<const HprofClassPlan*> planTable;
    size_t planMask = 0;
    std::vector<uint32_t> offsets;
    std::vector<ClassRow> rowsOfClasses;
    uint64_t classReferenceCount = 0;
    int nextSyntheticRow = 0;
    int primitiveRows[HPROF_LAST_TYPE + 1] = {};
};
