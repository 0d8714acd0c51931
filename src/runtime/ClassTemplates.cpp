#include "runtime/ClassTemplates.h"

#include "classfile/ClassFile.h"
#include "classfile/DataInput.h"
#include "classfile/DataOutput.h"
#include "core/jvm/NativeEntry.h"

extern "C" {
extern const unsigned char ourMethodListenerProbeBytecode[];
extern const int ourMethodListenerProbeBytecodeSize;
}

const ClassTemplate METHOD_LISTENER_TEMPLATE = {ourMethodListenerProbeBytecode,
                                                &ourMethodListenerProbeBytecodeSize,
                                                "method listener template is invalid"};

namespace {

// What is put in place of a marker stands in a text of the class, which has 65535 bytes at most.
constexpr int MAX_TEXT_LENGTH = 60000;

// False with a Java exception pending.
bool splitPairs(JNIEnv* env, jobjectArray pairs, ZVectorSafe<ZString>& from,
                ZVectorSafe<ZString>& to) {
    const jsize count = env->GetArrayLength(pairs);
    if (count % 2 != 0) {
        throwException(env, "macroAndValuePairs has a text without a partner");
        return false;
    }
    for (jsize i = 0; i < count; i++) {
        auto element = static_cast<jstring>(env->GetObjectArrayElement(pairs, i));
        if (element == nullptr) {
            throwException(env, "macroAndValuePairs holds null");
            return false;
        }
        const ZString text = toZString(env, element);
        env->DeleteLocalRef(element);
        if (i % 2 == 0 && text.isEmpty()) {
            throwException(env, "macroAndValuePairs holds an empty text to replace");
            return false;
        }
        if (text.getLength() > MAX_TEXT_LENGTH) {
            throwException(env, "a text for a class is longer than 60000 bytes");
            return false;
        }
        (i % 2 == 0 ? from : to).push(text);
    }
    return true;
}

jbyteArray toByteArray(JNIEnv* env, const ZVector<unsigned char>& bytes) {
    jbyteArray array = env->NewByteArray(bytes.getSize());
    if (array != nullptr) {
        env->SetByteArrayRegion(array, 0, bytes.getSize(),
                                reinterpret_cast<const jbyte*>(bytes.data()));
    }
    return array;
}

} // namespace

jbyteArray patchClassTemplate(JNIEnv* env, const ClassTemplate& classTemplate,
                              jobjectArray macroAndValuePairs) {
    if (macroAndValuePairs == nullptr) {
        throwException(env, "macroAndValuePairs is null");
        return nullptr;
    }
    ZVectorSafe<ZString> from;
    ZVectorSafe<ZString> to;
    if (!splitPairs(env, macroAndValuePairs, from, to)) {
        return nullptr;
    }
    DataInput input(classTemplate.bytes, *classTemplate.size);
    ClassFile classFile(input);
    if (classFile.isInvalid()) {
        throwException(env, classTemplate.invalid);
        return nullptr;
    }
    classFile.patchConstantPool(from, to);
    classFile.removeUnusedMacroMethods();
    ZVector<unsigned char> bytes;
    DataOutput output(bytes);
    classFile.writeClass(output);
    return toByteArray(env, bytes);
}

jbyteArray JNICALL VDK_CALLBACK_NATIVE(patchTemplateClass)(JNIEnv* env, jclass,
                                                           jobjectArray pairs) {
    return nativeResult<jbyteArray>(env, VDK_HERE, nullptr, [&] {
        return patchClassTemplate(env, METHOD_LISTENER_TEMPLATE, pairs);
    });
}
