// Class files as any program may hand them to the JVM, through all rewriting passes. What comes out
// must parse again, bodies included.

#include "instrument/LoaderDelegation.h"
#include "instrument/NativeWrapping.h"
#include "instrument/TracingInstrumentation.h"
#include "support/WeaveClasses.h"

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

// One that tests at run time and one that does not, both with every kind of block.
std::vector<std::unique_ptr<ProbeDescriptor>> probes() {
    std::vector<std::unique_ptr<ProbeDescriptor>> made;
    for (const char* const instanceOf : {"", "java/lang/Runnable"}) {
        ProbeOutline outline;
        outline.instanceOf = instanceOf;
        outline.enter = {"([Ljava/lang/Object;)J", {kind(CALLBACK_PARAMS)}};
        outline.exit = {"(JLjava/lang/Object;)V",
                        {kind(CALLBACK_ON_ENTER_RESULT), kind(CALLBACK_RETURN_VALUE)}};
        outline.thrown = {"(Ljava/lang/Throwable;Ljava/lang/Object;)V",
                          {kind(CALLBACK_THROWN_EXCEPTION), parameter(1)}};
        made.push_back(makeProbe(outline));
    }
    return made;
}

bool weave(ClassFile& classFile) {
    static const std::vector<std::unique_ptr<ProbeDescriptor>> all = probes();
    RecordingHost host;
    return weaveClass(classFile, {all[0].get(), all[1].get()}, nullptr, &host);
}

void rewrite(const unsigned char* bytes, int length, ZVector<unsigned char>& output) {
    DataInput input(bytes, length);
    ClassFile classFile(input);
    if (classFile.isInvalid()) {
        return;
    }
    CountingIds ids;
    bool changed = wrapNativeMethods(&classFile, "$$VDK$$", NativeSelection(), nullptr);
    changed = weave(classFile) || changed;
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
