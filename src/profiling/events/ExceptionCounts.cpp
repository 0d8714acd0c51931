#include "profiling/events/ExceptionCounts.h"

#include "core/ground/ZLock.h"
#include "core/ground/ZMap.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "probes/SignatureUtil.h"

#include <string.h>

namespace {

const int INITIAL_CAPACITY = 64;

ZLock& ourCountsLock = *new ZLock("ExceptionCountsLock");
// By signature; the keys are owned.
ZMap<const char*, long>& ourCounts = *new ZMap<const char*, long>(INITIAL_CAPACITY);

void append(ZString& text, const char* signature, long count) {
    text.appendLong(count);
    text.append(" ");
    text.append(SignatureUtil::convertClassSignatureToFullName(signature));
    text.append("\n");
}

} // namespace

void ExceptionCounts::count(JNIEnv* env, jobject exception) {
    jclass type = env->GetObjectClass(exception);
    JvmtiMemory<char> signature;
    const jvmtiError error = ourJVMTI->GetClassSignature(type, signature.receive(), nullptr);
    env->DeleteLocalRef(type);
    if (error != JVMTI_ERROR_NONE) {
        return; // the JVM ends
    }
    LockHolder lock(ourCountsLock);
    long* known = ourCounts.getPtr(signature.get());
    if (known != nullptr) {
        ++*known;
        return;
    }
    const int length = static_cast<int>(strlen(signature.get()));
    char* key = ZString::new_c_str(length + 1);
    memcpy(key, signature.get(), static_cast<size_t>(length));
    ourCounts.put(key, 1);
}

ZString ExceptionCounts::take() {
    ZString text;
    LockHolder lock(ourCountsLock);
    if (ourCounts.getSize() == 0) {
        return text;
    }
    for (int slot = 0; slot < ourCounts.getCapacity(); slot++) {
        if (ourCounts.isFull(slot)) {
            append(text, ourCounts.keyAt(slot), ourCounts.valueAt(slot));
        }
    }
    for (int slot = 0; slot < ourCounts.getCapacity(); slot++) {
        if (ourCounts.isFull(slot)) {
            ZString::delete_c_str(const_cast<char*>(ourCounts.keyAt(slot)));
        }
    }
    ourCounts.clear();
    return text;
}
