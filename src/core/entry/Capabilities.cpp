#include "core/entry/Capabilities.h"

#include "core/ground/Globals.h"
#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/SuspendCapability.h"

namespace {

enum Need { REQUIRED, REQUIRED_ON_ATTACH, OPTIONAL };

// One capability: its name, its bit in the JVM's structure, how much it is needed, when it is left
// out although the JVM has it, and the bit that tells the rest of the agent that it is not there.
struct CapabilityRow {
    const char* name;
    bool (*get)(const jvmtiCapabilities& capabilities);
    void (*set)(jvmtiCapabilities& capabilities);
    Need need;
    bool (*isWithheld)();
    long missingBit;
};

bool never() {
    return false;
}

// Having the capability makes each throw many times slower, with no event enabled.
bool isWithoutExceptions() {
    return ourOptions->noExceptionEvents;
}

// Having the capability makes compiled code keep locals alive that it is done with.
bool isWithoutLocals() {
    return ourOptions->noLocals || (ourIsJRockit && ourOptions->withDebugger);
}

bool isWithoutLines() {
    return !ourOptions->sampleLines;
}

bool isUnderDebugger() {
    return ourOptions->withDebugger;
}

// clang-format off
#define VDK_CAPABILITY(name, need, isWithheld, missingBit)                                         \
    {#name,                                                                                        \
     [](const jvmtiCapabilities& c) { return c.name != 0; },                                       \
     [](jvmtiCapabilities& c) { c.name = 1; },                                                     \
     need, isWithheld, missingBit}

const CapabilityRow ROWS[] = {
    VDK_CAPABILITY(can_tag_objects,                    REQUIRED, never, 0),
    VDK_CAPABILITY(can_generate_object_free_events,    REQUIRED, never, 0),
    VDK_CAPABILITY(can_generate_all_class_hook_events, OPTIONAL, never, 0),
    VDK_CAPABILITY(can_redefine_classes,               REQUIRED, never, 0),
    VDK_CAPABILITY(can_generate_exception_events,      OPTIONAL, isWithoutExceptions, CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE),
    VDK_CAPABILITY(can_generate_vm_object_alloc_events, REQUIRED, never, 0),
    VDK_CAPABILITY(can_access_local_variables,         OPTIONAL, isWithoutLocals, 0),
    VDK_CAPABILITY(can_suspend,                        OPTIONAL, isUnderDebugger, CAPABILITY_CANNOT_SUSPEND),
    VDK_CAPABILITY(can_generate_monitor_events,        REQUIRED, never, 0),
    VDK_CAPABILITY(can_get_monitor_info,               REQUIRED, never, 0),
    VDK_CAPABILITY(can_set_native_method_prefix,       REQUIRED, never, 0),
    VDK_CAPABILITY(can_retransform_classes,            REQUIRED, never, 0),
    VDK_CAPABILITY(can_get_line_numbers,               OPTIONAL, isWithoutLines, 0),
    VDK_CAPABILITY(can_get_thread_cpu_time,            REQUIRED_ON_ATTACH, never, 0),
};
// clang-format on

bool isSuspend(const CapabilityRow& row) {
    return row.missingBit == CAPABILITY_CANNOT_SUSPEND;
}

void logMissing(const CapabilityRow& row) {
    ZString text = ZString(row.name) + ": " + (row.need == OPTIONAL ? "optional" : "required") +
                   " capability is not available";
    if (isSuspend(row)) {
        text.append("; is_debugger=");
        text.appendLong(ourOptions->withDebugger ? 1 : 0);
    }
    Logger::message(text);
}

} // namespace

jvmtiError requestCapabilities(jvmtiEnv* environment) {
    jvmtiCapabilities potential = {};
    CHECK_JVMTI(environment->GetPotentialCapabilities(&potential));
    const bool isAttached = (ourCapabilities & CAPABILITY_ATTACHED_AGENT) != 0;
    jvmtiCapabilities request = {};
    for (const CapabilityRow& row : ROWS) {
        if (row.need == REQUIRED_ON_ATTACH && !isAttached) {
            continue;
        }
        const bool isMissing = !row.get(potential) || row.isWithheld();
        if (isMissing) {
            logMissing(row);
            ourCapabilities |= row.missingBit;
        }
        const bool isLeftOut = isMissing && row.need == OPTIONAL;
        const bool isTakenLater = isSuspend(row) && SuspendCapability::isTakenOnDemand();
        if (!isLeftOut && !isTakenLater) {
            row.set(request);
        }
    }
    if ((ourCapabilities & CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE) != 0) {
        // Nothing counts exceptions before somebody asks for it.
        ourStatus &= ~EXCEPTION_TELEMETRY;
    }
    return environment->AddCapabilities(&request);
}
