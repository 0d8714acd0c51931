#include "support/RewriteClasses.h"

namespace {

bool insertCalls(ClassFile* classFile, bool allocations, bool tracing, MethodIds* ids,
                 InstrumentationCounts* counts) {
    CallSet wanted = tracing ? TRACING_CALLS : CallSet();
    wanted = allocations ? wanted.with(ALLOCATION_CALLS) : wanted;
    const ClassCalls calls =
        callsOfClass(wanted, classFile->getSignature(), classFile->getSuperClassSignature());
    return instrumentForTracingAndAllocation(classFile, calls, ids, false, counts);
}

} // namespace

std::string rewriteClass(const void* bytes, int length, bool allocations, bool tracing,
                         MethodIds* ids, InstrumentationCounts* counts) {
    DataInput input(static_cast<const unsigned char*>(bytes), length);
    ClassFile classFile(input);
    if (classFile.isInvalid() || (classFile.getAccessFlags() & ACC_MODULE) != 0 ||
        !insertCalls(&classFile, allocations, tracing, ids, counts)) {
        return "";
    }
    ZVector<unsigned char> rewritten(length * 2);
    DataOutput output(rewritten);
    classFile.writeClass(output);
    return std::string(reinterpret_cast<const char*>(rewritten.data()),
                       static_cast<size_t>(rewritten.getSize()));
}
