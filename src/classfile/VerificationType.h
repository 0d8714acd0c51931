#pragma once

#include "classfile/ArenaVector.h"
#include "classfile/DataInput.h"
#include "classfile/DataOutput.h"
#include "classfile/Utf8View.h"

class ClassFile;

enum VerificationTag : int {
    VERIFICATION_TOP = 0,
    VERIFICATION_INT = 1,
    VERIFICATION_FLOAT = 2,
    VERIFICATION_DOUBLE = 3,
    VERIFICATION_LONG = 4,
    VERIFICATION_NULL = 5,
    VERIFICATION_UNINITIALIZED_THIS = 6,
    VERIFICATION_OBJECT = 7,
    VERIFICATION_UNINITIALIZED = 8
};

// VerificationType: one local variable or stack entry of a frame. The value is the class's pool
// index for an object, the code position of the `new` for an uninitialized one, this class's pool
// index for the uninitialized this, and -1 otherwise. A long or double is one entry.
class VerificationType {
public:
    VerificationType() = default;
    VerificationType(int tag, int value);
    VerificationType(DataInput& input, int thisClass);
    // The type that a descriptor denotes; the class's pool may grow by the name of its class.
    VerificationType(const Utf8View& descriptor, ClassFile* classFile);

    int getTag() const { return tag; }
    int getValue() const { return value; }
    void setValue(int newValue) { value = newValue; }
    bool isWide() const { return tag == VERIFICATION_DOUBLE || tag == VERIFICATION_LONG; }
    int getSlots() const { return isWide() ? 2 : 1; }
    // Gives the end of what was written.
    unsigned char* writeTo(unsigned char* at) const;

    // Values count for objects and uninitialized objects alone.
    static bool isSameType(const VerificationType& a, const VerificationType& b);
    // The difference of the sizes when one list begins with the other or they differ by more than 4
    // entries or one is empty; 104 when a common entry differs.
    static int compare(const ArenaVector<VerificationType>& a,
                       const ArenaVector<VerificationType>& b);

private:
    int tag;
    int value;
};
