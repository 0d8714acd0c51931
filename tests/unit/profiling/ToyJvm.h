#pragma once

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "profiling/threads/ThreadInfo.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <jvmti.h>
#include <map>
#include <string>
#include <vector>

// ToyJvm: a fresh ourDB, and the few functions of JVMTI and JNI that profiling needs to name
// methods and to hold threads. One lives at a time.
class ToyJvm {
public:
    struct Method {
        std::string classSignature;
        std::string name;
        std::string signature;
        bool unloaded = false;
    };

    ToyJvm() {
        current() = this;
        memset(&functions, 0, sizeof functions);
        memset(&jniFunctions, 0, sizeof jniFunctions);
        fillNames();
        fillThreads();
        fillReferences();
        fillAllocations();
        jvmti.functions = &functions;
        jni.functions = &jniFunctions;
        ourJVMTI = &jvmti;
        DB::createAndInitializeDB(3600, 20000, createStandInThreads);
        ourStatus = 0;
    }
    ~ToyJvm() {
        ourJVMTI = nullptr;
        delete ourDB;
        ourDB = nullptr;
        ourStatus = STACK_TELEMETRY | EXCEPTION_TELEMETRY;
        ourCapabilities = 0x1140;
        current() = nullptr;
    }
    ToyJvm(const ToyJvm&) = delete;
    ToyJvm& operator=(const ToyJvm&) = delete;

    JNIEnv* env() { return &jni; }

    jmethodID addMethod(const char* classSignature, const char* name, const char* signature) {
        methods.push_back({classSignature, name, signature});
        return idOf(methods.size() - 1);
    }
    Method& method(jmethodID id) { return methods[reinterpret_cast<size_t>(id) - 1]; }
    static jmethodID idOf(size_t index) { return reinterpret_cast<jmethodID>(index + 1); }
    static jthread threadOf(size_t number) { return reinterpret_cast<jthread>(number + 1); }

    // Threads, for suspension. Everything that was asked is written down as "suspend 3".
    std::vector<jthread> threads;
    jthread currentThread = nullptr;
    std::map<jthread, jvmtiError> suspendErrors;
    jvmtiError addCapabilitiesError = JVMTI_ERROR_NONE;
    std::vector<std::string> calls;
    std::function<void()> onResume = [] {};
    std::map<jthread, std::string> names;
    jint phase = JVMTI_PHASE_LIVE;
    ThreadInfo* storedInfo = nullptr; // of the current thread
    std::vector<jmethodID> stack;     // of the current thread, outermost first
    int nameLookups = 0;
    jvmtiError samplingIntervalError = JVMTI_ERROR_NONE;
    int sizesAsked = 0; // of objects, whose addresses are their sizes
    std::map<jobject, jlong> tags;

    jvmtiEnv jvmti;
    JNIEnv jni;

private:
    static ToyJvm*& current() {
        static ToyJvm* toy = nullptr;
        return toy;
    }
    static char* copyOf(const std::string& text) { return strdup(text.c_str()); }
    static void note(const char* what, jthread thread) {
        current()->calls.push_back(std::string(what) + " " +
                                   std::to_string(reinterpret_cast<size_t>(thread) - 1));
    }

