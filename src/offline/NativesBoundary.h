#pragma once

// The boundary between com.vandrik.Natives and the offline analysis. For *Natives.cpp alone:
// nothing else of this folder knows a JVM.

#include "core/ground/Exceptions.h"
#include "core/ground/Logger.h"
#include "core/jvm/NativeEntry.h"
#include "offline/LiveHandles.h"
#include "offline/ObjectStorage.h"

#include <cstdio>
#include <jni.h>
#include <new>

class DB;

// The objects that Java holds, by kind.
extern LiveHandles<ObjectStorage> ourStorages;
extern LiveHandles<DB> ourDatabases;

// What went wrong in the body of a native, to be thrown into Java when no array is held any more:
// no JNI call is allowed while one is.
class NativeErrors : public RowErrors {
public:
    void violated(const char* condition, int a, int b) override {
        snprintf(text, sizeof(text), "%s (%d, %d)", condition, a, b);
    }
    void fail(const char* message, int value) {
        snprintf(text, sizeof(text), "%s%d", message, value);
    }
    void fail(const char* message) { snprintf(text, sizeof(text), "%s", message); }
    // Throws what was noted. True if something was.
    bool raise(JNIEnv* env) {
        if (text[0] != 0) {
            throwException(env, text);
        }
        return text[0] != 0;
    }

private:
    char text[256] = "";
};

// Runs body(errors) and gives its result, or `failure` after anything went wrong: nothing is thrown
// to Java for exhausted memory, "os::low-disk-space" for a full disk, the text of an internal error
// for everything else, and what the body noted in errors. No exception leaves it.
template <typename R, typename Body>
R runGuardedNative(JNIEnv* env, const char* source, int line, R failure, Body&& body) noexcept {
    NativeErrors errors;
    try {
        const R result = body(errors);
        return errors.raise(env) ? failure : result;
    } catch (const std::bad_alloc&) {
        return failure;
    } catch (const LowDiskSpaceException&) {
        throwException(env, "os::low-disk-space");
    } catch (const VDKRuntimeException&) {
        Logger::exceptionCaught(source, line);
        throwExceptionAssertionFailed(env);
    } catch (...) {
        Logger::exceptionCaught(source, line);
        throwExceptionAssertionFailed(env);
    }
    return failure;
}

// A Java array held in place: not moved, and no garbage collection meanwhile. Make all of them
// first, which asks for their lengths, then hold() each; between the first hold() and the end of
// the block nothing may call into the JVM. A null array is an internal error unless it may be null.
template <typename ArrayType, typename Element>
class CriticalArray {
public:
    CriticalArray(JNIEnv* javaEnv, ArrayType javaArray, bool mayBeNull = false)
        : env(javaEnv), array(javaArray), elements(nullptr), count(0), mode(JNI_ABORT) {
        if (!mayBeNull) {
            Logger::assertNotNULL(array, VDK_HERE);
        }
        count = array == nullptr ? 0 : env->GetArrayLength(array);
    }
    ~CriticalArray() {
        if (elements != nullptr) {
            env->ReleasePrimitiveArrayCritical(array, elements, mode);
        }
    }
    CriticalArray(const CriticalArray&) = delete;
    CriticalArray& operator=(const CriticalArray&) = delete;

    int length() const { return count; }
    void requireLength(int needed) const { Logger::assertTrue(count >= needed, VDK_HERE); }
    // Changed elements reach Java.
    void writeBack() { mode = 0; }
    // Null for a null array.
    Element* hold() {
        if (array != nullptr && elements == nullptr) {
            elements = static_cast<Element*>(env->GetPrimitiveArrayCritical(array, nullptr));
            if (elements == nullptr) {
                throw std::bad_alloc();
            }
        }
        return elements;
    }

private:
    JNIEnv* env;
    ArrayType array;
    Element* elements;
    int count;
    int mode;
};

typedef CriticalArray<jintArray, jint> CriticalInts;
typedef CriticalArray<jlongArray, jlong> CriticalLongs;
