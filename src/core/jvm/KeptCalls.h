#pragma once

#include <atomic>
#include <jni.h>

// KeptCalls: traced calls that the inserted Java code keeps for its thread, without a native call.
//
// DESCRIPTION
//   A filtered method that a filtered one calls has no frame, no time and no count. All that is
//   needed of it is that it was entered and not left, should an exception end it. So while the
//   innermost open call of a thread is filtered, and the thread's run of kept calls is open, Java
//   code puts further filtered calls there, and takes them away as they return
//   (vdkMethodEntryK, vdkMethodExitK of Callback). Whatever else happens comes into the library,
//   which first moves what the run holds to the thread's open calls.
// IMPLEMENTATION
//   A run belongs to the thread whose Java id it has, by the lowest bits of that id; a thread that
//   finds its place taken by another keeps nothing. Java reads the memory by addresses, for which
//   its own class of the JVM has to be open to the agent's. The JVM is asked once, when something
//   is traced for the first time; where it refuses, all calls come in.
namespace KeptCalls {

// Callback.java has the offsets as constants, which are compared. Only the thread itself uses it,
// but for shut.
struct Run {
    static constexpr int MOST_CALLS = 58;
    // Calls kept until one comes in, so that what has ended unseen shows at last.
    static constexpr int CALLS_UNTIL_LOOK = 64;

    std::atomic<long> thread; // 0: nobody's
    std::atomic<int> isOpen;
    int count;
    int callsUntilLook;
    int unused;
    int methods[MOST_CALLS]; // outermost first

    void open() {
        callsUntilLook = CALLS_UNTIL_LOOK;
        isOpen = 1;
    }
    // From any thread: nothing more is kept until the thread opens it again.
    void shut() { isOpen = 0; }
};

// Opens the JVM's memory class and tells Java the places. With no lock held.
void prepare(JNIEnv* env);
bool isReady();

// The run of the current thread from now on; null if it has none.
Run* claim(JNIEnv* env);
void release(Run* run);
// Those of all threads.
void releaseAll();

} // namespace KeptCalls
