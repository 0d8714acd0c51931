#include "classfile/MethodInfo.h"

#include "classfile/ClassFile.h"

namespace {
// Access flags, name and descriptor.
constexpr int MEMBER_HEADER = 6;
} // namespace

// method_info, JVMS 4.6: u2 access_flags, u2 name_index, u2 descriptor_index, attributes.
MethodInfo::MethodInfo(DataInput& input, ClassFile* owner)
    : classFile(owner), attributes(owner->getArena()), original(input.take(0)), parsed(false),
      modified(false), code(nullptr) {
    const int start = input.getPosition();
    accessFlags = input.readUnsignedShort();
    const ConstantPool& pool = owner->getConstantPool();
    nameIndex = pool.checkRead(input.readUnsignedShort());
    descriptorIndex = pool.checkRead(input.readUnsignedShort());
    AttributeInfoReader::skipAll(input, pool);
    originalBytes = input.getPosition() - start;
}

MethodInfo::MethodInfo(int flags, int name, int descriptor, ClassFile* owner)
    : accessFlags(flags), nameIndex(name), descriptorIndex(descriptor), classFile(owner),
      attributes(owner->getArena()), original(nullptr), originalBytes(0), parsed(true),
      modified(true), code(nullptr) {
    Logger::assertTrue(flags >= 0 && name >= 1 && descriptor >= 1, VDK_HERE);
}

Utf8View MethodInfo::getName() const {
    return classFile->getConstantPool().getUtf8(nameIndex);
}

Utf8View MethodInfo::getDescriptor() const {
    return classFile->getConstantPool().getUtf8(descriptorIndex);
}

void MethodInfo::setAccessFlags(int flags) {
    parseAttributes();
    accessFlags = flags;
    modified = true;
}

bool MethodInfo::equals(int otherNameIndex, int otherDescriptorIndex) const {
    Logger::assertTrue(otherNameIndex >= 1 && otherDescriptorIndex >= 1, VDK_HERE);
    return nameIndex == otherNameIndex && descriptorIndex == otherDescriptorIndex;
}

void MethodInfo::parseAttributes() {
    if (parsed) {
        return;
    }
    DataInput input(original + MEMBER_HEADER, originalBytes - MEMBER_HEADER);
    AttributeInfoReader::createAll(input, classFile->getConstantPool(), attributes);
    parsed = true;
    for (int i = 0; i < attributes.getSize() && code == nullptr; i++) {
        if (attributes[i]->getKind() == ATTRIBUTE_CODE) {
            code = static_cast<CodeAttribute*>(attributes[i]);
            code->parseStackMapTable(classFile, this);
        }
    }
}

AttributeList& MethodInfo::getAttributes() {
    parseAttributes();
    return attributes;
}

CodeAttribute* MethodInfo::getCodeAttribute() {
    parseAttributes();
    return code;
}

CodeAttribute* MethodInfo::createCodeAttribute() {
    parseAttributes();
    ConstantPool& pool = classFile->getConstantPool();
    const int nameIndex = pool.findUtf8(CodeAttribute::NAME);
    Logger::assertTrue(nameIndex > 0, VDK_HERE);
    CodeAttribute* const created = classFile->getArena().make<CodeAttribute>(pool, nameIndex);
    attributes.push(created);
    if (code == nullptr) {
        code = created;
    }
    modified = true;
    return created;
}

void MethodInfo::moveAttributesTo(MethodInfo* other) {
    parseAttributes();
    Logger::assertTrue(other->getAttributes().isEmpty() && code == nullptr, VDK_HERE);
    other->attributes.append(attributes.data(), attributes.getSize());
    attributes.clear();
    modified = true;
    other->modified = true;
}

bool MethodInfo::hasAnnotation(const Utf8View& typeDescriptor) {
    return ::hasAnnotation(getAttributes(), classFile->getConstantPool(), typeDescriptor);
}

bool MethodInfo::hasMatchingAnnotation(const ZString& pattern) {
    return pattern.isEmpty() ||
           ::hasMatchingAnnotation(getAttributes(), classFile->getConstantPool(), pattern);
}

void MethodInfo::getParameterTypes(ZVectorSafe<ZString>& out) const {
    getParameterTypesBySignature(getDescriptor(), out);
}

ZString MethodInfo::getReturnType() const {
    return getReturnTypeBySignature(getDescriptor());
}

void MethodInfo::getParameterTypesBySignature(const Utf8View& signature,
                                              ZVectorSafe<ZString>& out) {
    for (DescriptorTypes types(signature); types.next();) {
        out.push(types.getType().toString());
    }
}

ZString MethodInfo::getReturnTypeBySignature(const Utf8View& signature) {
    return DescriptorTypes::returnType(signature).toString();
}

void MethodInfo::fillExceptions(ZVectorSafe<ZString>& out) {
    parseAttributes();
    for (int i = 0; i < attributes.getSize(); i++) {
        if (attributes[i]->getKind() != ATTRIBUTE_EXCEPTIONS) {
            continue;
        }
        const auto* const exceptions = static_cast<ExceptionsAttribute*>(attributes[i]);
        for (int k = 0; k < exceptions->getCount(); k++) {
            out.push(classFile->getConstantPool().getClassName(exceptions->getClassIndex(k)));
        }
    }
}

bool MethodInfo::isModified() const {
    return modified || (code != nullptr && code->isModified());
}

void MethodInfo::prepareToWrite() {
    if (code != nullptr) {
        code->addStackMapTableAttributeBeforeWrite();
    }
}

void MethodInfo::writeTo(DataOutput& output) const {
    if (!isModified()) {
        output.write(original, originalBytes);
        return;
    }
    output.writeUnsignedShort(accessFlags);
    output.writeUnsignedShort(nameIndex);
    output.writeUnsignedShort(descriptorIndex);
    AttributeInfoReader::writeAll(attributes, output);
}
