#pragma once

#include "classfile/ByteCodeGenerator.h"
#include "classfile/ClassFile.h"
#include "probes/ProbeDescriptor.h"

// Of the method that tests objects for types by name.
constexpr char TYPE_TEST_DESCRIPTOR[] = "(Ljava/lang/Object;Ljava/lang/String;)Z";

// ProbeCode: writes one block of code that calls a callback of a probe: loads, stores and the call,
// with the stack that they take.
class ProbeCode {
public:
    explicit ProbeCode(ClassFile* owner) : classFile(owner), depth(0), maxDepth(0) {}
    // The block begins with this many slots on the operand stack that it takes part in.
    void beginWith(int slots) { grow(slots); }

    void generateVariableLoad(const ZString& type, int slot);
    void generateVariableStore(const ZString& type, int slot);
    void generateZeroLoad(const ZString& type);
    // A value for a callback's parameter: boxed for one of type Object, zero where the types
    // differ.
    void generateConvertedLoad(const ZString& type, int slot, const ZString& calleeType);
    // A parameter of the method, counted from 0; zero beyond the last.
    void generateLoadParamCode(int index, const ZString& calleeType,
                               const ZVectorSafe<ZString>& types, const ZVector<int>& locals);
    // All parameters in a new Object[].
    void generateLoadAllParamsCode(const ZVectorSafe<ZString>& types, const ZVector<int>& locals);
    // The constants of the four kinds that name the method. False for another kind.
    bool handleMethodNamesCPK(CallbackParameterKind kind, const MethodInfo* method);
    // Null in a static method. slot: of `this`, or of a copy.
    void loadThis(bool isStatic, int checkedClass, int slot);
    // A second copy of the value on top; takes it away.
    void duplicate(const ZString& type);
    void drop(const ZString& type);
    void invokeStatic(int reference, const ZString& descriptor);
    // Leaves the method with the value on top.
    void generateReturn(const ZString& type);
    void generateThrow();
    // What follows up to endOfTest runs only for a receiver of this class.
    void testReceiver(int classIndex, int slot);
    // What follows up to endOfTest runs only if the int on the stack is not 0.
    void testNested();
    // The same by the name of the class, with a method of TYPE_TEST_DESCRIPTOR.
    void testReceiverByName(int nameIndex, int testReference, int slot);
    void endOfTest() { generator.closeJump(); }
    // Fills up with nops until this many more bytes end at a multiple of 4.
    void pad(int more = 0);

    const ByteCodeGenerator& getGenerator() const { return generator; }
    int getSize() const { return generator.getSize(); }
    int getMaxStack() const { return maxDepth; }

private:
    void instruction(int opcode, int operand);
    void grow(int slots);
    void box(const ZString& type);
    void pushInt(int value);
    void loadConstant(int index);
    int getValueOfIndex(const ZString& type);

    ClassFile* classFile;
    ByteCodeGenerator generator;
    int depth;
    int maxDepth;
};

// Of a field descriptor.
bool isLongOrDouble(const ZString& type);
bool isReferenceType(const ZString& type);
bool isJavaLangObject(const ZString& type);
