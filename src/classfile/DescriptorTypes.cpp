#include "classfile/DescriptorTypes.h"

namespace {
int lastParenthesis(const Utf8View& text) {
    int at = text.getLength() - 1;
    while (at >= 0 && text.getBytes()[at] != ')') {
        at--;
    }
    return at;
}
} // namespace

DescriptorTypes::DescriptorTypes(const Utf8View& methodDescriptor)
    : text(methodDescriptor), end(lastParenthesis(methodDescriptor)), start(1), position(1) {
    if (end < 2) {
        end = 0;
    }
}

bool DescriptorTypes::next() {
    if (position >= end) {
        return false;
    }
    start = position;
    int at = position;
    while (at < end && text.getBytes()[at] == '[') {
        at++;
    }
    if (at < end && text.getBytes()[at] == 'L') {
        while (at < end && text.getBytes()[at] != ';') {
            at++;
        }
    }
    if (at >= end) {
        return false;
    }
    position = at + 1;
    return true;
}

int DescriptorTypes::parameterSlots(const Utf8View& methodDescriptor) {
    int slots = 0;
    for (DescriptorTypes types(methodDescriptor); types.next();) {
        slots += types.getSlots();
    }
    return slots;
}

int DescriptorTypes::returnSlots(const Utf8View& methodDescriptor) {
    return slotsOf(returnType(methodDescriptor).charAt(0));
}

Utf8View DescriptorTypes::returnType(const Utf8View& methodDescriptor) {
    const int at = lastParenthesis(methodDescriptor);
    return Utf8View(methodDescriptor.getBytes() + at + 1, methodDescriptor.getLength() - at - 1);
}
