#include "instrument/LeaveOut.h"

namespace {

enum Match { EQUALS, BEGINS };

struct ClassRow {
    Match match;
    const char* name;
    const char* reason;
};

const ClassRow CLASSES[] = {
    {BEGINS, "jdk/internal/reflect/Generated", "generated accessors: thousands, never verified"},
    {BEGINS, "sun/reflect/Generated", "generated accessors: thousands, never verified"},
    {BEGINS, "jdk/internal/vm/", "continuations: frames of an exact shape while mounting"},
    {BEGINS, "java/lang/VirtualThread", "mounting runs with a half-changed current thread"},
    {BEGINS, "java/lang/invoke/", "method handle plumbing: would lose its forced inlining"},
    {BEGINS, "jdk/internal/event/", "the flight recorder rewrites event classes itself"},
};

// Their direct subclasses are event classes as well.
const char* const EVENT_CLASSES[] = {"jdk/internal/event/Event", "jdk/jfr/Event"};

struct AnnotationRow {
    const char* descriptor;
    bool onlyForceInline; // only together with @ForceInline
    const char* reason;
};

const AnnotationRow ANNOTATIONS[] = {
    {"Ljdk/internal/misc/ScopedMemoryAccess$Scoped;", false,
     "closing an arena looks for this very frame"},
    {"Ljdk/internal/vm/annotation/ReservedStackAccess;", false,
     "must not overflow the stack in a callee"},
    {"Ljdk/internal/vm/annotation/ChangesCurrentThread;", false,
     "the current thread changes on the way"},
    {"Ljdk/internal/vm/annotation/JvmtiHideEvents;", false, "no events may be seen from here"},
    {"Ljdk/internal/vm/annotation/JvmtiMountTransition;", false,
     "runs with a half-changed current thread"},
    {"Ljdk/internal/vm/annotation/IntrinsicCandidate;", false,
     "compiled callers replace the body, so its calls can't be counted"},
    {"Ljdk/internal/vm/annotation/Hidden;", true, "method handle plumbing, invisible to users"},
    {"Ljava/lang/invoke/LambdaForm$Hidden;", true, "method handle plumbing, invisible to users"},
};
constexpr int ANNOTATION_COUNT = sizeof(ANNOTATIONS) / sizeof(ANNOTATIONS[0]);

const char* const BOXES[] = {"java/lang/Byte",    "java/lang/Character", "java/lang/Short",
                             "java/lang/Integer", "java/lang/Long",      "java/lang/Float",
                             "java/lang/Double"};

const char* const OUTCOME_TEXTS[METHOD_OUTCOME_COUNT] = {
    "instrumented",
    "instrumented without allocation calls",
    "instrumented without calls at handlers",
    "no code",
    "trivial accessor",
    "class left out",
    "annotated",
    "longer than 65535 bytes",
    "longer than the JVM compiles",
    "branch out of reach",
    "stack or locals at their limit",
    "unknown code attribute",
    "types not known",
};

} // namespace

const char* methodOutcomeText(MethodOutcome outcome) {
    Logger::assertTrue(outcome >= 0 && outcome < METHOD_OUTCOME_COUNT, VDK_HERE);
    return OUTCOME_TEXTS[outcome];
}

ZString InstrumentationCounts::toString() const {
    ZString text("methods:");
    for (int i = 0; i < METHOD_OUTCOME_COUNT; i++) {
        text.append(i == 0 ? " " : ", ");
        text.append(methodOutcomeText(static_cast<MethodOutcome>(i)));
        text.append(" ");
        text.appendLong(methods[i]);
    }
    text.append("; natives wrapped ");
    text.appendLong(wrappedNatives);
    text.append(", left ");
    text.appendLong(leftNatives);
    text.append("; allocations skipped ");
    text.appendLong(skippedAllocations);
    return text;
}

const char* reasonToLeaveClass(const Utf8View& className, const Utf8View& superName) {
    for (const char* const event : EVENT_CLASSES) {
        if (superName == event) {
            return "the flight recorder rewrites event classes itself";
        }
    }
    for (const ClassRow& row : CLASSES) {
        if (row.match == EQUALS ? className == row.name : className.startsWith(row.name)) {
            return row.reason;
        }
    }
    return nullptr;
}

bool isBoxing(const Utf8View& className, const Utf8View& methodName) {
    if (!(methodName == "valueOf")) {
        return false;
    }
    for (const char* const box : BOXES) {
        if (className == box) {
            return true;
        }
    }
    return false;
}

AnnotatedMethods::AnnotatedMethods(ClassFile* owner)
    : classFile(owner), forceInline(0), any(false) {
    static_assert(ANNOTATION_COUNT <= MAX_ROWS, "a slot for each row");
    ConstantPool& pool = owner->getConstantPool();
    forceInline = pool.findUtf8("Ljdk/internal/vm/annotation/ForceInline;");
    for (int i = 0; i < ANNOTATION_COUNT; i++) {
        nameIndices[i] = pool.findUtf8(ANNOTATIONS[i].descriptor);
        if (ANNOTATIONS[i].onlyForceInline && forceInline == 0) {
            nameIndices[i] = 0;
        }
        any = any || nameIndices[i] > 0;
    }
}

bool AnnotatedMethods::hasAnnotation(MethodInfo* method, int nameIndex) const {
    return nameIndex > 0 && method->hasAnnotation(classFile->getConstantPool().getUtf8(nameIndex));
}

const char* AnnotatedMethods::reasonToLeave(MethodInfo* method) const {
    if (!any) {
        return nullptr;
    }
    for (int i = 0; i < ANNOTATION_COUNT; i++) {
        if (hasAnnotation(method, nameIndices[i]) &&
            (!ANNOTATIONS[i].onlyForceInline || hasAnnotation(method, forceInline))) {
            return ANNOTATIONS[i].reason;
        }
    }
    return nullptr;
}
