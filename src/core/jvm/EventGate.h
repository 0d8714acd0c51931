#pragma once

#include "core/ground/Guard.h"
#include "core/jvm/JNIUtils.h"

#include <jvmti.h>

// Lets event handlers in and counts those at work, so that an attach that failed can wait for the
// last of them: the JVM calls handlers on any thread and waits for none when their environment is
// disposed of. Takes no lock.
class EventGate {
public:
    EventGate();
    ~EventGate();
    EventGate(const EventGate&) = delete;
    EventGate& operator=(const EventGate&) = delete;
    // Whether this handler may do its work.
    bool isOpen() const { return letIn; }

    // Lets nobody in any more and waits for those at work. The caller holds no lock.
    static void close();
    static void open();

private:
    bool letIn;
};

// The frame of an event handler that uses the environments.
template <typename Body>
void handleEvent(JNIEnv* env, const char* file, int line, Body&& body) {
    const EventGate gate;
    if (!gate.isOpen()) {
        return;
    }
    runGuarded(file, line, [&] {
        PendingException pending(env);
        body();
    });
}