    void fillNames() {
        functions.GetMethodName = [](jvmtiEnv*, jmethodID id, char** name, char** signature,
                                     char**) {
            current()->nameLookups++;
            const Method& method = current()->method(id);
            if (method.unloaded) {
                return JVMTI_ERROR_INVALID_METHODID;
            }
            *name = copyOf(method.name);
            *signature = copyOf(method.signature);
            return JVMTI_ERROR_NONE;
        };
        functions.GetMethodDeclaringClass = [](jvmtiEnv*, jmethodID id, jclass* type) {
            *type = reinterpret_cast<jclass>(id);
            return JVMTI_ERROR_NONE;
        };
        functions.GetClassSignature = [](jvmtiEnv*, jclass type, char** signature, char**) {
            const Method& method = current()->method(reinterpret_cast<jmethodID>(type));
            *signature = copyOf(method.classSignature);
            return JVMTI_ERROR_NONE;
        };
        functions.GetThreadInfo = [](jvmtiEnv*, jthread thread, jvmtiThreadInfo* info) {
            memset(info, 0, sizeof *info);
            if (current()->names.count(thread) == 0) {
                return JVMTI_ERROR_THREAD_NOT_ALIVE;
            }
            info->name = copyOf(current()->names[thread]);
            return JVMTI_ERROR_NONE;
        };
        functions.GetErrorName = [](jvmtiEnv*, jvmtiError, char** name) {
            *name = copyOf("toy error");
            return JVMTI_ERROR_NONE;
        };
        functions.Deallocate = [](jvmtiEnv*, unsigned char* memory) {
            free(memory);
            return JVMTI_ERROR_NONE;
        };
        functions.GetPhase = [](jvmtiEnv*, jvmtiPhase* phase) {
            *phase = static_cast<jvmtiPhase>(current()->phase);
            return JVMTI_ERROR_NONE;
        };
    }
    void fillThreads() {
        functions.GetThreadLocalStorage = [](jvmtiEnv*, jthread thread, void** data) {
            *data = thread == nullptr ? current()->storedInfo : nullptr;
            return JVMTI_ERROR_NONE;
        };
        functions.GetStackTrace = [](jvmtiEnv*, jthread, jint, jint most, jvmtiFrameInfo* frames,
                                     jint* count) {
            const std::vector<jmethodID>& stack = current()->stack;
            *count = std::min(most, static_cast<jint>(stack.size()));
            for (size_t i = 0; i < static_cast<size_t>(*count); i++) {
                frames[i] = {stack[stack.size() - 1 - i], 0};
            }
            return JVMTI_ERROR_NONE;
        };
        functions.GetAllThreads = [](jvmtiEnv*, jint* count, jthread** threads) {
            const std::vector<jthread>& all = current()->threads;
            *count = static_cast<jint>(all.size());
            *threads = static_cast<jthread*>(malloc(sizeof(jthread) * (all.size() + 1)));
            std::copy(all.begin(), all.end(), *threads);
            return JVMTI_ERROR_NONE;
        };
        functions.GetLoadedClasses = [](jvmtiEnv*, jint* count, jclass** classes) {
            const std::vector<Method>& all = current()->methods;
            *classes = static_cast<jclass*>(malloc(sizeof(jclass) * (all.size() + 1)));
            *count = 0;
            for (size_t i = 0; i < all.size(); i++) {
                if (!all[i].unloaded) {
                    (*classes)[(*count)++] = reinterpret_cast<jclass>(idOf(i));
                }
            }
            return JVMTI_ERROR_NONE;
        };
        functions.GetCurrentThread = [](jvmtiEnv*, jthread* thread) {
            *thread = current()->currentThread;
            return JVMTI_ERROR_NONE;
        };
        functions.SuspendThreadList = [](jvmtiEnv*, jint count, const jthread* threads,
                                         jvmtiError* results) {
            for (jint i = 0; i < count; i++) {
                note("suspend", threads[i]);
                results[i] = current()->suspendErrors[threads[i]];
            }
            return JVMTI_ERROR_NONE;
        };
        functions.ResumeThreadList = [](jvmtiEnv*, jint count, const jthread* threads,
                                        jvmtiError*) {
            current()->onResume();
            for (jint i = 0; i < count; i++) {
                note("resume", threads[i]);
            }
            return JVMTI_ERROR_NONE;
        };
        functions.AddCapabilities = [](jvmtiEnv*, const jvmtiCapabilities*) {
            current()->calls.push_back("add");
            return current()->addCapabilitiesError;
        };
        functions.RelinquishCapabilities = [](jvmtiEnv*, const jvmtiCapabilities*) {
            current()->calls.push_back("give back");
            return JVMTI_ERROR_NONE;
        };
    }
    void fillReferences() {
        jniFunctions.DeleteLocalRef = [](JNIEnv*, jobject) {};
        jniFunctions.IsSameObject = [](JNIEnv*, jobject left, jobject right) {
            return static_cast<jboolean>(left == right);
        };
        jniFunctions.EnsureLocalCapacity = [](JNIEnv*, jint) { return 0; };
        jniFunctions.PushLocalFrame = [](JNIEnv*, jint) { return 0; };
        jniFunctions.PopLocalFrame = [](JNIEnv*, jobject result) { return result; };
    }

    void fillAllocations() {
        functions.SetHeapSamplingInterval = [](jvmtiEnv*, jint) {
            return current()->samplingIntervalError;
        };
        functions.GetObjectSize = [](jvmtiEnv*, jobject object, jlong* size) {
            current()->sizesAsked++;
            *size = static_cast<jlong>(reinterpret_cast<size_t>(object));
            return JVMTI_ERROR_NONE;
        };
        functions.GetTag = [](jvmtiEnv*, jobject object, jlong* tag) {
            *tag = current()->tags[object];
            return JVMTI_ERROR_NONE;
        };
        functions.SetTag = [](jvmtiEnv*, jobject object, jlong tag) {
            current()->tags[object] = tag;
            return JVMTI_ERROR_NONE;
        };
    }

    std::vector<Method> methods;
    jvmtiInterface_1_ functions;
    JNINativeInterface_ jniFunctions;
};
