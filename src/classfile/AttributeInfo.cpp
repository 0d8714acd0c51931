#include "classfile/AttributeInfo.h"

#include "classfile/CodeAttribute.h"
#include "core/ground/Logger.h"
#include "core/ground/WildcardMatch.h"

namespace {

// Deeper nesting of annotation values is taken for an attack on the stack.
constexpr int MAX_ANNOTATION_DEPTH = 256;

struct NamedKind {
    const char* name;
    AttributeKind kind;
};

// In the order of the tests.
constexpr NamedKind NAMED_KINDS[] = {
    {CodeAttribute::NAME, ATTRIBUTE_CODE},
    {ConstantValueAttribute::NAME, ATTRIBUTE_CONSTANT_VALUE},
    {DeprecatedAttribute::NAME, ATTRIBUTE_DEPRECATED},
    {ExceptionsAttribute::NAME, ATTRIBUTE_EXCEPTIONS},
    {InnerClassesAttribute::NAME, ATTRIBUTE_INNER_CLASSES},
    {LineNumberTableAttribute::NAME, ATTRIBUTE_LINE_NUMBER_TABLE},
    {LocalVariableTableAttribute::NAME, ATTRIBUTE_LOCAL_VARIABLE_TABLE},
    {SourceFileAttribute::NAME, ATTRIBUTE_SOURCE_FILE},
    {SyntheticAttribute::NAME, ATTRIBUTE_SYNTHETIC},
    {LocalVariableTypeTableAttribute::NAME, ATTRIBUTE_LOCAL_VARIABLE_TYPE_TABLE},
    {StackMapTableAttribute::NAME, ATTRIBUTE_STACK_MAP_TABLE},
    {StaleWhenMovedAttribute::NAME_OLD_STACK_MAP, ATTRIBUTE_STALE_WHEN_MOVED},
    {StaleWhenMovedAttribute::NAME_CHARACTER_RANGES, ATTRIBUTE_STALE_WHEN_MOVED},
    {AnnotationsAttribute::NAME_RUNTIME_INVISIBLE, ATTRIBUTE_RUNTIME_INVISIBLE_ANNOTATIONS},
    {AnnotationsAttribute::NAME_RUNTIME_VISIBLE, ATTRIBUTE_RUNTIME_VISIBLE_ANNOTATIONS},
    {ParameterAnnotationsAttribute::NAME, ATTRIBUTE_RUNTIME_INVISIBLE_PARAMETER_ANNOTATIONS},
    {TypeAnnotationsAttribute::NAME_RUNTIME_VISIBLE, ATTRIBUTE_RUNTIME_VISIBLE_TYPE_ANNOTATIONS},
    {TypeAnnotationsAttribute::NAME_RUNTIME_INVISIBLE,
     ATTRIBUTE_RUNTIME_INVISIBLE_TYPE_ANNOTATIONS},
};

// Where class attributes hold pool indices: i an index, s another u2, [ a u2 count of what follows
// up to the ].
struct ClassAttributeShape {
    const char* name;
    const char* shape;
};
constexpr ClassAttributeShape CLASS_ATTRIBUTE_SHAPES[] = {
    {"SourceFile", "i"},
    {"Signature", "i"},
    {"InnerClasses", "[iiis]"},
    {"EnclosingMethod", "ii"},
    {"NestHost", "i"},
    {"NestMembers", "[i]"},
    {"BootstrapMethods", "[i[i]]"},
    {"PermittedSubclasses", "[i]"},
};

void checkShape(const char* shape, DataInput& body, const ConstantPool& pool) {
    for (; *shape != '\0' && *shape != ']'; shape++) {
        if (*shape == '[') {
            const char* const inner = shape + 1;
            const int count = body.readUnsignedShort();
            // Without an element the end of the shape has to be found all the same.
            int depth = 0;
            do {
                depth += *shape == '[' ? 1 : *shape == ']' ? -1 : 0;
                shape++;
            } while (depth > 0);
            shape--;
            for (int i = 0; i < count; i++) {
                checkShape(inner, body, pool);
            }
        } else {
            const int value = body.readUnsignedShort();
            if (*shape == 'i') {
                pool.checkRead(value);
            }
        }
    }
}

void skipElements(DataInput& input, int depth);

void skipElement(int tag, DataInput& input, int depth) {
    Logger::assertTrue(depth < MAX_ANNOTATION_DEPTH, VDK_HERE);
    switch (tag) {
    case 'e':
        input.take(4);
        return;
    case '@':
        input.readUnsignedShort();
        skipElements(input, depth + 1);
        return;
    case '[': {
        const int count = input.readUnsignedShort();
        for (int i = 0; i < count; i++) {
            const int elementTag = input.readUnsignedByte();
            skipElement(elementTag, input, depth + 1);
        }
        return;
    }
    default:
        input.readUnsignedShort();
    }
}

void skipElements(DataInput& input, int depth) {
    const int count = input.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        input.readUnsignedShort();
        const int tag = input.readUnsignedByte();
        skipElement(tag, input, depth);
    }
}

