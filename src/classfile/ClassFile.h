#pragma once

#include "classfile/FieldInfo.h"
#include "classfile/MethodInfo.h"

// ClassFile: one Java class file as objects: parsed from bytes, edited in place by the rewriting
// passes, written back as bytes.
//
// DESCRIPTION
//   What the model does not understand stays as raw bytes, and so does everything that nobody
//   changed, so a class passes through unchanged apart from the edits. It knows no class but this
//   one. Parsing reads the pool and finds the members; bodies are parsed when somebody asks, so a
//   malformed body is an internal error at that moment. One thread owns the object; the bytes that
//   it was parsed from must outlive it.
// IMPLEMENTATION
//   Everything lives in one arena and ends with it.
class ClassFile {
public:
    // stripStackMaps: give the class to the JVM's old verifier: versions above 49 become 49 and
    // frames are dropped.
    explicit ClassFile(DataInput& input, bool stripStackMaps = false);
    ClassFile(const ClassFile&) = delete;
    ClassFile& operator=(const ClassFile&) = delete;

    // Serialises the class. The pool's size must be below 65536.
    void writeClass(DataOutput& output);
    // Makes writeClass encode all methods and fields from the objects, as if all were changed.
    void encodeEverything();

    // The pool held a tag that is not known: nothing behind it was read, and the object is good for
    // nothing but destruction.
    bool isInvalid() const { return invalid; }
    // Frames are being stripped, but the pool holds constants that the old verifier does not take.
    bool hasJava7Constants() const { return java7Constants; }
    bool isStrippingStackMaps() const { return stripping; }

    ClassArena& getArena() { return arena; }
    ConstantPool& getConstantPool() { return pool; }
    ArenaVector<MethodInfo*>& getMethods() { return methods; }
    ArenaVector<FieldInfo*>& getFields();
    AttributeList& getAttributes();
    int getMajorVersion() const { return majorVersion; }
    // Raises the version to this one if it is below.
    void ensureMajorVersion(int version) {
        majorVersion = majorVersion < version ? version : majorVersion;
    }
    int getMinorVersion() const { return minorVersion; }
    int getAccessFlags() const { return accessFlags; }
    int getThisClass() const { return thisClass; }
    bool hasInterfaces() const { return interfaceCount > 0; }
    int getInterfaceCount() const { return interfaceCount; }
    int getInterface(int i) const;

    // Names in internal form. The superclass of the root class has no name: isNull says so.
    Utf8View getSignature() const;
    bool hasSuperClass() const { return superClass != 0; }
    // Empty when there is no superclass.
    Utf8View getSuperClassSignature() const;
    bool hasDirectInterface(const Utf8View& name) const;
    // Whether the class carries this annotation, visible or not ("Lp/Name;").
    bool hasAnnotation(const Utf8View& typeDescriptor);
    // The same for a pattern that "*" may stand in; the empty one matches without an annotation.
    bool hasMatchingAnnotation(const ZString& pattern);

    // First method with this name and descriptor, or null.
    MethodInfo* findMethod(const Utf8View& name, const Utf8View& descriptor);
    // First method with this name, or null; *ambiguous tells whether there is another.
    MethodInfo* findFirstMethod(const Utf8View& name, bool* ambiguous);

    int findOrCreateUtf8(const Utf8View& text) { return pool.findOrCreateUtf8(text); }
    int findOrCreateStringInfo(const Utf8View& text) { return pool.findOrCreateStringInfo(text); }
    int findOrCreateConstantClass(int nameIndex) {
        return pool.findOrCreateConstantClass(nameIndex);
    }
    int findOrCreateNameAndType(int nameIndex, int descriptorIndex) {
        return pool.findOrCreateNameAndType(nameIndex, descriptorIndex);
    }
    int findOrCreateMethodRef(int classIndex, int nameIndex, int descriptorIndex) {
        return pool.findOrCreateMethodRef(classIndex, nameIndex, descriptorIndex);
    }
    // Position of the method with this name and descriptor; a new one has no attributes. The flags
    // of an existing one stay.
    int findOrCreateMethod(const Utf8View& name, const Utf8View& descriptor, int flags);

    // Replaces texts in every Utf8 entry of the pool, pair after pair; no replacement is scanned
    // again by its own pair.
    void patchConstantPool(const ZVectorSafe<ZString>& from, const ZVectorSafe<ZString>& to);
    // Removes the methods named $$...$$ and deletes their names from every Utf8 entry.
    void removeUnusedMacroMethods();

private:
    void noteJava7Constants();
    void replaceText(ConstantUtf8Info& entry, const ZString& from, const ZString& to);
    // A part of the class file that is written back as it was read unless somebody took its
    // objects.
    struct Span {
        const unsigned char* bytes;
        int count;
    };

    ClassArena arena;
    int magic;
    int majorVersion;
    int minorVersion;
    int accessFlags;
    int thisClass;
    int superClass;
    int interfaceCount;
    int* interfaces;
    ConstantPool pool;
    ArenaVector<FieldInfo*> fields;
    ArenaVector<MethodInfo*> methods;
    AttributeList attributes;
    Span fieldSpan;
    Span attributeSpan;
    bool fieldsParsed;
    bool attributesParsed;
    bool invalid;
    bool java7Constants;
    bool stripping;
};
