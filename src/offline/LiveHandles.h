#pragma once

#include "core/ground/ZLock.h"
#include "core/ground/ZSet.h"

#include <atomic>

// LiveHandles<T>: the objects of one type that Java holds by a long. A number that is not, or no
// longer, such an object is an internal error and never a wild pointer. Any thread may ask; the
// object itself is the caller's to use from one thread at a time.
template <typename T>
class LiveHandles {
public:
    explicit LiveHandles(const char* name) : lock(name), handles(16), changes(1) {}

    // The handle of a new object, which is Java's from now on. On failure the caller still owns it.
    long add(T* object) {
        const long handle = reinterpret_cast<long>(object);
        LockHolder holder(lock);
        handles.add(handle);
        changes++;
        return handle;
    }
    // The object behind a handle.
    T& get(long handle) {
        // One object is asked for many times in a row; nothing was removed since the last time.
        // Of the threads' fixed block, in which all of the library's then is: what the system makes
        // at a thread's first use ends the process where memory is out.
        static thread_local long lastHandle __attribute__((tls_model("initial-exec"))) = 0;
        static thread_local long lastChanges __attribute__((tls_model("initial-exec"))) = 0;
        if (handle == 0 || handle != lastHandle || changes != lastChanges) {
            LockHolder holder(lock);
            Logger::assertTrue(handle != 0 && handles.contains(handle), VDK_HERE);
            lastHandle = handle;
            lastChanges = changes;
        }
        return *reinterpret_cast<T*>(handle);
    }
    // Deletes the object. Nothing for 0.
    void remove(long handle) {
        if (handle == 0) {
            return;
        }
        T* object = &get(handle);
        {
            LockHolder holder(lock);
            handles.remove(handle);
            changes++;
        }
        delete object;
    }

private:
    ZLock lock;
    ZSet<long> handles;
    std::atomic<long> changes;
};
