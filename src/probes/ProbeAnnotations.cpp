#include "probes/ProbeAnnotations.h"

namespace {

const char METHOD_PATTERN[] = "Lcom/vandrik/probes/MethodPattern;";
const char INSTANCE_OF[] = "Lcom/vandrik/probes/InstanceOf;";

// In the order of CallbackParameterKind.
const char* const PARAMETER_ANNOTATIONS[] = {
    "Lcom/vandrik/probes/Param;",
    "Lcom/vandrik/probes/Params;",
    "Lcom/vandrik/probes/This;",
    "Lcom/vandrik/probes/ReturnValue;",
    "Lcom/vandrik/probes/ThrownException;",
    "Lcom/vandrik/probes/OnEnterResult;",
    "Lcom/vandrik/probes/MethodName;",
    "Lcom/vandrik/probes/MethodSignature;",
    "Lcom/vandrik/probes/MethodParameterTypes;",
    "Lcom/vandrik/probes/ClassRef;",
};
static_assert(sizeof PARAMETER_ANNOTATIONS / sizeof PARAMETER_ANNOTATIONS[0] == CALLBACK_NO_KIND,
              "an annotation for each kind");

CallbackParameterKind kindOf(const Utf8View& type) {
    int kind = 0;
    while (kind < CALLBACK_NO_KIND && type != PARAMETER_ANNOTATIONS[kind]) {
        kind++;
    }
    return static_cast<CallbackParameterKind>(kind);
}

// Steps into the one element of an annotation, whose value has the tag.
void enterValue(DataInput& input, const ConstantPool& pool, int tag) {
    Logger::assertEquals(input.readUnsignedShort(), 1, VDK_HERE);
    Logger::assertTrue(pool.getUtf8(input.readUnsignedShort()) == "value", VDK_HERE);
    Logger::assertEquals(input.readUnsignedByte(), tag, VDK_HERE);
}

void readPatterns(DataInput& input, const ConstantPool& pool, ZVectorSafe<ZString>& patterns) {
    enterValue(input, pool, '[');
    const int count = input.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        Logger::assertEquals(input.readUnsignedByte(), 's', VDK_HERE);
        patterns.push(pool.getUtf8(input.readUnsignedShort()));
    }
}

int readInt(DataInput& input, const ConstantPool& pool) {
    enterValue(input, pool, 'I');
    const ConstantPool::Content value = pool.getContent(input.readUnsignedShort());
    Logger::assertEquals(value.tag, CONSTANT_INTEGER, VDK_HERE);
    return value.first;
}

// The first attribute of the kind, or null.
const RawAttribute* findAttribute(const AttributeList& attributes, AttributeKind kind) {
    for (int i = 0; i < attributes.getSize(); i++) {
        if (attributes[i]->getKind() == kind) {
            return static_cast<const RawAttribute*>(attributes[i]);
        }
    }
    return nullptr;
}

} // namespace

void fillMethodPatterns(ClassFile& classFile, ZVectorSafe<ZString>& patterns, ZString& instanceOf) {
    const RawAttribute* const attribute =
        findAttribute(classFile.getAttributes(), ATTRIBUTE_RUNTIME_INVISIBLE_ANNOTATIONS);
    if (attribute == nullptr) {
        return;
    }
    const ConstantPool& pool = classFile.getConstantPool();
    DataInput input = attribute->openBody();
    const int count = input.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        const Utf8View type = pool.getUtf8(input.readUnsignedShort());
        if (type == METHOD_PATTERN) {
            readPatterns(input, pool, patterns);
        } else if (type == INSTANCE_OF) {
            enterValue(input, pool, 's');
            instanceOf = pool.getUtf8(input.readUnsignedShort()).toString();
            instanceOf.replaceAll('.', '/');
        } else {
            skipAnnotationElements(input);
        }
    }
}

void fillCallbackParameters(ClassFile& classFile, MethodInfo* method, int parameter,
                            ZVector<CallbackParameter>& list) {
    const auto* const attribute = static_cast<const ParameterAnnotationsAttribute*>(
        findAttribute(method->getAttributes(), ATTRIBUTE_RUNTIME_INVISIBLE_PARAMETER_ANNOTATIONS));
    DataInput input(nullptr, 0);
    if (attribute == nullptr || !attribute->findParameter(parameter, input)) {
        return;
    }
    const ConstantPool& pool = classFile.getConstantPool();
    const int count = input.readUnsignedShort();
    for (int i = 0; i < count; i++) {
        CallbackParameter found;
        found.kind = kindOf(pool.getUtf8(input.readUnsignedShort()));
        if (found.kind == CALLBACK_PARAM) {
            found.index = readInt(input, pool);
        } else {
            skipAnnotationElements(input);
        }
        if (found.kind != CALLBACK_NO_KIND) {
            list.push(found);
        }
    }
}
