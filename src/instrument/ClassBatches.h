#pragma once

#include "core/ground/ZString.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"

#include <jvmti.h>

// Loaded classes, and retransforming many of them. None of these may be called with ourLock held:
// the hook takes it for each class, on this thread and on others.

// The tag, in ourJVMTI2, of classes that were there before an attach and that nobody asked to be
// rewritten.
constexpr long WAITING_TAG = 1;

// The dotted name of a class; empty for arrays and when the JVM does not tell.
ZString dottedNameOf(jclass type);

// Not a class whose static initialiser failed: that one runs no method, and would fail the batch
// that it is in.
bool isModifiable(jclass type);

// Tells classes that the hook would rewrite.
class RewritableClasses {
public:
    explicit RewritableClasses(JNIEnv* javaEnv);
    ~RewritableClasses();
    RewritableClasses(const RewritableClasses&) = delete;
    RewritableClasses& operator=(const RewritableClasses&) = delete;
    bool has(jclass type) const;

private:
    JNIEnv* env;
    jclass eventClass; // null where there is none
};

// Calls visit(class) for every loaded class and releases the references for which it gives false.
template <typename Visitor>
void eachLoadedClass(JNIEnv* env, Visitor&& visit);

// Local references, released at the end of the block.
class ClassList {
public:
    explicit ClassList(JNIEnv* javaEnv) : env(javaEnv), classes(64) {}
    ~ClassList() {
        for (int i = 0; i < classes.getSize(); i++) {
            env->DeleteLocalRef(classes[i]);
        }
    }
    ClassList(const ClassList&) = delete;
    ClassList& operator=(const ClassList&) = delete;

    void push(jclass type) { classes.push(type); }
    int getSize() const { return classes.getSize(); }
    // In one batch: the JVM walks over all its classes for each, and stands still for as long. One
    // that fails is halved until what fails stands alone; the log names it. Give the number done.
    int retransformAtOnce();
    // A batch at a time, the application running on in between. Classes that wait for rewriting get
    // only what is switched while the JVM runs.
    int retransformInBatches();
    // The next batch of these: as many classes as the JVM will stand still for some 40 ms for, by
    // what the last one took. False when none is left.
    bool retransformSome();
    int getPlace() const { return place; } // classes of the batches so far, failed ones among them
    int getDone() const { return done; }
    // Of a batch: from the last class that a hook was shown to the end, which takes in all of the
    // time for which the JVM stood still.
    long getLongestStopNs() const { return longestStopNs; }
    // "error=62:JVMTI_ERROR_FAILS_VERIFICATION" of the last that failed; empty if none did.
    ZString getFailure() const;

private:
    JNIEnv* env;
    ZVector<jclass> classes;
    jvmtiError lastError = JVMTI_ERROR_NONE;
    int place = 0;
    int done = 0;
    int batch = FIRST_BATCH;
    long longestStopNs = 0;

    static constexpr int FIRST_BATCH = 200;
};

// The hook has been shown a class that this thread redefines.
void noteClassOffered();

// Whether a class waits while a switch of calls rewrites classes: it gets back what it had, and
// those calls alone.
bool waitsForRewriting(jclass type);

// Implementation

template <typename Visitor>
void eachLoadedClass(JNIEnv* env, Visitor&& visit) {
    jint count = 0;
    JvmtiMemory<jclass> classes;
    CHECK_JVMTI(ourJVMTI->GetLoadedClasses(&count, classes.receive()));
    for (jint i = 0; i < count; i++) {
        if (!visit(classes.get()[i])) {
            env->DeleteLocalRef(classes.get()[i]);
        }
    }
}
