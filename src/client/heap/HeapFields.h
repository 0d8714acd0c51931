// Values of fields and elements, as reports show and compare them.
#pragma once

#include "client/heap/HeapSession.h"

#include <string>
#include <vector>

namespace vdk {

struct HeapValue {
    char type = 0;     // Java type letter, 'L' for a reference; 0 for no value
    uint64_t bits = 0; // of a primitive
    int row = 0;       // of a reference, 0 for null

    bool isReference() const { return type == 'L'; }
    bool isFloating() const { return type == 'F' || type == 'D'; }
    int64_t integer() const; // of all but floating ones
    long double number() const;
};

// A field of an object, or a static one of a class object.
struct HeapNamedValue {
    int owner = 0; // row of the class that declares it
    std::string name;
    HeapValue value;
};

// "int", "reference".
std::string heapValueTypeName(const HeapValue& value);
// "42", "'c'", "true", "1.5", "null", or what the object is.
std::string heapValueText(const HeapModel& model, const HeapValue& value);
// The field "value" of an open object; of a reference the object, in the field "object".
void writeHeapValue(JsonWriter& json, const HeapSession& session, const HeapValue& value);

HeapValue heapFieldValue(const HeapModel& model, int row, const HeapFieldPlace& place);

// The static fields of a class object: references first, in the order of its list.
size_t heapStaticFieldCount(const HeapModel& model, int row);
HeapNamedValue heapStaticField(const HeapModel& model, int row, size_t index);

// A field found by name, looked up once for each class.
class HeapFieldReader {
public:
    HeapFieldReader(const HeapModel& model, std::string name)
        : model(model), name(std::move(name)) {}

    // Of an instance; without a type where it has no such field.
    HeapValue read(int row) const;
    // 0 for null and no such field.
    int reference(int row) const { return read(row).row; }
    int64_t integer(int row, int64_t fallback) const;
    const HeapFieldPlace& placeIn(int classIndex) const;

private:
    struct Known {
        bool isKnown = false;
        HeapFieldPlace place;
    };
    const HeapModel& model;
    std::string name;
    mutable std::vector<Known> places; // by class
};

// Marks the classes of a list of indices; rows of class objects belong to none of them.
class HeapClassSet {
public:
    HeapClassSet(const HeapModel& model, const std::vector<int>& classes);
    // Takes in all below the classes.
    void addSubclasses();
    bool hasClass(int classIndex) const { return classIndex >= 0 && isIn[size_t(classIndex)]; }
    bool hasObject(int row) const { return !model.isClass(row) && hasClass(model.classOf(row)); }

private:
    const HeapModel& model;
    std::vector<bool> isIn;
};

// The classes of a pattern; throws ClientError (Refused) if there is none.
HeapClassSet classesNamed(const HeapSession& session, const std::string& pattern);

} // namespace vdk
