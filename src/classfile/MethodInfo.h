#pragma once

#include "classfile/AttributeInfo.h"
#include "classfile/CodeAttribute.h"
#include "classfile/DescriptorTypes.h"

enum AccessFlags : int {
    ACC_PUBLIC = 0x0001,
    ACC_PRIVATE = 0x0002,
    ACC_PROTECTED = 0x0004,
    ACC_STATIC = 0x0008,
    ACC_FINAL = 0x0010,
    ACC_SYNCHRONIZED = 0x0020,
    ACC_VARARGS = 0x0080,
    ACC_NATIVE = 0x0100,
    ACC_INTERFACE = 0x0200,
    ACC_ABSTRACT = 0x0400,
    ACC_SYNTHETIC = 0x1000,
    ACC_MODULE = 0x8000
};

// MethodInfo: one method of a class.
//
// The attributes are parsed by the first call that needs them. A method that nobody changed is
// written back as the bytes that were read.
class MethodInfo {
public:
    // Steps over the method in the input.
    MethodInfo(DataInput& input, ClassFile* classFile);
    MethodInfo(int accessFlags, int nameIndex, int descriptorIndex, ClassFile* classFile);

    Utf8View getName() const;
    Utf8View getDescriptor() const;
    int getNameIndex() const { return nameIndex; }
    int getDescriptorIndex() const { return descriptorIndex; }
    int getAccessFlags() const { return accessFlags; }
    bool isStatic() const { return (accessFlags & ACC_STATIC) != 0; }
    bool isPublic() const { return (accessFlags & ACC_PUBLIC) != 0; }
    bool isPrivate() const { return (accessFlags & ACC_PRIVATE) != 0; }
    bool isNative() const { return (accessFlags & ACC_NATIVE) != 0; }
    bool isVoid() const { return getDescriptor().endsWith(")V"); }
    void setAccessFlags(int flags);
    void makeNotNative() { setAccessFlags(accessFlags & ~ACC_NATIVE); }
    bool equals(int otherNameIndex, int otherDescriptorIndex) const;

    AttributeList& getAttributes();
    // The body, or null.
    CodeAttribute* getCodeAttribute();
    // Gives a method without a body the smallest one. The pool must hold the Utf8 "Code".
    CodeAttribute* createCodeAttribute();
    // Moves all attributes to another method of the class, which had none of its own.
    void moveAttributesTo(MethodInfo* other);
    // Whether the method carries this annotation, visible or not ("Lp/Name;").
    bool hasAnnotation(const Utf8View& typeDescriptor);
    // The same for a pattern that "*" may stand in; the empty one matches without an annotation.
    bool hasMatchingAnnotation(const ZString& pattern);

    void getParameterTypes(ZVectorSafe<ZString>& out) const;
    ZString getReturnType() const;
    static void getParameterTypesBySignature(const Utf8View& signature, ZVectorSafe<ZString>& out);
    static ZString getReturnTypeBySignature(const Utf8View& signature);
    // Appends the internal names of the declared exceptions.
    void fillExceptions(ZVectorSafe<ZString>& out);

    // Whether anything differs from the bytes read.
    bool isModified() const;
    // Encodes what the body holds in decoded form; the pool may grow.
    void prepareToWrite();
    void writeTo(DataOutput& output) const;

private:
    void parseAttributes();

    int accessFlags;
    int nameIndex;
    int descriptorIndex;
    ClassFile* classFile;
    AttributeList attributes;
    const unsigned char* original; // the whole method_info as read, null for an added method
    int originalBytes;
    bool parsed;
    bool modified;
    CodeAttribute* code;
};
