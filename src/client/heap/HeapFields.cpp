#include "client/heap/HeapFields.h"

#include "client/console/Text.h"
#include "client/heap/HeapReport.h"
#include "heapfile/HeapText.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace vdk {

namespace {

const size_t FirstStaticReference = 4; // behind superclass, loader, signers, protection domain

size_t staticReferences(const HeapModel& model, int row) {
    const auto count = size_t(std::max(model.storage->getRefCount(row), 0));
    return count - std::min(count, FirstStaticReference);
}

std::string floatingText(const HeapValue& value) {
    char digits[64];
    snprintf(digits, sizeof(digits), value.type == 'F' ? "%.9Lg" : "%.17Lg", value.number());
    return digits;
}

std::string charText(uint64_t bits) {
    if (bits < ' ' || bits > '~') {
        char digits[16];
        snprintf(digits, sizeof(digits), "'\\u%04x'", unsigned(bits & 0xffff));
        return digits;
    }
    return std::string("'") + char(bits) + "'";
}

} // namespace

int64_t HeapValue::integer() const {
    return type == 'B'   ? int8_t(bits)
           : type == 'S' ? int16_t(bits)
           : type == 'I' ? int32_t(bits)
                         : int64_t(bits);
}

long double HeapValue::number() const {
    if (type == 'F') {
        const auto half = uint32_t(bits);
        float real = 0;
        memcpy(&real, &half, sizeof(real));
        return real;
    }
    if (type == 'D') {
        double real = 0;
        memcpy(&real, &bits, sizeof(real));
        return real;
    }
    return integer();
}

std::string heapValueTypeName(const HeapValue& value) {
    return value.isReference() ? "reference" : primitiveTypeName(value.type);
}

std::string heapValueText(const HeapModel& model, const HeapValue& value) {
    if (value.isReference()) {
        return value.row == 0 ? "null" : heapLabel(model, value.row);
    }
    return value.type == 0      ? "?"
           : value.isFloating() ? floatingText(value)
           : value.type == 'Z'  ? (value.bits != 0 ? "true" : "false")
           : value.type == 'C'  ? charText(value.bits)
                                : std::to_string(value.integer());
}

void writeHeapValue(JsonWriter& json, const HeapSession& session, const HeapValue& value) {
    if (value.isReference() && value.row != 0) {
        json.key("object").beginObject();
        writeHeapObject(json, session, value.row);
        json.endObject();
        return;
    }
    json.key("value");
    if (value.isReference() || value.type == 0) {
        json.nullValue();
    } else if (value.type == 'Z') {
        json.value(value.bits != 0);
    } else if (value.isFloating() && !std::isfinite(value.number())) {
        json.value(floatingText(value));
    } else if (value.isFloating()) {
        json.value(double(value.number()));
    } else {
        json.value(value.integer());
    }
}

HeapValue heapFieldValue(const HeapModel& model, int row, const HeapFieldPlace& place) {
    HeapValue value;
    if (place.type == 'L') {
        value.type = 'L';
        value.row = model.referenceAt(row, place);
    } else if (model.primitiveAt(row, place, value.bits)) {
        value.type = place.type;
    }
    return value;
}

size_t heapStaticFieldCount(const HeapModel& model, int row) {
    const auto& statics = model.classes[size_t(model.classByRow(row))].statics;
    return staticReferences(model, row) +
           size_t(std::count_if(statics.begin(), statics.end(),
                                [](const HeapStaticField& field) { return field.type != 'L'; }));
}

HeapNamedValue heapStaticField(const HeapModel& model, int row, size_t index) {
    HeapNamedValue field;
    field.owner = row;
    size_t left = index;
    if (left < staticReferences(model, row)) {
        const int position = int(FirstStaticReference + left);
        field.name = model.referenceName(row, position);
        field.value.type = 'L';
        field.value.row = model.storage->getRef(row, position);
        return field;
    }
    left -= staticReferences(model, row);
    for (const HeapStaticField& each : model.classes[size_t(model.classByRow(row))].statics) {
        if (each.type != 'L' && left-- == 0) {
            field.name = each.name;
            field.value.type = each.type;
            field.value.bits = each.bits;
            break;
        }
    }
    return field;
}

const HeapFieldPlace& HeapFieldReader::placeIn(int classIndex) const {
    places.resize(model.classes.size());
    Known& known = places[size_t(classIndex)];
    if (!known.isKnown) {
        known = {true, model.fieldPlace(classIndex, name)};
    }
    return known.place;
}

HeapValue HeapFieldReader::read(int row) const {
    const int type = row == 0 || model.isClass(row) || model.storage->getArrayLength(row) >= 0
                         ? -1
                         : model.classOf(row);
    if (type < 0 || placeIn(type).owner < 0) {
        return {};
    }
    return heapFieldValue(model, row, placeIn(type));
}

int64_t HeapFieldReader::integer(int row, int64_t fallback) const {
    const HeapValue value = read(row);
    return value.type == 0 || value.isReference() || value.isFloating() ? fallback
                                                                        : value.integer();
}

HeapClassSet::HeapClassSet(const HeapModel& model, const std::vector<int>& classes)
    : model(model), isIn(model.classes.size(), false) {
    for (int type : classes) {
        isIn[size_t(type)] = true;
    }
}

void HeapClassSet::addSubclasses() {
    std::vector<bool> all = isIn;
    for (size_t i = 0; i < isIn.size(); i++) {
        int above = int(i);
        for (int depth = 0; above >= 0 && depth < 1024 && !all[i]; depth++) {
            all[i] = isIn[size_t(above)];
            above = model.classes[size_t(above)].superClass;
        }
    }
    isIn = std::move(all);
}

HeapClassSet classesNamed(const HeapSession& session, const std::string& pattern) {
    const std::vector<int> classes = session.classesByPattern(pattern);
    if (classes.empty()) {
        throw ClientError(ExitCode::Refused, "heap.noclass",
                          "the heap has no class " + printable(pattern, 200), HeapClassNameHint);
    }
    return {session.model(), classes};
}

} // namespace vdk
