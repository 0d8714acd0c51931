// Class files as any program may hand them to the JVM, through all rewriting passes. What comes out
// must parse again, bodies included.

#include "instrument/LoaderDelegation.h"
#include "instrument/NativeWrapping.h"
#include "instrument/TracingInstrumentation.h"

#include <cstddef>
#include <cstdint>

namespace {

class CountingIds : public MethodIds {
public:
    int getMethodId(const Utf8View&, const Utf8View&, const Utf8View&) override { return ++last; }
    void methodInstrumented(int) override {}

private:
    int last = 0;
};

void rewrite(const unsigned char* bytes, int length, ZVector<unsigned char>& output) {
    DataInput input(bytes, length);
    ClassFile classFile(input);
    if (classFile.isInvalid()) {
        return;
    }
    CountingIds ids;
    bool changed = wrapNativeMethods(&classFile, "$$VDK$$", NativeSelection(), nullptr);
    changed = patchLoaderDelegation(&classFile) == Delegation::PATCHED || changed;
    changed = instrumentForTracingAndAllocation(&classFile,
                                                callsOfClass(BODY_CALLS, classFile.getSignature(),
                                                             classFile.getSuperClassSignature()),
                                                &ids, false, nullptr) ||
              changed;
    DataOutput out(output);
    if (changed && classFile.getConstantPool().getSize() < 0x10000) {
        classFile.writeClass(out);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    Logger::setSink([](const char*) {});
    ZVector<unsigned char> rewritten(64);
    try {
        rewrite(bytes, static_cast<int>(count), rewritten);
    } catch (const VDKRuntimeException&) {
        return 0;
    }
    if (rewritten.isEmpty()) {
        return 0;
    }
    try {
        DataInput input(rewritten);
        ClassFile classFile(input);
        for (int i = 0; i < classFile.getMethods().getSize(); i++) {
            classFile.getMethods()[i]->getCodeAttribute();
        }
    } catch (const VDKRuntimeException&) {
        __builtin_trap();
    }
    return 0;
}
