#pragma once

#include "classfile/ArenaVector.h"
#include "classfile/ConstantPool.h"

// What an attribute is, by its name alone.
enum AttributeKind : unsigned char {
    ATTRIBUTE_UNCLASSIFIED,
    ATTRIBUTE_CODE,
    ATTRIBUTE_CONSTANT_VALUE,
    ATTRIBUTE_DEPRECATED,
    ATTRIBUTE_EXCEPTIONS,
    ATTRIBUTE_INNER_CLASSES,
    ATTRIBUTE_LINE_NUMBER_TABLE,
    ATTRIBUTE_LOCAL_VARIABLE_TABLE,
    ATTRIBUTE_SOURCE_FILE,
    ATTRIBUTE_SYNTHETIC,
    ATTRIBUTE_LOCAL_VARIABLE_TYPE_TABLE,
    ATTRIBUTE_STACK_MAP_TABLE,
    ATTRIBUTE_STALE_WHEN_MOVED,
    ATTRIBUTE_RUNTIME_INVISIBLE_ANNOTATIONS,
    ATTRIBUTE_RUNTIME_VISIBLE_ANNOTATIONS,
    ATTRIBUTE_RUNTIME_INVISIBLE_PARAMETER_ANNOTATIONS,
    ATTRIBUTE_RUNTIME_VISIBLE_TYPE_ANNOTATIONS,
    ATTRIBUTE_RUNTIME_INVISIBLE_TYPE_ANNOTATIONS,
    ATTRIBUTE_UNKNOWN
};

// AttributeInfo: base of all attributes. The length is a stored value, never computed when writing:
// whoever changes a body keeps it up to date. Attributes live in the arena of their ClassFile.
class AttributeInfo {
public:
    // The body alone.
    virtual void writeTo(DataOutput& output) const = 0;
    // Name index, length and body.
    void write(DataOutput& output) const;
    int getAttributeNameIndex() const { return nameIndex; }
    int getAttributeLength() const { return length; }
    void setAttributeLength(int newLength);
    AttributeKind getKind() const { return kind; }

protected:
    AttributeInfo(AttributeKind attributeKind, int name, int bytes);
    ~AttributeInfo() = default;

private:
    int nameIndex;
    int length;
    AttributeKind kind;
};

// Base of the attributes that keep their body as it is in the class's bytes.
class RawAttribute : public AttributeInfo {
public:
    void writeTo(DataOutput& output) const override;
    const unsigned char* getBytes() const { return bytes; }
    DataInput openBody() const { return DataInput(bytes, getAttributeLength()); }

protected:
    RawAttribute(AttributeKind attributeKind, int name, int count, const unsigned char* body)
        : AttributeInfo(attributeKind, name, count), bytes(body) {}
    ~RawAttribute() = default;
    // Puts another body in; it belongs to the arena.
    void replaceBody(const unsigned char* body, int count) {
        bytes = body;
        setAttributeLength(count);
    }

private:
    const unsigned char* bytes;
};

class UnknownAttribute final : public RawAttribute {
public:
    UnknownAttribute(int name, int count, const unsigned char* body)
        : RawAttribute(ATTRIBUTE_UNKNOWN, name, count, body) {}
};

class ConstantValueAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME = "ConstantValue";
    ConstantValueAttribute(int name, int count, const unsigned char* body);
    int getValueIndex() const { return openBody().readUnsignedShort(); }
};

class DeprecatedAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME = "Deprecated";
    DeprecatedAttribute(int name, int count, const unsigned char* body)
        : RawAttribute(ATTRIBUTE_DEPRECATED, name, count, body) {}
};

class SyntheticAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME = "Synthetic";
    SyntheticAttribute(int name, int count, const unsigned char* body)
        : RawAttribute(ATTRIBUTE_SYNTHETIC, name, count, body) {}
};

class SourceFileAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME = "SourceFile";
    SourceFileAttribute(int name, int count, const unsigned char* body)
        : RawAttribute(ATTRIBUTE_SOURCE_FILE, name, count, body) {}
    int getSourceFileIndex() const { return openBody().readUnsignedShort(); }
};

