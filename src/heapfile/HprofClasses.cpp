#include "heapfile/HprofClasses.h"

#include "heapfile/HeapReadError.h"
#include "heapfile/HeapText.h"

#include <algorithm>
#include <map>

namespace {

constexpr size_t DEEPEST_CHAIN = 1024;   // superclasses; more is damage
constexpr int64_t SMALLEST_OBJECT = 16;  // a gap below this holds no further object
constexpr int64_t LARGEST_PADDING = 512; // bytes that a JVM may add to an instance's fields
constexpr int64_t PADDING_UNIT = 128;    // by which it sets fields apart that threads contend for
constexpr int64_t LARGEST_INJECTED = 32; // bytes of fields of its own
constexpr uint32_t FEWEST_SAMPLES = 4;   // that a much larger size has to rest on
constexpr int64_t LARGEST_CLASS_EXTRA = 128; // the same for the front part of class objects
constexpr uint64_t NAME_BYTES = 1024;
constexpr int64_t LARGEST_KNOWN_PADDING = 1024; // of the classes below

// Classes of the JDK whose instances are larger than their fields: fields set apart from each other
// because threads contend for them, and fields that the JVM adds. One distance is enough to believe
// it.
const char* const PADDED_CLASSES[] = {
    "java.lang.ClassLoader",
    "java.lang.Thread",
    "java.util.concurrent.ConcurrentHashMap$CounterCell",
    "java.util.concurrent.Exchanger$Node",
    "java.util.concurrent.ForkJoinPool",
    "java.util.concurrent.ForkJoinPool$WorkQueue",
    "java.util.concurrent.SubmissionPublisher$BufferedSubscription",
    "java.util.concurrent.atomic.Striped64$Cell",
};

bool isPaddedClass(const std::string& name) {
    return std::find(std::begin(PADDED_CLASSES), std::end(PADDED_CLASSES), name) !=
           std::end(PADDED_CLASSES);
}

// The parts of a virtual thread's stack that were moved to the heap. Behind its fields, some of
// which the JVM adds (a reference, an address, two numbers), stand the words of the frames and a
// bit for each place where a reference may stand.
constexpr char STACK_CHUNK[] = "jdk.internal.vm.StackChunk";
constexpr char STACK_CHUNK_ADDED[] = "LJIBB";
constexpr uint32_t MOST_STACK_WORDS = 1 << 27; // a gigabyte; more is damage

std::string hexName(uint64_t id) {
    char digits[32];
    snprintf(digits, sizeof(digits), "<class 0x%llx>", static_cast<unsigned long long>(id));
    return digits;
}

} // namespace

HprofClasses::HprofClasses(const MappedFile& file, const HprofRecords& hprofRecords,
                           const HprofScan& hprofScan, HeapModel& heapModel)
    : base(file.data()), mostOffsets(file.size() + 65536), records(hprofRecords), scan(hprofScan),
      model(heapModel), idSize(hprofRecords.idSize()),
      nextSyntheticRow(static_cast<int>(hprofScan.ids.size()) + 1) {
    for (const auto& record : scan.classRecords) {
        readClassRecord(record.first);
    }
    addMentionedClasses();
    for (size_t i = 0; i < model.classes.size(); i++) {
        auto super = indexOfClassId.find(superIds[i]);
        model.classes[i].superClass = super == indexOfClassId.end() ? -1 : super->second;
    }
    model.indexClasses();
    detectLayout();
    makePlans();
    measureInstances();
    setClassObjectSizes();
    model.lastRowWithId = static_cast<int>(scan.ids.size());
    model.objectCount = nextSyntheticRow;
}

