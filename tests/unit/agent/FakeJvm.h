#pragma once

#include <functional>
#include <jvmti.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

// FakeJvm: function tables of a JVM that answers as a test tells it to and writes down what it was
// asked. One at a time; it lives as long as the process. It knows no Java: of JNI only what
// the load needs is there, and a call of anything else ends the test at a null pointer.
class FakeJvm {
public:
    FakeJvm();

    JavaVM* vm() { return &javaVM; }
    JNIEnv* env() { return &jniEnv; }

    // What the JVM says about itself.
    jint getEnvResult = JNI_OK; // of the first environment
    int failGetEnvFrom = 1000;  // the n-th environment, counted from 0, can't be had
    jint jvmtiVersion = 0x30110000;
    jvmtiPhase phase = JVMTI_PHASE_ONLOAD;
    std::map<std::string, std::string> properties;
    jvmtiCapabilities potential;
    std::string failingFunction; // this function answers the failure
    jvmtiError failure = JVMTI_ERROR_INTERNAL;
    int failAddCapabilitiesFrom = 1000;

    // What it was asked, in order: "GetEnv 30010100", "AddCapabilities", "Enable 57", ...
    std::vector<std::string> calls;
    std::vector<jvmtiCapabilities> requests; // one an AddCapabilities
    jvmtiEventCallbacks callbacks = {};      // of the main environment
    std::map<jlong, jlong> tags;             // by object

    bool wasCalled(const std::string& call) const { return countCalls(call) > 0; }
    int countCalls(const std::string& call) const;

    jvmtiError answer(const std::string& function, const std::string& argument = "");

    // The one that the tables belong to.
    static FakeJvm* current;

    struct Environment {
        jvmtiEnv env; // must be first
        int number;
        bool isDisposed;
    };
    std::vector<std::unique_ptr<Environment>> environments;
    jvmtiInterface_1_ jvmtiFunctions;

private:
    JavaVM javaVM;
    JNIEnv jniEnv;
    JNIInvokeInterface_ invokeFunctions;
    JNINativeInterface_ jniFunctions;
};

// What became of a body that ran in a process of its own.
struct ProcessOutcome {
    int exitCode = -1; // -1 after a signal
    std::string output;
    std::string errors;
    std::string log; // what the agent's logger wrote, a line each
};

// Runs the body in a child whose output, errors and log are caught. The body's result is the exit
// code unless it ends the process itself.
ProcessOutcome runInChild(const std::function<int()>& body);
