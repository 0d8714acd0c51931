#include "classfile/ClassFile.h"

namespace {
// The last version that the JVM checks without frames.
constexpr int LAST_VERSION_WITHOUT_FRAMES = 49;
} // namespace

// ClassFile, JVMS 4.1: u4 magic, u2 minor, u2 major, constant pool, u2 access_flags, this_class,
// super_class, interfaces, fields, methods, attributes.
ClassFile::ClassFile(DataInput& input, bool stripStackMaps)
    : arena(static_cast<size_t>(input.getRemaining())), accessFlags(0), thisClass(0), superClass(0),
      interfaceCount(0), interfaces(nullptr), pool(arena), fields(arena), methods(arena),
      attributes(arena), fieldSpan{nullptr, 0}, attributeSpan{nullptr, 0}, fieldsParsed(false),
      attributesParsed(false), invalid(false), java7Constants(false), stripping(stripStackMaps) {
    magic = input.readInt();
    minorVersion = input.readUnsignedShort();
    majorVersion = input.readUnsignedShort();
    if (stripping && majorVersion > LAST_VERSION_WITHOUT_FRAMES) {
        majorVersion = LAST_VERSION_WITHOUT_FRAMES;
    }
    if (!pool.read(input, input.readUnsignedShort())) {
        invalid = true;
        return;
    }
    if (stripping) {
        noteJava7Constants();
    }
    accessFlags = input.readUnsignedShort();
    thisClass = pool.checkRead(input.readUnsignedShort());
    Logger::assertTrue(thisClass >= 1, VDK_HERE);
    superClass = pool.checkRead(input.readUnsignedShort());
    interfaceCount = input.readUnsignedShort();
    Logger::assertTrue(interfaceCount * 2 <= input.getRemaining(), VDK_HERE);
    interfaces = arena.allocateArray<int>(interfaceCount);
    for (int i = 0; i < interfaceCount; i++) {
        interfaces[i] = pool.checkRead(input.readUnsignedShort());
        Logger::assertTrue(interfaces[i] >= 1, VDK_HERE);
    }
    fieldSpan.bytes = input.take(0);
    int start = input.getPosition();
    const int fieldCount = input.readUnsignedShort();
    for (int i = 0; i < fieldCount; i++) {
        input.take(2);
        pool.checkRead(input.readUnsignedShort());
        pool.checkRead(input.readUnsignedShort());
        AttributeInfoReader::skipAll(input, pool);
    }
    fieldSpan.count = input.getPosition() - start;
    const int methodCount = input.readUnsignedShort();
    Logger::assertTrue(methodCount * 8 <= input.getRemaining(), VDK_HERE);
    methods.reserve(methodCount + 2);
    for (int i = 0; i < methodCount; i++) {
        methods.push(arena.make<MethodInfo>(input, this));
    }
    attributeSpan.bytes = input.take(0);
    start = input.getPosition();
    AttributeInfoReader::skipClassAttributes(input, pool);
    attributeSpan.count = input.getPosition() - start;
    Logger::assertEquals(input.getRemaining(), 0, VDK_HERE);
}

void ClassFile::noteJava7Constants() {
    for (int i = 1; i < pool.getSize() && !java7Constants; i++) {
        const int tag = pool.getContent(i).tag;
        java7Constants = tag >= CONSTANT_METHOD_HANDLE && tag <= CONSTANT_INVOKE_DYNAMIC;
    }
}

ArenaVector<FieldInfo*>& ClassFile::getFields() {
    if (!fieldsParsed) {
        DataInput input(fieldSpan.bytes, fieldSpan.count);
        const int count = input.readUnsignedShort();
        for (int i = 0; i < count; i++) {
            fields.push(arena.make<FieldInfo>(input, pool));
        }
        fieldsParsed = true;
    }
    return fields;
}

AttributeList& ClassFile::getAttributes() {
    if (!attributesParsed) {
        DataInput input(attributeSpan.bytes, attributeSpan.count);
        AttributeInfoReader::createAll(input, pool, attributes);
        attributesParsed = true;
    }
    return attributes;
}

void ClassFile::encodeEverything() {
    getFields();
    getAttributes();
    for (int i = 0; i < methods.getSize(); i++) {
        methods[i]->setAccessFlags(methods[i]->getAccessFlags());
        CodeAttribute* const code = methods[i]->getCodeAttribute();
        if (code != nullptr && code->hasStackMaps()) {
            code->getFrames();
        }
    }
}