// u4 trace and six identifiers follow the class's own; then instance size, constant pool, statics,
// fields. The walk has checked that all of it is there.
void HprofClasses::readClassRecord(uint64_t from) {
    uint64_t id = hprofId(base + from + 1, idSize);
    if (!indexOfClassId.emplace(id, static_cast<int>(model.classes.size())).second) {
        return;
    }
    HeapClass result;
    ClassRow row;
    result.row = static_cast<int>(scan.ids.rowOf(id));
    result.name = records.className(id);
    if (result.name.empty()) {
        result.name = hexName(id);
    }
    result.elementType = arrayElementType(result.name);
    row.row = result.row;
    row.size = 0;
    row.recordOffset = from;
    uint64_t at = from + 1 + idSize + 4;
    static const char* const linkNames[] = {"<superclass>", "<class loader>", "<signers>",
                                            "<protection domain>"};
    for (int i = 0; i < 4; i++) {
        row.references.push_back(hprofId(base + at + static_cast<uint64_t>(i) * idSize, idSize));
        result.referenceNames.emplace_back(linkNames[i]);
    }
    at += 6 * idSize + 4;
    readTypedValues(at, result, row);
    uint32_t fieldCount = hprofU2(base + at);
    at += 2;
    for (uint32_t i = 0; i < fieldCount; i++) {
        result.fields.push_back({records.string(hprofId(base + at, idSize)).substr(0, NAME_BYTES),
                                 hprofTypeLetter(base[at + idSize])});
        at += idSize + 1;
    }
    superIds.push_back(row.references[0]);
    classIds.push_back(id);
    classReferenceCount += row.references.size();
    rowsOfClasses.push_back(std::move(row));
    model.classes.push_back(std::move(result));
}

// The constant pool, of which only references count, and the static fields.
void HprofClasses::readTypedValues(uint64_t& at, HeapClass& result, ClassRow& row) {
    for (bool statics : {false, true}) {
        uint32_t nameSize = statics ? idSize : 2;
        uint32_t count = hprofU2(base + at);
        at += 2;
        for (uint32_t i = 0; i < count; i++) {
            uint8_t type = base[at + nameSize];
            const uint8_t* value = base + at + nameSize + 1;
            uint32_t size = hprofTypeSize(type, idSize);
            uint64_t bits = 0;
            for (uint32_t b = 0; b < size; b++) {
                bits = bits << 8 | value[b];
            }
            std::string name =
                statics ? records.string(hprofId(base + at, idSize)).substr(0, NAME_BYTES)
                        : "<constant " + std::to_string(hprofU2(base + at)) + ">";
            if (type == HPROF_TYPE_OBJECT) {
                row.references.push_back(bits);
                result.referenceNames.push_back(name);
            }
            if (statics) {
                result.statics.push_back(
                    {name, hprofTypeLetter(type), type == HPROF_TYPE_OBJECT ? 0 : bits});
            }
            at += nameSize + 1 + size;
        }
    }
}

int HprofClasses::addSyntheticClass(const std::string& name) {
    HeapClass made;
    made.row = nextSyntheticRow++;
    made.name = name;
    made.elementType = arrayElementType(name);
    model.classes.push_back(std::move(made));
    ClassRow row;
    row.row = nextSyntheticRow - 1;
    row.size = 0;
    row.recordOffset = 0;
    rowsOfClasses.push_back(std::move(row));
    superIds.push_back(0);
    classIds.push_back(0);
    return nextSyntheticRow - 1;
}

// Classes that objects have and no record tells about, and those of primitive arrays.
void HprofClasses::addMentionedClasses() {
    auto mention = [this](uint64_t id) {
        if (indexOfClassId.emplace(id, static_cast<int>(model.classes.size())).second) {
            std::string name = records.className(id);
            addSyntheticClass(name.empty() ? hexName(id) : name);
            classIds.back() = id;
        }
    };
    uint32_t primitiveTypes = 0;
    for (const HprofChunk& chunk : scan.chunks) {
        primitiveTypes |= chunk.primitiveTypes;
        for (const HprofClassCount& entry : chunk.classes.slots()) {
            if (entry.count > 0) {
                mention(entry.classId);
            }
        }
        for (uint64_t id : chunk.arrayClassIds) {
            mention(id);
        }
    }
    size_t known = model.classes.size();
    for (uint8_t type = 4; type <= HPROF_LAST_TYPE; type++) {
        std::string name = std::string(primitiveTypeName(hprofTypeLetter(type))) + "[]";
        for (size_t i = 0; i < known && primitiveRows[type] == 0; i++) {
            if (model.classes[i].name == name) {
                primitiveRows[type] = model.classes[i].row;
            }
        }
        if (primitiveRows[type] == 0 && (primitiveTypes >> type & 1) != 0) {
            primitiveRows[type] = addSyntheticClass(name);
        }
    }
}

