#include "support/RewriteClasses.h"

std::string rewriteClass(const void* bytes, int length, bool allocations, bool tracing,
                         MethodIds* ids, InstrumentationCounts* counts) {
    const CallSet wanted = tracing ? TRACING_CALLS : CallSet();
    return rewriteClass(bytes, length, allocations ? wanted.with(ALLOCATION_CALLS) : wanted, ids,
                        counts);
}

std::string rewriteClass(const void* bytes, int length, CallSet wanted, MethodIds* ids,
                         InstrumentationCounts* counts) {
    DataInput input(static_cast<const unsigned char*>(bytes), length);
    ClassFile classFile(input);
    if (classFile.isInvalid() || (classFile.getAccessFlags() & ACC_MODULE) != 0) {
        return "";
    }
    const ClassCalls calls =
        callsOfClass(wanted, classFile.getSignature(), classFile.getSuperClassSignature());
    if (!instrumentForTracingAndAllocation(&classFile, calls, ids, false, counts)) {
        return "";
    }
    ZVector<unsigned char> rewritten(length * 2);
    DataOutput output(rewritten);
    classFile.writeClass(output);
    return std::string(reinterpret_cast<const char*>(rewritten.data()),
                       static_cast<size_t>(rewritten.getSize()));
}
