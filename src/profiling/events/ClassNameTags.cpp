#include "profiling/events/ClassNameTags.h"

#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "probes/SignatureUtil.h"

namespace {

const int NAME_SHIFT = 32;
const jlong OBJECT_HALF = 0xFFFFFFFF;

// Threads go on while the JVM ends around them; nothing is recorded then.
bool hasEnded(jvmtiError error) {
    if (error == JVMTI_ERROR_WRONG_PHASE) {
        return true;
    }
    CHECK_JVMTI(error);
    return false;
}

} // namespace

jlong ClassNameTags::getTag(jobject object) const {
    jlong tag = 0;
    return hasEnded(environment->GetTag(object, &tag)) ? 0 : tag;
}

void ClassNameTags::setTag(jobject object, jlong tag) const {
    hasEnded(environment->SetTag(object, tag));
}

int ClassNameTags::getNameStrID(const char* text) {
    const int name = ourDB->stringPool->getDBIndex(text, true);
    names.add(name);
    return name;
}

int ClassNameTags::getClassNameStrID(JNIEnv* env, jobject object) {
    jclass type = env->GetObjectClass(object);
    const jlong tag = getTag(type);
    int name = static_cast<int>(tag >> NAME_SHIFT);
    JvmtiMemory<char> signature;
    if (name == 0 &&
        !hasEnded(environment->GetClassSignature(type, signature.receive(), nullptr))) {
        const ZString text = SignatureUtil::convertClassSignatureToFullName(signature.get());
        name = getNameStrID(text.c_str());
        setTag(type, static_cast<jlong>(name) << NAME_SHIFT | (tag & OBJECT_HALF));
    }
    env->DeleteLocalRef(type);
    return name;
}

void ClassNameTags::clear() {
    // Whatever has a tag has had its class named first.
    if (names.getSize() > 0) {
        clearAllTags(environment);
        names.clear();
    }
}

void ClassNameTags::reset() {
    names.clear();
    ourDB->stringPool->keepNamed(&names);
}
