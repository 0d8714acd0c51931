// What --where and --sort say about objects.
#pragma once

#include "client/heap/HeapFields.h"

#include <optional>
#include <string>
#include <vector>

namespace vdk {

// "retained", "shallow", "length", or a field, also one of the object in a field: "key.value". A
// field with the name of a size is "this.length".
class HeapOperand {
public:
    // Throws ClientError (Usage) if none of the classes has the field.
    HeapOperand(const HeapSession& session, const HeapClassSet& classes, const std::string& text);

    HeapValue of(const HeapSession& session, int row) const;
    bool isField() const { return !fields.empty(); }
    const std::string& text() const { return name; }

private:
    std::string name;
    std::vector<HeapFieldReader> fields; // from the object on
};

// "FIELD OP VALUE" with OP one of = != < <= > >= ~.
class HeapCondition {
public:
    HeapCondition(const HeapSession& session, const HeapClassSet& classes, const std::string& text);

    bool takes(const HeapSession& session, int row) const;
    const HeapOperand& operand() const { return *left; }

private:
    bool takesReference(const HeapModel& model, int row) const;

    std::optional<HeapOperand> left;
    std::string op;
    std::string right;
    std::optional<long double> number; // `right` as a number
    bool isObject = false;             // `right` is null or an identifier
    int object = 0;                    // its row
};

} // namespace vdk
