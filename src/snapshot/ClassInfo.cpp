#include "snapshot/ClassInfo.h"

#include "core/ground/Globals.h"
#include "core/ground/Logger.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/AbstractWriter.h"
#include "db/DB.h"
#include "probes/SignatureUtil.h"
#include "snapshot/ObjectTags.h"

#include <cstdint>
#include <cstring>

const _ClassInfo* _ClassInfo::ourMinAddress = nullptr;

namespace {

constexpr int MODIFIER_STATIC = 8;
constexpr uintptr_t HIGHEST_BAD_ADDRESS = 1023;
const char CLASS_CLASS_SIGNATURE[] = "Ljava/lang/Class;";

// The order in which the JVM numbers inherited fields.
bool isInterfaceFieldsBeforeOther() {
    return ourIsIBM;
}

jlong getTag(jobject object) {
    jlong tag = 0;
    CHECK_JVMTI(ourJVMTI->GetTag(object, &tag));
    return tag;
}

bool isPreparedClass(jclass type) {
    jint status = 0;
    const jvmtiError error = ourJVMTI->GetClassStatus(type, &status);
    if (error == JVMTI_ERROR_WRONG_PHASE) {
        return false;
    }
    CHECK_JVMTI(error);
    return (status & JVMTI_CLASS_STATUS_PREPARED) != 0 || ourIsJRockit;
}

} // namespace

bool _FieldInfo::isStatic() const {
    return (modifiers & MODIFIER_STATIC) != 0;
}

bool isGoodClassInfoPtr(const _ClassInfo* info) {
    return reinterpret_cast<uintptr_t>(info) > HIGHEST_BAD_ADDRESS &&
           info >= _ClassInfo::ourMinAddress;
}

_ClassInfo::_ClassInfo(JNIEnv* env, jclass type)
    : tag(getTag(type)), nameStrID(0), superTag(0), isPrimitiveArray(false), isObjectArray(false),
      isClassClass(false), elementSize(0), size(0), interfaces(1), fields(8), firstOwnField(0),
      referenceSlots(0), instancePrimitiveSize(0), staticPrimitiveSize(0), countedAs(0),
      wasFollowed(false), isPrepared(false), isInterface(false), ownFields(1) {
    readSignature(type);
    readSuperclass(env, type);
    if (!isArray() && isPreparedClass(type)) {
        isPrepared = true;
        jboolean answer = JNI_FALSE;
        CHECK_JVMTI(ourJVMTI->IsInterface(type, &answer));
        isInterface = answer == JNI_TRUE;
        readOwnFields(type);
        readInterfaces(env, type);
    }
    CHECK_JVMTI(ourJVMTI->GetObjectSize(type, &size));
    if (ourMinAddress == nullptr || this < ourMinAddress) {
        ourMinAddress = this;
    }
}

void _ClassInfo::readSignature(jclass type) {
    JvmtiMemory<char> signature;
    CHECK_JVMTI(ourJVMTI->GetClassSignature(type, signature.receive(), nullptr));
    const char* const text = signature.get();
    if (text[0] == '[') {
        elementSize = primitiveBytes(text[1]);
        isPrimitiveArray = elementSize != 0;
        isObjectArray = !isPrimitiveArray;
    }
    isClassClass = strcmp(text, CLASS_CLASS_SIGNATURE) == 0;
    nameStrID = ourDB->stringPool->getDBIndex(
        SignatureUtil::convertClassSignatureToFullName(text).c_str(), true);
}

void _ClassInfo::readSuperclass(JNIEnv* env, jclass type) {
    jclass superclass = env->GetSuperclass(type);
    if (superclass != nullptr) {
        superTag = getTag(superclass);
        env->DeleteLocalRef(superclass);
    }
}

void _ClassInfo::readInterfaces(JNIEnv* env, jclass type) {
    jint count = 0;
    JvmtiMemory<jclass> implemented;
    CHECK_JVMTI(ourJVMTI->GetImplementedInterfaces(type, &count, implemented.receive()));
    announceLocalReferences(env, count);
    for (jint i = 0; i < count; i++) {
        const jlong tag = getTag(implemented.get()[i]);
        env->DeleteLocalRef(implemented.get()[i]);
        if (tag != 0) {
            interfaces.push(tag);
        }
    }
}

