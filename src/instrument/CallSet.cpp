#include "instrument/CallSet.h"

#include "instrument/LeaveOut.h"

namespace {

// Recording the allocations of generated XSLT translets breaks their frames.
bool isTranslet(const Utf8View& superName) {
    return superName.contains("xalan") && superName.contains("AbstractTranslet");
}

} // namespace

bool isRootOfExceptions(const Utf8View& className) {
    return className == "java/lang/Throwable";
}

ClassCalls callsOfClass(CallSet wanted, const Utf8View& className, const Utf8View& superName) {
    ClassCalls result;
    result.calls = wanted;
    if (wanted.has(BODY_CALLS)) {
        result.leftOut = reasonToLeaveClass(className, superName);
    }
    if (result.leftOut != nullptr) {
        result.calls = result.calls.without(BODY_CALLS);
    }
    if (isTranslet(superName)) {
        result.calls = result.calls.without(ALLOCATION_CALLS);
    }
    if (!isRootOfExceptions(className)) {
        result.calls = result.calls.without(CALLS_CREATED);
    }
    return result;
}