template <typename Test>
bool anyAnnotations(const AttributeList& attributes, Test test) {
    for (int i = 0; i < attributes.getSize(); i++) {
        const AttributeKind kind = attributes[i]->getKind();
        if ((kind == ATTRIBUTE_RUNTIME_VISIBLE_ANNOTATIONS ||
             kind == ATTRIBUTE_RUNTIME_INVISIBLE_ANNOTATIONS) &&
            test(*static_cast<const AnnotationsAttribute*>(attributes[i]))) {
            return true;
        }
    }
    return false;
}

} // namespace

AttributeInfo::AttributeInfo(AttributeKind attributeKind, int name, int bytes)
    : nameIndex(name), length(bytes), kind(attributeKind) {
    Logger::assertTrue(name >= 1, VDK_HERE);
    Logger::assertTrue(bytes >= 0, VDK_HERE);
}

void AttributeInfo::setAttributeLength(int newLength) {
    Logger::assertTrue(newLength >= 0, VDK_HERE);
    length = newLength;
}

void AttributeInfo::write(DataOutput& output) const {
    output.writeUnsignedShort(nameIndex);
    output.writeInt(length);
    writeTo(output);
}

void RawAttribute::writeTo(DataOutput& output) const {
    output.write(bytes, getAttributeLength());
}

ConstantValueAttribute::ConstantValueAttribute(int name, int count, const unsigned char* body)
    : RawAttribute(ATTRIBUTE_CONSTANT_VALUE, name, count, body) {
    Logger::assertTrue(getValueIndex() >= 1, VDK_HERE);
}

int ExceptionsAttribute::getClassIndex(int i) const {
    Logger::assertTrue(i >= 0 && i < getCount(), VDK_HERE);
    DataInput body = openBody();
    body.take(2 + 2 * i);
    return body.readUnsignedShort();
}

template <typename Test>
bool AnnotationsAttribute::anyType(const ConstantPool& pool, Test test) const {
    DataInput body = openBody();
    const int count = body.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        if (test(pool.getUtf8(body.readUnsignedShort()))) {
            return true;
        }
        skipAnnotationElements(body);
    }
    return false;
}

bool AnnotationsAttribute::hasAnnotation(const ConstantPool& pool,
                                         const Utf8View& typeDescriptor) const {
    return anyType(pool, [&](const Utf8View& type) { return type == typeDescriptor; });
}

bool AnnotationsAttribute::hasMatchingAnnotation(const ConstantPool& pool,
                                                 const ZString& pattern) const {
    return anyType(pool, [&](const Utf8View& type) {
        return wildcardMatch(pattern.c_str(), type.toString().c_str());
    });
}

bool hasAnnotation(const AttributeList& attributes, const ConstantPool& pool,
                   const Utf8View& typeDescriptor) {
    return anyAnnotations(attributes, [&](const AnnotationsAttribute& annotations) {
        return annotations.hasAnnotation(pool, typeDescriptor);
    });
}

bool hasMatchingAnnotation(const AttributeList& attributes, const ConstantPool& pool,
                           const ZString& pattern) {
    return pattern.isEmpty() ||
           anyAnnotations(attributes, [&](const AnnotationsAttribute& annotations) {
               return annotations.hasMatchingAnnotation(pool, pattern);
           });
}

bool ParameterAnnotationsAttribute::findParameter(int parameter, DataInput& body) const {
    body = openBody();
    if (parameter >= body.readUnsignedByte()) {
        return false;
    }
    for (int i = 0; i < parameter; i++) {
        const int count = body.readUnsignedShort();
        for (int k = 0; k < count; k++) {
            body.readUnsignedShort();
            skipAnnotationElements(body);
        }
    }
    return true;
}

void skipAnnotationElements(DataInput& input) {
    skipElements(input, 0);
}

void skipAnnotationElementByTag(int tag, DataInput& input) {
    skipElement(tag, input, 0);
}