// The class and its superclasses, itself first. Ends where a chain of a damaged file turns round.
std::vector<int> HprofClasses::superclassChain(int classIndex) const {
    std::vector<int> chain;
    for (int c = classIndex; c >= 0 && chain.size() < DEEPEST_CHAIN;
         c = model.classes[static_cast<size_t>(c)].superClass) {
        if (std::find(chain.begin(), chain.end(), c) != chain.end()) {
            break;
        }
        chain.push_back(c);
    }
    return chain;
}

std::vector<std::string> HprofClasses::fieldTypesFromTop(int classIndex) const {
    std::vector<std::string> result;
    for (int c : superclassChain(classIndex)) {
        std::string types;
        for (const HeapField& field : model.classes[static_cast<size_t>(c)].fields) {
            types += field.type;
        }
        result.insert(result.begin(), types);
    }
    return result;
}

void HprofClasses::makePlans() {
    plans.reserve(indexOfClassId.size());
    for (size_t i = 0; i < model.classes.size(); i++) {
        auto entry = indexOfClassId.find(classIds[i]);
        if (entry != indexOfClassId.end() && entry->second == static_cast<int>(i)) {
            makePlan(i, classIds[i]);
        }
    }
    size_t capacity = 16;
    while (capacity < plans.size() * 3) {
        capacity *= 2;
    }
    planTable.assign(capacity, nullptr);
    planMask = capacity - 1;
    for (const HprofClassPlan& plan : plans) {
        size_t i = hashOf(plan.classId) & planMask;
        while (planTable[i]) {
            i = (i + 1) & planMask;
        }
        planTable[i] = &plan;
    }
}

void HprofClasses::makePlan(size_t classIndex, uint64_t classId) {
    HprofClassPlan plan;
    plan.classId = classId;
    plan.row = model.classes[classIndex].row;
    plan.firstOffset = static_cast<uint32_t>(offsets.size());
    plan.instanceSize = 0;
    uint32_t at = 0;
    for (int c : superclassChain(static_cast<int>(classIndex))) {
        for (const HeapField& field : model.classes[static_cast<size_t>(c)].fields) {
            if (field.type == 'L') {
                offsets.push_back(at);
            }
            at += field.type == 'L' ? idSize : primitiveTypeSize(field.type);
        }
    }
    if (offsets.size() > mostOffsets) {
        throw HeapReadError("classes have more fields than the file can hold");
    }
    plan.referenceCount = static_cast<uint32_t>(offsets.size()) - plan.firstOffset;
    plans.push_back(plan);
}

void HprofClasses::detectLayout() {
    std::vector<JvmLayout::ArrayGap> gaps;
    for (const HprofChunk& chunk : scan.chunks) {
        for (const HprofArraySample& sample : chunk.arrays) {
            uint64_t next = scan.ids.next(sample.id);
            gaps.push_back({next == 0 ? 0 : next - sample.id, sample.length, sample.elementSize});
        }
    }
    jvmLayout.detect(gaps, idSize, scan.ids.alignment());
}

// Size of an instance by what was measured and what was computed, 0 if the measure tells nothing. A
// smaller gap than the computed size disproves it. A larger one is the object itself if the rest is
// too small for another object, or if many instances share it and it is what JVMs add: fields of
// their own and padding, which a dump doesn't show.
int64_t HprofClasses::settleSize(const Measured& measured, int64_t computed, int64_t lowest,
                                 bool isPadded) const {
    auto gap = static_cast<int64_t>(measured.smallestGap);
    if (gap == 0 || gap < lowest) {
        return 0;
    }
    if (gap < computed + SMALLEST_OBJECT) {
        return gap;
    }
    const uint32_t fewest = isPadded ? 1 : FEWEST_SAMPLES;
    bool shared = measured.ofThatGap >= fewest && measured.ofThatGap * 2 > measured.samples;
    const int64_t added = gap - computed;
    const int64_t most = isPadded ? LARGEST_KNOWN_PADDING : LARGEST_PADDING;
    const bool padded = (added + SMALLEST_OBJECT) % PADDING_UNIT <= 2 * SMALLEST_OBJECT;
    return shared && added <= most && (added <= LARGEST_INJECTED || padded) ? gap : 0;
}