// The checked exceptions that a method declares.
class ExceptionsAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME = "Exceptions";
    ExceptionsAttribute(int name, int count, const unsigned char* body)
        : RawAttribute(ATTRIBUTE_EXCEPTIONS, name, count, body) {}
    int getCount() const { return openBody().readUnsignedShort(); }
    // Pool index of the i-th class.
    int getClassIndex(int i) const;
};

// Holds code positions that no JVM with JVMTI reads: frames of small devices, and the compiler's
// ranges of characters (-Xjcov). Dropped when code moves.
class StaleWhenMovedAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME_OLD_STACK_MAP = "StackMap";
    static constexpr const char* NAME_CHARACTER_RANGES = "CharacterRangeTable";
    StaleWhenMovedAttribute(int name, int count, const unsigned char* body)
        : RawAttribute(ATTRIBUTE_STALE_WHEN_MOVED, name, count, body) {}
};

class InnerClassesAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME = "InnerClasses";
    InnerClassesAttribute(int name, int count, const unsigned char* body)
        : RawAttribute(ATTRIBUTE_INNER_CLASSES, name, count, body) {}
};

// Annotations of a class, method or field; the kind tells visible from invisible.
class AnnotationsAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME_RUNTIME_INVISIBLE = "RuntimeInvisibleAnnotations";
    static constexpr const char* NAME_RUNTIME_VISIBLE = "RuntimeVisibleAnnotations";
    AnnotationsAttribute(AttributeKind kind, int name, int count, const unsigned char* body)
        : RawAttribute(kind, name, count, body) {}
    // Whether an annotation of this type is there, by its descriptor ("Lp/Name;").
    bool hasAnnotation(const ConstantPool& pool, const Utf8View& typeDescriptor) const;
    // The same for a pattern that "*" may stand in.
    bool hasMatchingAnnotation(const ConstantPool& pool, const ZString& pattern) const;

private:
    template <typename Test>
    bool anyType(const ConstantPool& pool, Test test) const;
};

class ParameterAnnotationsAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME = "RuntimeInvisibleParameterAnnotations";
    ParameterAnnotationsAttribute(int name, int count, const unsigned char* body)
        : RawAttribute(ATTRIBUTE_RUNTIME_INVISIBLE_PARAMETER_ANNOTATIONS, name, count, body) {}
    // Puts the input in front of the annotations of a parameter, counted from 0: u2 count and the
    // annotations. False if the attribute ends before it.
    bool findParameter(int parameter, DataInput& body) const;
};

// Steps over the element pairs of an annotation: u2 count, then name index and value each.
void skipAnnotationElements(DataInput& input);
// Steps over one element value whose u1 tag has been read.
void skipAnnotationElementByTag(int tag, DataInput& input);

// A list of attributes as it stands in a class file: u2 count and the attributes.
using AttributeList = ArenaVector<AttributeInfo*>;

// Whether an annotation among the attributes, visible or not, is of the type ("Lp/Name;"), or of
// one that matches the pattern. The empty pattern matches everything.
bool hasAnnotation(const AttributeList& attributes, const ConstantPool& pool,
                   const Utf8View& typeDescriptor);
bool hasMatchingAnnotation(const AttributeList& attributes, const ConstantPool& pool,
                           const ZString& pattern);

class AttributeInfoReader {
public:
    // Reads one attribute. It is classified by name alone, wherever it stands.
    static AttributeInfo* create(DataInput& input, ConstantPool& pool);
    // Reads a list with its count.
    static void createAll(DataInput& input, ConstantPool& pool, AttributeList& into);
    // Steps over a list with its count.
    static void skipAll(DataInput& input, const ConstantPool& pool);
    // The same for the attributes of a class, whose bodies must name entries that were read.
    static void skipClassAttributes(DataInput& input, const ConstantPool& pool);
    static void writeAll(const AttributeList& list, DataOutput& output);
    static AttributeKind classify(const ConstantUtf8Info& name);
};
