#include "instrument/MethodLimits.h"

namespace {
// Local variables of all frames of a method together, above which its frames stay as they are.
constexpr long MOST_FRAME_VARIABLES = 1 << 22;
} // namespace

int argumentSlots(const MethodInfo* method) {
    return DescriptorTypes::parameterSlots(method->getDescriptor()) + (method->isStatic() ? 0 : 1);
}

bool framesFitMemory(const CodeAttribute* attribute, int more) {
    const StackMapTableAttribute* const raw = attribute->getRawFrames();
    const long count = (raw == nullptr ? 0 : raw->getCount()) + more;
    return count * attribute->getMaxLocals() <= MOST_FRAME_VARIABLES;
}