struct HprofClasses::Sizing {
    JvmLayout::Style style = JvmLayout::Style::Packed;
    std::unordered_map<uint64_t, Measured> gaps; // by class identifier
    std::vector<int64_t> added;                  // by class index; -1 while not known
    size_t agreeing = 0;
};

// Bytes by which an instance of a class is larger than its fields make it; those of the superclass,
// unless the class's own instances tell.
int64_t HprofClasses::addedBytes(int classIndex, Sizing& sizing) const {
    std::vector<int> chain = superclassChain(classIndex);
    int64_t inherited = 0;
    for (auto c = chain.rbegin(); c != chain.rend(); ++c) {
        auto index = static_cast<size_t>(*c);
        if (sizing.added[index] >= 0) {
            inherited = sizing.added[index];
            continue;
        }
        auto measured = sizing.gaps.find(classIds[index]);
        sizing.added[index] = inherited;
        if (measured == sizing.gaps.end()) {
            continue;
        }
        std::vector<std::string> types = fieldTypesFromTop(*c);
        int64_t plain = jvmLayout.instanceSize(types, sizing.style);
        int64_t size = settleSize(measured->second, plain + inherited, jvmLayout.lowerBound(types),
                                  isPaddedClass(model.classes[index].name));
        if (size != 0) {
            sizing.agreeing++;
            // Smaller than the fields need by our rules: the rules are wrong for this class alone.
            inherited = std::max<int64_t>(size - plain, 0);
            sizing.added[index] = inherited;
        }
    }
    return inherited;
}

void HprofClasses::sampleGaps(std::unordered_map<uint64_t, Measured>& gaps) const {
    for (const HprofChunk& chunk : scan.chunks) {
        for (const HprofClassCount& entry : chunk.classes.slots()) {
            for (uint32_t s = 0; s < entry.sampleCount; s++) {
                uint64_t next = scan.ids.next(entry.samples[s]);
                uint64_t gap = next == 0 ? 0 : next - entry.samples[s];
                Measured& measured = gaps[entry.classId];
                measured.samples++;
                if (gap != 0 && (measured.smallestGap == 0 || gap < measured.smallestGap)) {
                    measured.smallestGap = gap;
                    measured.ofThatGap = 0;
                }
                measured.ofThatGap += gap != 0 && gap == measured.smallestGap;
            }
        }
    }
}

void HprofClasses::measureInstances() {
    Sizing sizing;
    sampleGaps(sizing.gaps);
    uint32_t packedVotes = 0;
    uint32_t legacyVotes = 0;
    for (const auto& entry : sizing.gaps) {
        std::vector<std::string> types = fieldTypesFromTop(indexOfClassId.at(entry.first));
        auto gap = static_cast<int64_t>(entry.second.smallestGap);
        packedVotes += gap == jvmLayout.instanceSize(types, JvmLayout::Style::Packed);
        legacyVotes += gap == jvmLayout.instanceSize(types, JvmLayout::Style::Legacy);
    }
    if (legacyVotes > packedVotes) {
        sizing.style = JvmLayout::Style::Legacy;
    }
    sizing.added.assign(model.classes.size(), -1);
    for (HprofClassPlan& plan : plans) {
        int classIndex = indexOfClassId.at(plan.classId);
        HeapClass& type = model.classes[static_cast<size_t>(classIndex)];
        if (type.elementType != 0) {
            continue;
        }
        if (type.name == STACK_CHUNK) {
            planStackChunks(plan, type, classIndex, sizing.style);
            continue;
        }
        std::vector<std::string> types = fieldTypesFromTop(classIndex);
        const int64_t computed = jvmLayout.instanceSize(types, sizing.style);
        type.instanceSize = computed + addedBytes(classIndex, sizing);
        plan.checkGaps = type.instanceSize >= computed + SMALLEST_OBJECT;
        plan.computedSize = static_cast<int32_t>(std::min<int64_t>(computed, INT32_MAX));
        auto measured = sizing.gaps.find(plan.classId);
        if (measured != sizing.gaps.end()) {
            auto gap = static_cast<int64_t>(measured->second.smallestGap);
            if (gap != 0 && gap < type.instanceSize && gap >= jvmLayout.lowerBound(types)) {
                type.instanceSize = gap;
            }
        }
        plan.instanceSize = static_cast<int32_t>(std::min<int64_t>(type.instanceSize, INT32_MAX));
    }
    jvmLayout.describe(model.sizing);
    model.sizing.classes = sizing.gaps.size();
    model.sizing.agreeingClasses = sizing.agreeing;
}

