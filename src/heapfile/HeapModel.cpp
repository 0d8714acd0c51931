#include "heapfile/HeapModel.h"

#include "heapfile/HeapText.h"
#include "heapfile/HprofFormat.h"
#include "heapfile/HprofStacks.h"

#include <algorithm>

namespace {

const std::string UNKNOWN_NAME = "?";
constexpr int DEEPEST_CHAIN = 1024;

} // namespace

HeapModel::HeapModel(std::shared_ptr<MappedFile> mappedFile)
    : file(std::move(mappedFile)), hprofStacks(new HprofStacks(*file)) {}

HeapModel::~HeapModel() = default;

std::vector<std::string> HeapModel::stackOf(int threadIndex) const {
    if (threadIndex < 0 || static_cast<size_t>(threadIndex) >= threads.size()) {
        return {};
    }
    const HeapThread& thread = threads[static_cast<size_t>(threadIndex)];
    if (format == Format::Hprof) {
        return hprofStacks->stack(thread.trace);
    }
    std::vector<std::string> texts;
    for (uint32_t frame : thread.stack) {
        texts.push_back(frameTexts[frame]);
    }
    return texts;
}

void RowTable::put(int row, int value) {
    if ((used + 1) * 2 > slots.size()) {
        std::vector<Slot> old(slots.empty() ? 64 : slots.size() * 2, Slot{0, -1});
        old.swap(slots);
        mask = slots.size() - 1;
        used = 0;
        for (const Slot& slot : old) {
            if (slot.row != 0) {
                put(slot.row, slot.value);
            }
        }
    }
    size_t i = hash(row) & mask;
    while (slots[i].row != 0 && slots[i].row != row) {
        i = (i + 1) & mask;
    }
    used += slots[i].row == 0;
    slots[i] = Slot{row, value};
}

void HeapModel::indexClasses() {
    classOfRow = RowTable();
    classClass = -1;
    stringClass = -1;
    for (size_t i = 0; i < classes.size(); i++) {
        classOfRow.put(classes[i].row, static_cast<int>(i));
        if (classClass < 0 && classes[i].name == "java.lang.Class") {
            classClass = static_cast<int>(i);
        } else if (stringClass < 0 && classes[i].name == "java.lang.String") {
            stringClass = static_cast<int>(i);
        }
    }
}

int64_t HeapModel::largeSizeOf(int row) const {
    const auto at =
        std::lower_bound(largeObjects.begin(), largeObjects.end(), row,
                         [](const LargeObject& object, int wanted) { return object.row < wanted; });
    return at != largeObjects.end() && at->row == row ? at->size : LARGEST_STORED;
}

int HeapModel::classOf(int row) const {
    const bool isRow = row >= 0 && row < objectCount;
    return classColumn.isThere() && isRow ? classColumn.get(row) : classBehindReference(row);
}

void HeapModel::fillClassColumn() {
    ClassColumn column;
    column.make(objectCount, classes.size());
    for (int row = 1; row < objectCount; row++) {
        column.set(row, classBehindReference(row));
    }
    classColumn = std::move(column);
}

int HeapModel::classBehindReference(int row) const {
    if (isClass(row)) {
        return classClass;
    }
    return storage->getRefCount(row) > 0 ? classByRow(storage->getRef(row, 0)) : -1;
}

const std::string& HeapModel::classNameOf(int row) const {
    int index = classOf(row);
    if (index < 0 && isClass(row)) {
        static const std::string name = "java.lang.Class";
        return name;
    }
    return index < 0 ? UNKNOWN_NAME : classes[static_cast<size_t>(index)].name;
}

uint64_t HeapModel::idOf(int row) const {
    if (format == Format::Snapshot) {
        return static_cast<uint64_t>(row);
    }
    if (row < 1 || row > lastRowWithId) {
        return 0;
    }
    // An index has the identifiers, so that the dump need not be there to name an object.
    if (const StoredColumns* stored = storage->getStored()) {
        return stored->identifiers.get(row);
    }
    auto at = static_cast<uint64_t>(storage->getRecordPosition(row));
    if (at == 0 || at >= file->size() || file->size() - at < 1 + idSize) {
        return 0;
    }
    return hprofId(file->data() + at + 1, idSize);
}

