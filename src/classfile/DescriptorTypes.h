#pragma once

#include "classfile/Utf8View.h"
#include "core/ground/ZVector.h"

// DescriptorTypes: walks the parameter types of a method descriptor in place.
//   for (DescriptorTypes types(descriptor); types.next();) use(types.getType());
class DescriptorTypes {
public:
    // Nothing is walked when the text has no ")" at index 2 or above.
    explicit DescriptorTypes(const Utf8View& methodDescriptor);
    // Moves to the next parameter. False at the end, or at a text that is no type.
    bool next();
    // Descriptor of the current parameter.
    Utf8View getType() const { return Utf8View(text.getBytes() + start, position - start); }
    // Local variable slots of the current parameter.
    int getSlots() const { return slotsOf(text.charAt(start)); }

    // Slots of a value whose descriptor begins with this character; 0 for void.
    static int slotsOf(char first) {
        return first == 'J' || first == 'D' ? 2 : first == 'V' ? 0 : 1;
    }
    // Slots of all parameters, without a receiver.
    static int parameterSlots(const Utf8View& methodDescriptor);
    // Slots of the result.
    static int returnSlots(const Utf8View& methodDescriptor);
    // The text behind the last ")", the whole text if there is none.
    static Utf8View returnType(const Utf8View& methodDescriptor);

private:
    Utf8View text;
    int end;
    int start;
    int position;
};
