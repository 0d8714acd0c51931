#include "instrument/ClassesBack.h"

#include "core/ground/Globals.h"
#include "instrument/LoaderReach.h"

namespace {

constexpr int MOST_LATE_LOOKS = 5;

} // namespace

ClassesBack::ClassesBack(JNIEnv* javaEnv, Carries carries)
    : env(javaEnv), mayCarry(carries), classes(javaEnv) {
    collect();
}

bool ClassesBack::step() {
    classes.retransformSome();
    if (classes.getPlace() < classes.getSize()) {
        return true;
    }
    return ++looks < MOST_LATE_LOOKS && collect();
}

bool ClassesBack::collect() {
    const int before = classes.getSize();
    const RewritableClasses rewritable(env);
    eachLoadedClass(env, [&](jclass type) {
        const ZString name = internalNameOf(type);
        LockHolder lock(ourLock);
        const bool carries =
            !name.isEmpty() && mayCarry(name) && (looks == 0 || !collected.mayHave(name));
        if (carries && rewritable.has(type)) {
            collected.add(name);
            classes.push(type);
            return true;
        }
        return false;
    });
    return classes.getSize() > before;
}