void _ClassInfo::readOwnFields(jclass type) {
    jint count = 0;
    JvmtiMemory<jfieldID> ids;
    CHECK_JVMTI(ourJVMTI->GetClassFields(type, &count, ids.receive()));
    for (jint i = 0; i < count; i++) {
        JvmtiMemory<char> name;
        JvmtiMemory<char> signature;
        CHECK_JVMTI(ourJVMTI->GetFieldName(type, ids.get()[i], name.receive(), signature.receive(),
                                           nullptr));
        jint modifiers = 0;
        CHECK_JVMTI(ourJVMTI->GetFieldModifiers(type, ids.get()[i], &modifiers));
        const char letter = signature.get()[0];
        ownFields.push({-1, primitiveBytes(letter) != 0 ? letter : '\0', 0,
                        ourDB->stringPool->getDBIndex(name.get(), true), modifiers});
    }
}

// Appends the fields that a class, this one or one that it inherits from, declares itself. The
// place of a field in its own class is its place in every subclass too, for instance fields come to
// a class only by its superclasses; statics of a class are never reported for a subclass.
void _ClassInfo::addFields(_ClassInfo* declarer) {
    firstOwnField = fields.getSize();
    for (int i = 0; i < declarer->ownFields.getSize(); i++) {
        _FieldInfo* const field = &declarer->ownFields[i];
        int& region = field->isStatic() ? staticPrimitiveSize : instancePrimitiveSize;
        if (declarer == this) {
            field->offset = region;
            const bool hasSlot = !field->isStatic() && field->primitiveType == 0;
            field->slot = hasSlot ? referenceSlots : -1;
        }
        region += primitiveBytes(field->primitiveType);
        referenceSlots += !field->isStatic() && field->primitiveType == 0;
        fields.push(field);
    }
}

ClassInfos::~ClassInfos() {
    each([](int, _ClassInfo* info) { delete info; });
    _ClassInfo::ourMinAddress = nullptr;
}

_ClassInfo* ClassInfos::get(int index) const {
    if (index == CLASS_CLASS_INDEX) {
        return first;
    }
    const int at = index - firstIndex;
    return index > CLASS_CLASS_INDEX && at >= 0 && at < infos.getSize() ? infos[at] : nullptr;
}

bool ClassInfos::add(int index, _ClassInfo* info) {
    const bool isFirst = index == CLASS_CLASS_INDEX;
    if ((!isFirst && index < firstIndex) || get(index) != nullptr) {
        return false;
    }
    incomplete.push(index);
    while (!isFirst && infos.getSize() <= index - firstIndex) {
        infos.push(nullptr);
    }
    (isFirst ? first : infos[index - firstIndex]) = info;
    return true;
}

void ClassInfos::addClassFields(_ClassInfo* to, jlong fromTag, ZSet<long>& visited) {
    _ClassInfo* const from = get(ObjectTags::indexOf(fromTag));
    if (from == nullptr || !from->isPrepared || visited.contains(fromTag)) {
        return;
    }
    const bool superclassFirst = isInterfaceFieldsBeforeOther();
    if (superclassFirst && !from->isInterface) {
        addClassFields(to, from->superTag, visited);
    }
    for (int i = 0; i < from->interfaces.getSize(); i++) {
        addClassFields(to, from->interfaces[i], visited);
    }
    if (!superclassFirst) {
        addClassFields(to, from->superTag, visited);
    }
    visited.add(fromTag);
    to->addFields(from);
}

void ClassInfos::complete() {
    ZSet<long> visited(20);
    for (int i = 0; i < incomplete.getSize(); i++) {
        // A tag that stands for the index, in this walk and for this class alone.
        addClassFields(get(incomplete[i]), -static_cast<jlong>(incomplete[i]), visited);
        visited.clear();
    }
    incomplete.clear();
}
