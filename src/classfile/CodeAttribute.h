#pragma once

#include "classfile/AttributeInfo.h"
#include "classfile/CodeOffsets.h"
#include "classfile/LineNumberTableAttribute.h"
#include "classfile/LocalVariableTableAttribute.h"
#include "classfile/StackMapFrame.h"
#include "classfile/StackMapTableAttribute.h"
#include "classfile/TypeAnnotationsAttribute.h"

// CodeAttribute: the body of one method: limits, code, exception table, sub-attributes, frames.
//
// DESCRIPTION
//   Its operations keep the side tables true when code moves. Nothing here limits the length of the
//   code: the caller checks it against 65535. Private arrays replace the class's bytes as things
//   change; a body that nobody changed is not written anew (MethodInfo).
// IMPLEMENTATION
//   Frames stay as bytes until getFrames: frames[0] is the initial frame (offset -1, never
//   written), the rest is ascending. Decoding takes the "StackMapTable" out of the attribute list;
//   writing appends a new one.
class CodeAttribute final : public AttributeInfo {
public:
    static constexpr const char* NAME = "Code";

    // start <= pc < end; the catch type is a pool index, 0 for everything.
    struct ExceptionTableElement {
        int startPc;
        int endPc;
        int handlerPc;
        int catchType;
    };

    // Parses the body of a read attribute, `length` bytes.
    CodeAttribute(const unsigned char* body, ConstantPool& pool, int nameIndex, int length);
    // The smallest body: `return`, no stack, no locals.
    CodeAttribute(ConstantPool& pool, int nameIndex);
    void writeTo(DataOutput& output) const override;

    const unsigned char* getCode() const { return code; }
    int getCodeLength() const { return codeLength; }
    // Takes a copy of the code.
    void setCode(const unsigned char* newCode, int length);
    // Takes code that lies in the class's arena.
    void adoptCode(const unsigned char* newCode, int length);

    int getMaxStack() const { return maxStack; }
    int getMaxLocals() const { return maxLocals; }
    // These three never raise a limit above MAX_LIMIT.
    void ensureStackCapacity(int n);
    void incMaxStackCount(int n);
    void incMaxLocalsCount(int n);
    static constexpr int MAX_LIMIT = 32767;

    AttributeList& getAttributes() { return attributes; }
    ArenaVector<ExceptionTableElement>& getExceptionTable() { return exceptionTable; }
    // First table of the kind, or null.
    LocalVariableTableAttribute* getLocalVariableTable();
    LocalVariableTypeTableAttribute* getLocalVariableTypeTable();

    // The smallest of the code length and the end of every range that holds pc and starts below it:
    // where a catch-all of the code from pc on may end without crossing the end of an earlier
    // range.
    int getCorrectExceptionHandlerIndex(int pc) const;
    // Adds a catch-all handler whose frame has the initial locals and `type` on the stack. With
    // start 0 it comes last, otherwise ahead of the handlers that began at or before start.
    void addExceptionHandler(int start, int end, int handler, VerificationType type);
    // Moves end and handler of every range that starts at or before pc, and the handlers' frames.
    void incExceptionHandlerIndex(int pc, int delta);
    // For delta bytes inserted at fromPc. Line numbers all move, whatever their position.
    void shiftExceptionTableAndLineNumbers(int delta, int fromPc);
    // For a general rewrite, after setCode: exception table, line numbers, type annotations and
    // frames.
    void shiftExceptionTableAndLineNumbers(const CodeOffsets& offsets);
    // The same and local variable ranges. hasPrefix: code was put in front of the old position 0,
    // through which variables are visible whose range began there.
    void shiftTables(const CodeOffsets& offsets, bool hasPrefix = false);

    // Allocates a local variable and gives its slot. It becomes part of the frames, as itself or as
    // top, with applyAddedVariables.
    int addLocalVariableToTable(VerificationType type, bool addToFrames);
    // Adds the new variables to all frames from fromPc on.
    void applyAddedVariables(int fromPc);

    // Says whose body this is. Frames are kept for classes of version 50 and above.
    void parseStackMapTable(ClassFile* classFile, const MethodInfo* method);
    bool hasStackMaps() const { return stackMaps; }
    // The frames, decoded by the first call. Only with hasStackMaps.
    ArenaVector<StackMapFrame*>& getFrames();
    // The frames as bytes, null when they are decoded or there are none.
    const StackMapTableAttribute* getRawFrames() const;
    // Adds frames at branch targets of inserted code, base + offsets, ascending. Each takes the
    // locals of the nearest frame in front.
    void addStackMapFrames(const ZVector<int>& offsets, int base, VerificationType stackItem,
                           int initPc);
    // Encodes decoded frames into a sub-attribute, once.
    void addStackMapTableAttributeBeforeWrite();
    // Drops the frames: the class is to be checked by the old verifier.
    void stripStackMapTable();

    // Whether anything differs from the bytes read.
    bool isModified() const { return modified; }
    void setModified() { modified = true; }
    // First sub-attribute that may hold code positions that nobody here knows, or null.
    const AttributeInfo* findOpaqueAttribute() const;

private:
    template <typename T>
    T* findAttribute(AttributeKind kind);
    void addLength(int delta) { setAttributeLength(getAttributeLength() + delta); }
    void removeAttribute(int i);
    void insertHandlerFrame(int handler, VerificationType type);
    void shiftFrames(const CodeOffsets& offsets);

    ConstantPool& pool;
    int maxStack;
    int maxLocals;
    const unsigned char* code;
    int codeLength;
    ArenaVector<ExceptionTableElement> exceptionTable;
    AttributeList attributes;
    ArenaVector<StackMapFrame*> frames;
    ArenaVector<VerificationType> addedVariables;
    ClassFile* classFile;
    const MethodInfo* method;
    bool stackMaps;
    bool modified;
    bool framesWritten;
};
