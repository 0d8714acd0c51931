// Class files as any program may hand them to the JVM: parser, frame decoder and writer. What was
// encoded anew must parse again. A class that is named as a probe gives errors, never an exception.

#include "classfile/ClassFile.h"
#include "probes/Probes.h"

#include <cstddef>
#include <cstdint>

namespace {

void encode(const unsigned char* bytes, int length, ZVector<unsigned char>& output) {
    DataInput input(bytes, length);
    ClassFile classFile(input);
    if (classFile.isInvalid()) {
        return;
    }
    classFile.encodeEverything();
    DataOutput out(output);
    if (classFile.getConstantPool().getSize() < 0x10000) {
        classFile.writeClass(out);
    }
}

void readAsProbe(const unsigned char* bytes, int length) {
    ZVector<unsigned char> input(length + 1);
    memcpy(input.extend(length), bytes, static_cast<size_t>(length));
    ProbeCreationResult result;
    Probes::createProbeDescriptor(&input, PROBE_ADDED, &result);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    Logger::setSink([](const char*) {});
    readAsProbe(bytes, static_cast<int>(count));
    ZVector<unsigned char> first(64);
    try {
        encode(bytes, static_cast<int>(count), first);
    } catch (const VDKRuntimeException&) {
        return 0;
    }
    if (first.isEmpty()) {
        return 0;
    }
    ZVector<unsigned char> second(64);
    try {
        encode(first.data(), first.getSize(), second);
    } catch (const VDKRuntimeException&) {
        __builtin_trap();
    }
    if (second.getSize() != first.getSize() ||
        memcmp(first.data(), second.data(), static_cast<size_t>(first.getSize())) != 0) {
        __builtin_trap();
    }
    return 0;
}