AttributeKind AttributeInfoReader::classify(const ConstantUtf8Info& name) {
    if (name.attributeKind == ATTRIBUTE_UNCLASSIFIED) {
        name.attributeKind = ATTRIBUTE_UNKNOWN;
        for (const NamedKind& row : NAMED_KINDS) {
            if (name.getValue() == row.name) {
                name.attributeKind = row.kind;
                break;
            }
        }
    }
    return static_cast<AttributeKind>(name.attributeKind);
}

AttributeInfo* AttributeInfoReader::create(DataInput& input, ConstantPool& pool) {
    const int name = input.readUnsignedShort();
    const int length = input.readInt();
    Logger::assertTrue(length >= 0, VDK_HERE);
    const unsigned char* const body = input.take(length);
    ClassArena& arena = pool.getArena();
    const AttributeKind kind = classify(pool.getUtf8Info(name));
    switch (kind) {
    case ATTRIBUTE_CODE:
        return arena.make<CodeAttribute>(body, pool, name, length);
    case ATTRIBUTE_CONSTANT_VALUE:
        return arena.make<ConstantValueAttribute>(name, length, body);
    case ATTRIBUTE_DEPRECATED:
        return arena.make<DeprecatedAttribute>(name, length, body);
    case ATTRIBUTE_EXCEPTIONS:
        return arena.make<ExceptionsAttribute>(name, length, body);
    case ATTRIBUTE_INNER_CLASSES:
        return arena.make<InnerClassesAttribute>(name, length, body);
    case ATTRIBUTE_LINE_NUMBER_TABLE:
        return arena.make<LineNumberTableAttribute>(arena, name, length, body);
    case ATTRIBUTE_LOCAL_VARIABLE_TABLE:
        return arena.make<LocalVariableTableAttribute>(arena, name, length, body);
    case ATTRIBUTE_SOURCE_FILE:
        return arena.make<SourceFileAttribute>(name, length, body);
    case ATTRIBUTE_SYNTHETIC:
        return arena.make<SyntheticAttribute>(name, length, body);
    case ATTRIBUTE_LOCAL_VARIABLE_TYPE_TABLE:
        return arena.make<LocalVariableTypeTableAttribute>(arena, name, length, body);
    case ATTRIBUTE_STACK_MAP_TABLE:
        return arena.make<StackMapTableAttribute>(name, length, body);
    case ATTRIBUTE_STALE_WHEN_MOVED:
        return arena.make<StaleWhenMovedAttribute>(name, length, body);
    case ATTRIBUTE_RUNTIME_INVISIBLE_ANNOTATIONS:
    case ATTRIBUTE_RUNTIME_VISIBLE_ANNOTATIONS:
        return arena.make<AnnotationsAttribute>(kind, name, length, body);
    case ATTRIBUTE_RUNTIME_INVISIBLE_PARAMETER_ANNOTATIONS:
        return arena.make<ParameterAnnotationsAttribute>(name, length, body);
    case ATTRIBUTE_RUNTIME_VISIBLE_TYPE_ANNOTATIONS:
    case ATTRIBUTE_RUNTIME_INVISIBLE_TYPE_ANNOTATIONS:
        return arena.make<TypeAnnotationsAttribute>(arena, kind, name, length, body);
    default:
        return arena.make<UnknownAttribute>(name, length, body);
    }
}

void AttributeInfoReader::createAll(DataInput& input, ConstantPool& pool, AttributeList& into) {
    const int count = input.readUnsignedShort();
    // Each takes at least its six header bytes.
    Logger::assertTrue(count <= input.getRemaining() / 6, VDK_HERE);
    into.reserve(count);
    for (int i = 0; i < count; i++) {
        into.push(create(input, pool));
    }
}

void AttributeInfoReader::skipAll(DataInput& input, const ConstantPool& pool) {
    const int count = input.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        pool.checkRead(input.readUnsignedShort());
        input.take(input.readInt());
    }
}

void AttributeInfoReader::skipClassAttributes(DataInput& input, const ConstantPool& pool) {
    const int count = input.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        const Utf8View name = pool.getUtf8(pool.checkRead(input.readUnsignedShort()));
        const int length = input.readInt();
        DataInput body(input.take(length), length);
        for (const ClassAttributeShape& row : CLASS_ATTRIBUTE_SHAPES) {
            if (name == row.name) {
                checkShape(row.shape, body, pool);
                break;
            }
        }
    }
}

void AttributeInfoReader::writeAll(const AttributeList& list, DataOutput& output) {
    output.writeUnsignedShort(list.getSize());
    for (int i = 0; i < list.getSize(); i++) {
        list[i]->write(output);
    }
}