int HeapModel::rowOfId(uint64_t id) const {
    if (format == Format::Snapshot) {
        return id <= static_cast<uint64_t>(rowCount()) ? static_cast<int>(id) : 0;
    }
    // Rows are in the order of identifiers.
    int low = 1;
    int high = lastRowWithId;
    while (low <= high) {
        int middle = low + (high - low) / 2;
        uint64_t found = idOf(middle);
        if (found == id) {
            return middle;
        }
        if (found < id) {
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
    return 0;
}

std::string HeapModel::referenceName(int row, int position) const {
    int asClass = classByRow(row);
    if (asClass >= 0) {
        const auto& names = classes[static_cast<size_t>(asClass)].referenceNames;
        return static_cast<size_t>(position) < names.size() ? names[static_cast<size_t>(position)]
                                                            : "<" + std::to_string(position) + ">";
    }
    if (position == 0) {
        return "<class>";
    }
    if (storage->getArrayLength(row) >= 0) {
        return "[" + std::to_string(position - 1) + "]";
    }
    int left = position - 1;
    std::vector<int> chain = classChain(classOf(row));
    if (format == Format::Snapshot) {
        std::reverse(chain.begin(), chain.end());
    }
    for (int c : chain) {
        for (const HeapField& field : classes[static_cast<size_t>(c)].fields) {
            if (field.type == 'L' && left-- == 0) {
                return field.name;
            }
        }
    }
    return "<" + std::to_string(position) + ">";
}

// The data of an instance record: u4 length behind tag, id, trace and class.
bool HeapModel::hprofInstance(int row, const uint8_t*& data, uint32_t& length) const {
    auto at = static_cast<uint64_t>(storage->getRecordPosition(row));
    uint64_t fixed = 1 + 4 + 2 * uint64_t(idSize) + 4;
    if (at == 0 || at >= file->size() || file->size() - at < fixed ||
        file->data()[at] != HPROF_INSTANCE_DUMP) {
        return false;
    }
    length = hprofU4(file->data() + at + fixed - 4);
    data = file->data() + at + fixed;
    return file->size() - at - fixed >= length;
}

std::vector<int> HeapModel::classChain(int classIndex) const {
    std::vector<int> chain;
    for (int c = classIndex; c >= 0 && chain.size() < DEEPEST_CHAIN;
         c = classes[static_cast<size_t>(c)].superClass) {
        chain.push_back(c);
    }
    return chain;
}

bool HeapModel::isSubclass(int classIndex, int other) const {
    int depth = 0;
    while (classIndex >= 0 && classIndex != other && depth++ < DEEPEST_CHAIN) {
        classIndex = classes[static_cast<size_t>(classIndex)].superClass;
    }
    return classIndex >= 0 && classIndex == other;
}

int HeapModel::loaderOf(int classIndex) const {
    const HeapClass& type = classes[static_cast<size_t>(classIndex)];
    const auto& names = type.referenceNames;
    // The loader stands behind the superclass; a class that is only mentioned has neither.
    const bool isTold =
        names.size() > 1 && names[1] == "<class loader>" && storage->getRefCount(type.row) > 1;
    return isTold ? storage->getRef(type.row, 1) : 0;
}

// Calls visit for each field in the order of the file's data.
template <typename Visit>
void HeapModel::eachField(const std::vector<int>& chain, Visit visit) const {
    const bool snapshot = format == Format::Snapshot;
    uint64_t references = 0;
    uint64_t bytes = 0;
    for (size_t n = 0; n < chain.size(); n++) {
        const int owner = chain[snapshot ? chain.size() - 1 - n : n];
        const auto& fields = classes[static_cast<size_t>(owner)].fields;
        for (size_t i = 0; i < fields.size(); i++) {
            const bool isReference = fields[i].type == 'L';
            visit(HeapFieldPlace{owner, i, fields[i].type, isReference ? references : bytes},
                  fields[i].name);
            references += isReference;
            bytes += !isReference ? primitiveTypeSize(fields[i].type) : snapshot ? 0 : idSize;
        }
    }
}

std::vector<HeapFieldPlace> HeapModel::fieldsOf(int classIndex) const {
    const std::vector<int> chain = classChain(classIndex);
    std::vector<HeapFieldPlace> places;
    for (int owner : chain) {
        eachField(chain, [&](const HeapFieldPlace& place, const std::string&) {
            if (place.owner == owner) {
                places.push_back(place);
            }
        });
    }
    return places;
}

HeapFieldPlace HeapModel::fieldPlace(int classIndex, const std::string& name) const {
    HeapFieldPlace found;
    eachField(classChain(classIndex), [&](const HeapFieldPlace& place, const std::string& each) {
        // With superclasses first, the last one of a name belongs to the nearest class.
        if (each == name && (found.owner < 0 || format == Format::Snapshot)) {
            found = place;
        }
    });
    return found;
}

bool HeapModel::primitiveAt(int row, const HeapFieldPlace& place, uint64_t& bits) const {
    const uint8_t* data = nullptr;
    const uint64_t end = place.at + primitiveTypeSize(place.type);
    if (format == Format::Hprof) {
        uint32_t length = 0;
        if (!hprofInstance(row, data, length) || end > length) {
            return false;
        }
    } else {
        auto start = static_cast<uint64_t>(storage->getPrimitiveDataPosition(row));
        if (start == 0 || start >= file->size() || file->size() - start < end) {
            return false;
        }
        data = file->data() + start;
    }
    bits = element(data + place.at, 0, place.type);
    return true;
}

int HeapModel::referenceAt(int row, const HeapFieldPlace& place) const {
    return place.at + 1 < static_cast<uint64_t>(storage->getRefCount(row))
               ? storage->getRef(row, static_cast<int>(place.at) + 1)
               : 0;
}

bool HeapModel::primitiveField(int row, const std::string& name, uint64_t& bits) const {
    if (isClass(row) || storage->getArrayLength(row) >= 0) {
        return false;
    }
    const HeapFieldPlace place = fieldPlace(classOf(row), name);
    return place.owner >= 0 && place.type != 'L' && primitiveAt(row, place, bits);
}

int HeapModel::referenceField(int row, const std::string& name) const {
    if (isClass(row) || storage->getArrayLength(row) >= 0) {
        return 0;
    }
    const HeapFieldPlace place = fieldPlace(classOf(row), name);
    return place.owner >= 0 && place.type == 'L' ? referenceAt(row, place) : 0;
}

bool HeapModel::primitiveArray(int row, const uint8_t*& elements, uint32_t& count,
                               char& type) const {
    int index = isClass(row) ? -1 : classOf(row);
    int length = storage->getArrayLength(row);
    if (index < 0 || length < 0) {
        return false;
    }
    type = classes[static_cast<size_t>(index)].elementType;
    uint64_t bytes = static_cast<uint64_t>(length) * primitiveTypeSize(type);
    if (primitiveTypeSize(type) == 0) {
        return false;
    }
    uint64_t at = 0;
    if (format == Format::Hprof) {
        at = static_cast<uint64_t>(storage->getRecordPosition(row));
        uint64_t fixed = 1 + uint64_t(idSize) + 4 + 4 + 1;
        if (at == 0 || at >= file->size() || file->size() - at < fixed ||
            file->data()[at] != HPROF_PRIMITIVE_ARRAY_DUMP ||
            hprofTypeLetter(file->data()[at + fixed - 1]) != type) {
            return false;
        }
        at += fixed;
    } else {
        at = static_cast<uint64_t>(storage->getPrimitiveDataPosition(row));
        if (at == 0 && length > 0) {
            return false;
        }
    }
    if (at > file->size() || file->size() - at < bytes) {
        return false;
    }
    elements = file->data() + at;
    count = static_cast<uint32_t>(length);
    return true;
}

uint64_t HeapModel::element(const uint8_t* elements, uint32_t index, char type) const {
    uint32_t size = primitiveTypeSize(type);
    const uint8_t* p = elements + static_cast<uint64_t>(index) * size;
    uint64_t bits = 0;
    for (uint32_t i = 0; i < size; i++) {
        bits = bits << 8 | p[format == Format::Hprof ? i : size - 1 - i];
    }
    return bits;
}

bool HeapModel::stringValue(int row, std::string& text, uint32_t maxChars) const {
    if (stringClass < 0 || classOf(row) != stringClass || isClass(row)) {
        return false;
    }
    const uint8_t* elements = nullptr;
    uint32_t count = 0;
    char type = 0;
    int value = referenceField(row, "value");
    if (value == 0 || !primitiveArray(value, elements, count, type)) {
        return false;
    }
    uint64_t coder = 0;
    bool pairs = type == 'B' && primitiveField(row, "coder", coder) && coder == 1;
    uint64_t offset = 0;
    uint64_t length = type == 'C' ? count : pairs ? count / 2 : count;
    uint64_t shared = 0;
    // Before JDK 7u6 strings shared arrays of characters: offset and count say which part.
    if (type == 'C' && primitiveField(row, "offset", offset) &&
        primitiveField(row, "count", shared)) {
        if (offset > length || shared > length - offset) {
            return false;
        }
        length = shared;
    }
    text.clear();
    uint64_t most = std::min<uint64_t>(length, maxChars);
    auto unit = [&](uint64_t i) -> uint32_t {
        if (type == 'C') {
            return static_cast<uint32_t>(element(elements, static_cast<uint32_t>(offset + i), 'C'));
        }
        // Bytes of a pair are in the order of the JVM's machine, which is little-endian today.
        return pairs ? elements[2 * i] | static_cast<uint32_t>(elements[2 * i + 1]) << 8
                     : elements[i];
    };
    for (uint64_t i = 0; i < most; i++) {
        uint32_t c = unit(i);
        if (c >= 0xd800 && c < 0xdc00 && i + 1 < length) {
            uint32_t low = unit(i + 1);
            if (low >= 0xdc00 && low < 0xe000) {
                c = 0x10000 + ((c - 0xd800) << 10) + (low - 0xdc00);
                i++;
            }
        }
        appendUtf8(text, c);
    }
    return true;
}

std::string HeapModel::threadName(int threadIndex) const {
    if (threadIndex < 0 || static_cast<size_t>(threadIndex) >= threads.size()) {
        return "";
    }
    int row = threads[static_cast<size_t>(threadIndex)].row;
    std::string text;
    int name = row > 0 ? referenceField(row, "name") : 0;
    if (name == 0 || !stringValue(name, text, 200)) {
        return "";
    }
    return text;
}

const HeapSiteFrame* HeapModel::siteFrame(int frame) const {
    const auto found =
        std::lower_bound(siteFrames.begin(), siteFrames.end(), frame,
                         [](const HeapSiteFrame& site, int wanted) { return site.frame < wanted; });
    return found == siteFrames.end() || found->frame != frame ? nullptr : &*found;
}
