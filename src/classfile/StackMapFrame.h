#pragma once

#include "classfile/CodeOffsets.h"
#include "classfile/VerificationType.h"

class MethodInfo;

// StackMapFrame: the types at one code position, complete lists of locals and stack. Differences to
// the frame in front exist only in the file. The initial frame has offset -1 and is never written.
class StackMapFrame {
public:
    // The initial frame: receiver and parameters.
    StackMapFrame(ClassFile* classFile, const MethodInfo* method);
    // Decodes the frame behind `previous`.
    StackMapFrame(const StackMapFrame* previous, DataInput& input, int thisClass);
    // A frame at `offset` with base's locals and, unless its tag is top, one stack item. With
    // initPc other than -1 and below offset an uninitialized this has become an object.
    StackMapFrame(const StackMapFrame* base, int offset, VerificationType stackItem, int initPc);

    int getOffset() const { return offset; }
    void setOffset(int newOffset) { offset = newOffset; }
    ArenaVector<VerificationType>& getLocals() { return locals; }
    ArenaVector<VerificationType>& getStack() { return stack; }
    const ArenaVector<VerificationType>& getLocals() const { return locals; }
    const ArenaVector<VerificationType>& getStack() const { return stack; }

    // Encodes the frame in its most compact form; gives the end of what was written, which is at
    // most getLargestSize() bytes.
    unsigned char* writeTo(const StackMapFrame* previous, unsigned char* at) const;
    int getLargestSize() const { return 7 + 3 * (locals.getSize() + stack.getSize()); }
    // Appends variables so that they end at slot maxLocals; tops fill a gap, none is left at the
    // end.
    void addLocalVariables(const ArenaVector<VerificationType>& added, int maxLocals);

private:
    void copyLocals(const StackMapFrame* from);
    static void readTypes(ArenaVector<VerificationType>& into, int count, DataInput& input,
                          int thisClass);

    int offset;
    ArenaVector<VerificationType> locals;
    ArenaVector<VerificationType> stack;
};

// The positions of `new` instructions named by uninitialized types, moved with the code.
void shiftUninitializedTypeOffset(ArenaVector<VerificationType>& types, const CodeOffsets& offsets);
// The same for delta bytes inserted at fromPc.
void shiftUninitializedTypeOffset(ArenaVector<VerificationType>& types, int delta, int fromPc);