void ClassFile::writeClass(DataOutput& output) {
    Logger::assertTrue(!invalid, VDK_HERE);
    for (int i = 0; i < methods.getSize(); i++) {
        if (stripping) {
            methods[i]->getCodeAttribute();
        }
        methods[i]->prepareToWrite();
    }
    output.writeInt(magic);
    output.writeUnsignedShort(minorVersion);
    output.writeUnsignedShort(majorVersion);
    pool.write(output);
    output.writeUnsignedShort(accessFlags);
    output.writeUnsignedShort(thisClass);
    output.writeUnsignedShort(superClass);
    output.writeUnsignedShort(interfaceCount);
    for (int i = 0; i < interfaceCount; i++) {
        output.writeUnsignedShort(interfaces[i]);
    }
    if (fieldsParsed) {
        output.writeUnsignedShort(fields.getSize());
        for (int i = 0; i < fields.getSize(); i++) {
            fields[i]->writeTo(output);
        }
    } else {
        output.write(fieldSpan.bytes, fieldSpan.count);
    }
    output.writeUnsignedShort(methods.getSize());
    for (int i = 0; i < methods.getSize(); i++) {
        methods[i]->writeTo(output);
    }
    if (attributesParsed) {
        AttributeInfoReader::writeAll(attributes, output);
    } else {
        output.write(attributeSpan.bytes, attributeSpan.count);
    }
}

int ClassFile::getInterface(int i) const {
    Logger::assertTrue(i >= 0 && i < interfaceCount, VDK_HERE);
    return interfaces[i];
}

Utf8View ClassFile::getSignature() const {
    return pool.getClassName(thisClass);
}

Utf8View ClassFile::getSuperClassSignature() const {
    return superClass == 0 ? Utf8View() : pool.getClassName(superClass);
}

bool ClassFile::hasDirectInterface(const Utf8View& name) const {
    for (int i = 0; i < interfaceCount; i++) {
        if (pool.getClassName(interfaces[i]) == name) {
            return true;
        }
    }
    return false;
}

bool ClassFile::hasAnnotation(const Utf8View& typeDescriptor) {
    return ::hasAnnotation(getAttributes(), pool, typeDescriptor);
}

bool ClassFile::hasMatchingAnnotation(const ZString& pattern) {
    return pattern.isEmpty() || ::hasMatchingAnnotation(getAttributes(), pool, pattern);
}

MethodInfo* ClassFile::findMethod(const Utf8View& name, const Utf8View& descriptor) {
    for (int i = 0; i < methods.getSize(); i++) {
        if (methods[i]->getName() == name && methods[i]->getDescriptor() == descriptor) {
            return methods[i];
        }
    }
    return nullptr;
}

MethodInfo* ClassFile::findFirstMethod(const Utf8View& name, bool* ambiguous) {
    Logger::assertNotNULL(ambiguous, VDK_HERE);
    *ambiguous = false;
    MethodInfo* first = nullptr;
    for (int i = 0; i < methods.getSize(); i++) {
        if (methods[i]->getName() != name) {
            continue;
        }
        if (first != nullptr) {
            *ambiguous = true;
            return first;
        }
        first = methods[i];
    }
    return first;
}

int ClassFile::findOrCreateMethod(const Utf8View& name, const Utf8View& descriptor, int flags) {
    Logger::assertTrue(flags >= 0, VDK_HERE);
    const int nameIndex = findOrCreateUtf8(name);
    const int descriptorIndex = findOrCreateUtf8(descriptor);
    for (int i = 0; i < methods.getSize(); i++) {
        if (methods[i]->equals(nameIndex, descriptorIndex)) {
            return i;
        }
    }
    methods.push(arena.make<MethodInfo>(flags, nameIndex, descriptorIndex, this));
    return methods.getSize() - 1;
}

void ClassFile::replaceText(ConstantUtf8Info& entry, const ZString& from, const ZString& to) {
    const Utf8View old = entry.getValue();
    const Utf8View pattern(from.c_str(), from.getLength());
    if (from.isEmpty() || !old.contains(pattern)) {
        return;
    }
    ZString replaced;
    for (int at = 0; at < old.getLength();) {
        if (Utf8View(old.getBytes() + at, old.getLength() - at).startsWith(pattern)) {
            replaced.append(to);
            at += from.getLength();
        } else {
            replaced.appendChar(old.getBytes()[at++]);
        }
    }
    entry.setValue(pool, Utf8View(replaced.c_str(), replaced.getLength()));
}

void ClassFile::patchConstantPool(const ZVectorSafe<ZString>& from,
                                  const ZVectorSafe<ZString>& to) {
    Logger::assertEquals(from.getSize(), to.getSize(), VDK_HERE);
    for (int pair = 0; pair < from.getSize(); pair++) {
        for (int i = 1; i < pool.getSize(); i++) {
            ConstantPoolInfo* const entry = pool[i];
            if (entry != nullptr && entry->getTag() == CONSTANT_UTF8) {
                replaceText(*static_cast<ConstantUtf8Info*>(entry), from[pair], to[pair]);
            }
        }
    }
}

void ClassFile::removeUnusedMacroMethods() {
    ZVectorSafe<ZString> names;
    ZVectorSafe<ZString> replacements;
    for (int i = 0; i < methods.getSize();) {
        const Utf8View name = methods[i]->getName();
        if (!name.startsWith("$$") || !name.endsWith("$$")) {
            i++;
            continue;
        }
        names.push(name.toString());
        replacements.push(ZString());
        methods.remove(i);
    }
    patchConstantPool(names, replacements);
}
