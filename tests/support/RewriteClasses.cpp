#include "support/RewriteClasses.h"

std::string rewriteClass(const void* bytes, int length, bool allocations, bool tracing,
                         MethodIds* ids, InstrumentationCounts* counts) {
    DataInput input(static_cast<const unsigned char*>(bytes), length);
    ClassFile classFile(input);
    if (classFile.isInvalid() || (classFile.getAccessFlags() & ACC_MODULE) != 0 ||
        !instrumentForTracingAndAllocation(&classFile, allocations, tracing, ids, false, counts)) {
        return "";
    }
    ZVector<unsigned char> rewritten(length * 2);
    DataOutput output(rewritten);
    classFile.writeClass(output);
    return std::string(reinterpret_cast<const char*>(rewritten.data()),
                       static_cast<size_t>(rewritten.getSize()));
}
