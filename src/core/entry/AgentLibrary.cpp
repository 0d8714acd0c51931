// The four entries that the JVM looks up by name.
#include "core/entry/JVMTI_Agent.h"

extern "C" {

JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void*) {
    return agentOnLoad(vm, options);
}

JNIEXPORT jint JNICALL Agent_OnAttach(JavaVM* vm, char* options, void*) {
    return agentOnAttach(vm, options);
}

// The JVM ends around the agent: nothing is joined, nothing freed.
JNIEXPORT void JNICALL Agent_OnUnload(JavaVM*) {}

JNIEXPORT jint JNICALL JVM_OnLoad(JavaVM*, char*, void*) {
    return jvmOnLoad();
}
}