void HprofClasses::planStackChunks(HprofClassPlan& plan, HeapClass& type, int classIndex,
                                   JvmLayout::Style style) const {
    std::vector<std::string> types = fieldTypesFromTop(classIndex);
    types.back() += STACK_CHUNK_ADDED;
    plan.instanceSize = static_cast<int32_t>(jvmLayout.instanceSize(types, style));
    type.instanceSize = 0;
    uint32_t at = 0;
    for (const HeapField& field : type.fields) {
        if (field.name == "size" && field.type == 'I') {
            plan.wordsOffset = static_cast<int32_t>(at);
        }
        at += field.type == 'L' ? idSize : primitiveTypeSize(field.type);
    }
}

int64_t HprofClasses::stackChunkSize(const HprofClassPlan& plan, uint32_t words) const {
    const int64_t stack = std::min(words, MOST_STACK_WORDS);
    const int64_t bits = jvmLayout.referenceSize() == 4 ? stack * 2 : stack;
    return jvmLayout.align(plan.instanceSize + 8 * (stack + (bits + 63) / 64));
}

// Static fields live in the class object, behind the fields of java.lang.Class.
int64_t HprofClasses::staticBytes(const HeapClass& type) const {
    std::vector<std::string> types(1);
    for (const HeapStaticField& field : type.statics) {
        // Names in angle brackets are parts of the JVM's own class data, shown as if static.
        if (field.name.empty() || field.name[0] != '<') {
            types[0] += field.type;
        }
    }
    JvmLayout statics = jvmLayout;
    return statics.instanceSize(types, JvmLayout::Style::Packed) -
           statics.instanceSize({}, JvmLayout::Style::Packed);
}

// The JVM adds fields of its own to java.lang.Class, so the part of a class object in front of the
// statics is taken from the gaps: the most frequent value.
void HprofClasses::setClassObjectSizes() {
    int64_t computed = model.classClass < 0
                           ? jvmLayout.align(jvmLayout.headerSize())
                           : model.classes[static_cast<size_t>(model.classClass)].instanceSize;
    std::map<int64_t, uint32_t> votes;
    std::vector<int64_t> statics;
    for (size_t i = 0; i < rowsOfClasses.size(); i++) {
        statics.push_back(staticBytes(model.classes[i]));
        uint64_t next = classIds[i] == 0 ? 0 : scan.ids.next(classIds[i]);
        int64_t front = next == 0 ? 0 : static_cast<int64_t>(next - classIds[i]) - statics[i];
        if (front >= computed && front <= computed + LARGEST_CLASS_EXTRA) {
            votes[front]++;
        }
    }
    int64_t front = computed;
    uint32_t most = FEWEST_SAMPLES - 1;
    for (const auto& vote : votes) {
        if (vote.second > most) {
            most = vote.second;
            front = vote.first;
        }
    }
    for (size_t i = 0; i < rowsOfClasses.size(); i++) {
        // Rows that the file only mentions take no memory that it tells of.
        bool inFile = rowsOfClasses[i].recordOffset != 0;
        rowsOfClasses[i].size = inFile ? jvmLayout.align(front + statics[i]) : 0;
    }
}
