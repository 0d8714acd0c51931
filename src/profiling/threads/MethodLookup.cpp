#include "profiling/threads/MethodLookup.h"

#include "core/ground/JavaNames.h"
#include "core/ground/ZMap.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "probes/Filter.h"
#include "probes/SignatureUtil.h"

#include <cstring>

const char* const ourNativeMethodPrefix = "$$VDK$$";

namespace {

const char UNLOADED_CLASS[] = "<unloaded>";
const char UNKNOWN_METHOD[] = "<unknown>";
const char* const PROBE_CALLBACKS[] = {"onEnter", "onEnterImpl", "onReturn", "onUncaughtException",
                                       "onUncaughtExceptionExt"};

ZMap<_jmethodID*, int>& ourMethodID2MethodIndex = *new ZMap<_jmethodID*, int>(1000);
ZMap<IntTriple, int>& ourMethodsByName = *new ZMap<IntTriple, int>(1000);

int flagsByName(const char* className, const char* methodName) {
    int flags = 0;
    if (strcmp(className, CALLBACK_CLASS_DOTTED) == 0 || startsWith(className, J2EE_PROBE_DOTTED) ||
        startsWith(methodName, ourNativeMethodPrefix)) {
        flags |= METHOD_HIDDEN;
    }
    for (const char* callback : PROBE_CALLBACKS) {
        if (strcmp(methodName, callback) == 0) {
            flags |= METHOD_PROBE_CALLBACK;
        }
    }
    return flags;
}

// Nobody can name the method any more: its class was unloaded, or the JVM ended in the middle of a
// pass over the stacks.
bool isGone(jvmtiError error) {
    return error == JVMTI_ERROR_INVALID_METHODID || error == JVMTI_ERROR_WRONG_PHASE;
}

// 0 for a method that is gone.
int lookUp(JNIEnv* env, jmethodID id) {
    JvmtiMemory<char> name;
    JvmtiMemory<char> signature;
    const jvmtiError error =
        ourJVMTI->GetMethodName(id, name.receive(), signature.receive(), nullptr);
    if (isGone(error)) {
        return 0;
    }
    CHECK_JVMTI(error);
    jclass type = nullptr;
    const jvmtiError typeError = ourJVMTI->GetMethodDeclaringClass(id, &type);
    if (isGone(typeError)) {
        return 0;
    }
    CHECK_JVMTI(typeError);
    JvmtiMemory<char> classSignature;
    const jvmtiError classError =
        ourJVMTI->GetClassSignature(type, classSignature.receive(), nullptr);
    env->DeleteLocalRef(type);
    if (isGone(classError)) {
        return 0;
    }
    CHECK_JVMTI(classError);
    const ZString className = SignatureUtil::convertClassSignatureToFullName(classSignature.get());
    const ZString parameters = SignatureUtil::convertMethodSignatureToParameters(signature.get());
    return ZMethod::getByName(className.c_str(), name.get(), parameters.c_str());
}

} // namespace

int ZMethod::getByName(const char* className, const char* methodName, const char* parameters) {
    return getByName(ourDB->stringPool->getDBIndex(className, true), className, methodName,
                     parameters);
}

int ZMethod::getByName(int classNameStrID, const char* className, const char* methodName,
                       const char* parameters) {
    StringPool* strings = ourDB->stringPool;
    const IntTriple key = {strings->getDBIndex(methodName, true),
                           strings->getDBIndex(parameters, true), classNameStrID};
    const int known = ourMethodsByName.get(key);
    if (known != 0) {
        return known;
    }
    const int index = ourDB->methodTable->nextIndex();
    MethodRecord* row = ourDB->methodTable->getRecord(index, true);
    row->methodNameStrID = key.a;
    row->parametersStrID = key.b;
    row->classNameStrID = key.c;
    row->flags = 0; // nobody reads it yet
    Filter::applyFilters(index);
    row->flags |= flagsByName(className, methodName);
    row->stamp = ourDB->currentStamp;
    ourMethodsByName.put(key, index);
    return index;
}

void ZMethod::free(int index) {
    MethodRecord* const row = ourDB->methodTable->getRecord(index, true);
    ourMethodsByName.remove({row->methodNameStrID, row->parametersStrID, row->classNameStrID});
    row->methodNameStrID = 0;
    row->parametersStrID = 0;
    row->classNameStrID = 0;
    __atomic_store_n(&row->flags, 0, __ATOMIC_RELAXED);
    row->stamp = -ourDB->currentStamp;
    ourDB->methodTable->releaseIndex(index);
}

void ZMethod::forgetHandles() {
    ourMethodID2MethodIndex.clear();
    ourMethodsByName.compact();
}

void ZMethod::reset() {
    ourMethodID2MethodIndex.clear();
    ourMethodsByName.clear();
}

int getMethodByID(JNIEnv* env, jmethodID id) {
    if (id == nullptr) {
        // A frame of a method that was redefined away.
        return ZMethod::getByName(UNLOADED_CLASS, UNKNOWN_METHOD, "()");
    }
    const int known = ourMethodID2MethodIndex.get(id);
    if (known != 0) {
        return known;
    }
    int index = lookUp(env, id);
    if (index == 0) {
        // Between the walk of the stack and the question for the name.
        index = ZMethod::getByName(UNLOADED_CLASS, UNKNOWN_METHOD, "()");
    }
    Logger::assertNotEquals(index, 0, VDK_HERE);
    ourMethodID2MethodIndex.put(id, index);
    return index;
}
