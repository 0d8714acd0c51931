// The natives that read fields of any object by name, past access and modules, and without the code
// of the application that reflection may run.
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/NativeEntry.h"

#include <string.h>

namespace {

constexpr jint STATIC_MODIFIER = 8;

struct FoundField {
    jfieldID id = nullptr;
    char kind = 0; // the first character of its signature
};

bool isWanted(jclass type, jfieldID field, const char* wanted, FoundField& found) {
    jint modifiers = 0;
    JvmtiMemory<char> name;
    JvmtiMemory<char> signature;
    if (ourJVMTI->GetFieldModifiers(type, field, &modifiers) != JVMTI_ERROR_NONE ||
        (modifiers & STATIC_MODIFIER) != 0 ||
        ourJVMTI->GetFieldName(type, field, name.receive(), signature.receive(), nullptr) !=
            JVMTI_ERROR_NONE ||
        strcmp(name.get(), wanted) != 0) {
        return false;
    }
    found.id = field;
    found.kind = signature.get()[0];
    return true;
}

bool findIn(jclass type, const char* name, FoundField& found) {
    jint count = 0;
    JvmtiMemory<jfieldID> fields;
    if (ourJVMTI->GetClassFields(type, &count, fields.receive()) != JVMTI_ERROR_NONE) {
        return false;
    }
    for (jint i = 0; i < count; i++) {
        if (isWanted(type, fields.get()[i], name, found)) {
            return true;
        }
    }
    return false;
}

// That of the class itself comes before one of the same name above it.
FoundField findField(JNIEnv* env, jclass type, const char* name) {
    FoundField found;
    auto current = static_cast<jclass>(env->NewLocalRef(type));
    while (current != nullptr && !findIn(current, name, found)) {
        jclass above = env->GetSuperclass(current);
        env->DeleteLocalRef(current);
        current = above;
    }
    env->DeleteLocalRef(current);
    return found;
}

jlong bitsOf(JNIEnv* env, jobject object, jfieldID field, char kind) {
    switch (kind) {
    case 'Z':
        return env->GetBooleanField(object, field);
    case 'B':
        return env->GetByteField(object, field);
    case 'C':
        return env->GetCharField(object, field);
    case 'S':
        return env->GetShortField(object, field);
    case 'I':
        return env->GetIntField(object, field);
    case 'J':
        return env->GetLongField(object, field);
    case 'F': {
        const jfloat value = env->GetFloatField(object, field);
        jint bits = 0;
        memcpy(&bits, &value, sizeof bits);
        return bits;
    }
    case 'D': {
        const jdouble value = env->GetDoubleField(object, field);
        jlong bits = 0;
        memcpy(&bits, &value, sizeof bits);
        return bits;
    }
    default:
        return 0;
    }
}

} // namespace

// The id and the kind of a field, or null.
jlongArray JNICALL VDK_CALLBACK_NATIVE(findField)(JNIEnv* env, jclass, jclass type, jstring name) {
    return nativeResult<jlongArray>(env, VDK_HERE, nullptr, [&]() -> jlongArray {
        const ZString wanted = toZString(env, name);
        const FoundField found = findField(env, type, wanted.c_str());
        if (found.id == nullptr) {
            return nullptr;
        }
        const jlong values[] = {static_cast<jlong>(reinterpret_cast<uintptr_t>(found.id)),
                                found.kind};
        jlongArray result = env->NewLongArray(2);
        if (result != nullptr) {
            env->SetLongArrayRegion(result, 0, 2, values);
        }
        return result;
    });
}

// Of a reference the value; of a primitive type null, and the value in the first element of bits.
jobject JNICALL VDK_CALLBACK_NATIVE(readField)(JNIEnv* env, jclass, jobject object, jlong field,
                                               jint kind, jlongArray bits) {
    const auto id = reinterpret_cast<jfieldID>(static_cast<uintptr_t>(field));
    if (kind == 'L' || kind == '[') {
        return env->GetObjectField(object, id);
    }
    const jlong value = bitsOf(env, object, id, static_cast<char>(kind));
    env->SetLongArrayRegion(bits, 0, 1, &value);
    return nullptr;
}
