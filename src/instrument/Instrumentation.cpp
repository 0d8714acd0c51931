#include "instrument/Instrumentation.h"

#include "classfile/ClassScan.h"
#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/NameBits.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "instrument/CallbackSwitch.h"
#include "instrument/ClassBatches.h"
#include "instrument/LoadedClass.h"
#include "instrument/LoaderDelegation.h"
#include "instrument/LoaderReach.h"
#include "instrument/OnDemandCalls.h"
#include "instrument/ProbeChanges.h"
#include "instrument/ProbePasses.h"
#include "instrument/ProbeReach.h"
#include "instrument/RenewedClasses.h"
#include "instrument/Retransformation.h"
#include "instrument/TracingInstrumentation.h"
#include "instrument/WantedCalls.h"
#include "probes/Probes.h"
#include "probes/SignatureUtil.h"
#include "profiling/cpu/TracedCalls.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/UnloadedClasses.h"

#include <atomic>
#include <cstdio>

namespace {

// Interfaces of older class files have no methods with bodies.
constexpr int FIRST_VERSION_OF_INTERFACE_BODIES = 52;
constexpr int STATISTICS_INTERVAL = 2000;
// Bytes of room for rewritten classes that stay from one class to the next.
constexpr int LARGEST_KEPT = 128 * 1024;
// The old verifier, to which stripped classes go, knows classes up to those of Java 7.
constexpr int LAST_STRIPPABLE_VERSION = 51;

// Internal names of classes that had natives wrapped at some load; never shrinks. ourLock.
ZVectorSafe<ZString>& ourNamesOfClassesWithWrappedNatives = *new ZVectorSafe<ZString>();
WrappedNatives& ourWrappedNatives = *new WrappedNatives();
// Internal names of loaders' classes that were given the beginning of loadClass; never shrinks, as
// code that goes on behind a detach may still have to find the agent. ourLock.
ZVectorSafe<ZString>& ourPatchedLoaders = *new ZVectorSafe<ZString>();
// Classes that were given other code than wrappers around natives: all that a detach may have to
// give back. ourLock.
NameBits<1U << 17>& ourChangedClasses = *new NameBits<1U << 17>();
// Statistics of the hook. ourLock.
long ourProcessedClasses = 0;
long ourRewrittenClasses = 0;
long ourProcessingNs = 0;
InstrumentationCounts ourCounts = {};
// Where debug=dumpclasses puts what the hook hands back; whoever wants it makes the folder.
const char DUMP_DIRECTORY[] = "C:/_classes/";
long ourDumpedClasses = 0;

bool contains(ZVectorSafe<ZString>& names, const ZString& name) {
    for (int i = 0; i < names.getSize(); i++) {
        if (names[i] == name) {
            return true;
        }
    }
    return false;
}

bool listsWrappedNatives(const ZString& name) {
    return contains(ourNamesOfClassesWithWrappedNatives, name);
}

// The agent was away, and is not back yet: what a class has that is being redefined, it keeps.
bool isComingBack() {
    return (ourCapabilities & CAPABILITY_ATTACHED_AGENT) != 0 && !ourVMInitCalled;
}

// The rows of the methods may tell that they carry calls.
bool isMarkedAsTraced(const ZString& name) {
    return (ourOptions->onDemand || ourIsAway) && WantedCalls::mayCarryRecording(name);
}

// Texts and bytes of the class at work, kept so that their memory is taken once. ourLock.
ZVector<char>& ourMethodName = *new ZVector<char>(256);
ZVector<char>& ourParameters = *new ZVector<char>(1024);
ZVector<unsigned char>& ourNewBytes = *new ZVector<unsigned char>(LARGEST_KEPT);
ZVector<int>& ourInstrumentedIds = *new ZVector<int>(256);

// Where on the stack of the current thread the JVM has offered the class at work, LOADED for one
// that is being redefined. A hook may run within another. ourLock.
constexpr uintptr_t LOADED = 0;
uintptr_t ourOfferedPlace = LOADED;
// The class at work was there before the agent, and nobody asked for it to be rewritten.
bool ourOfferedUnasked = false;
// The loader of the class at work. No env where the class was not offered by the JVM.
JNIEnv* ourOfferedEnv = nullptr;
jobject ourOfferedLoader = nullptr;

class OfferedPlace {
public:
    OfferedPlace(uintptr_t place, bool unasked, JNIEnv* env, jobject loader)
        : outerPlace(ourOfferedPlace), outerUnasked(ourOfferedUnasked), outerEnv(ourOfferedEnv),
          outerLoader(ourOfferedLoader) {
        ourOfferedPlace = place;
        ourOfferedUnasked = unasked;
        ourOfferedEnv = env;
        ourOfferedLoader = loader;
    }
    ~OfferedPlace() {
        ourOfferedPlace = outerPlace;
        ourOfferedUnasked = outerUnasked;
        ourOfferedEnv = outerEnv;
        ourOfferedLoader = outerLoader;
    }
    OfferedPlace(const OfferedPlace&) = delete;
    OfferedPlace& operator=(const OfferedPlace&) = delete;

private:
    uintptr_t outerPlace;
    bool outerUnasked;
    JNIEnv* outerEnv;
    jobject outerLoader;
};

// The class's methods in the method table. A class without a package may be called like a primitive
// type is in short, so its name stands in the long form.
class DatabaseMethodIds : public MethodIds {
public:
    explicit DatabaseMethodIds(const ZString& internalName)
        : fullName(SignatureUtil::convertClassSignatureToFullName(
              (ZString("L") + internalName + ";").c_str())) {
        ourInstrumentedIds.clear();
    }
    int getMethodId(const Utf8View&, const Utf8View& methodName,
                    const Utf8View& descriptor) override {
        if (fullNameStrID == 0) {
            fullNameStrID = ourDB->stringPool->getDBIndex(fullName.c_str(), true);
            if (ourOfferedPlace != LOADED) {
                UnloadedClasses::definitionBegins(fullNameStrID, ourOfferedPlace);
            }
        }
        ourMethodName.clear();
        const int length = methodName.getLength();
        memcpy(ourMethodName.extend(length), methodName.getBytes(), static_cast<size_t>(length));
        ourMethodName.push(0);
        ourParameters.clear();
        SignatureUtil::appendParameters(descriptor.getBytes(), descriptor.getLength(),
                                        ourParameters);
        ourParameters.push(0);
        return ZMethod::getByName(fullNameStrID, fullName.c_str(), ourMethodName.data(),
                                  ourParameters.data());
    }
    void methodInstrumented(int id) override { ourInstrumentedIds.push(id); }
    static void forgetInstrumented() { ourInstrumentedIds.clear(); }
    // The JVM has the rewritten class: its methods carry the calls that were inserted.
    void confirm() {
        for (int i = 0; i < ourInstrumentedIds.getSize(); i++) {
            setFlag(ourInstrumentedIds[i], true);
        }
    }
    void setFlag(int id, bool instrumented) {
        MethodRecord* const row = ourDB->methodTable->getRecord(id, true);
        const int flags =
            instrumented ? row->flags | METHOD_INSTRUMENTED : row->flags & ~METHOD_INSTRUMENTED;
        __atomic_store_n(&row->flags, flags, __ATOMIC_RELAXED);
        row->stamp = ourDB->currentStamp;
    }

private:
    ZString fullName;
    int fullNameStrID = 0;
};

// The log tells of every class, not only of those that are left alone although they were meant.
bool logsEachClass() {
    return Options::isDebug("classes");
}

ZString dottedName(const ZString& internalName) {
    ZString dotted = internalName;
    dotted.replaceAll('/', '.');
    return dotted;
}

bool isClassFile(int length, const unsigned char* data) {
    return length >= 4 && data[0] == 0xca && data[1] == 0xfe && data[2] == 0xba && data[3] == 0xbe;
}

ZString phasePrefix() {
    const int phase = getJVMTIPhase();
    return phase == JVMTI_PHASE_LIVE ? ZString() : ZString("[") + longToString(phase) + "] ";
}

// The class can't be written: its methods won't carry calls after all.
void forgetInstrumentation(ClassFile& classFile, DatabaseMethodIds& ids) {
    for (int i = 0; i < classFile.getMethods().getSize(); i++) {
        MethodInfo* const method = classFile.getMethods()[i];
        ids.setFlag(
            ids.getMethodId(classFile.getSignature(), method->getName(), method->getDescriptor()),
            false);
    }
}

void logResult(const ZString& dotted, bool changed, long elapsedNs) {
    if (logsEachClass()) {
        ZString line = phasePrefix() + dotted;
        if (elapsedNs >= 1000000) {
            line = line + " " + longToString(elapsedNs / 1000000) + " ms";
        }
        if (!changed) {
            line.append(" SAME");
        }
        Logger::detail(line);
    }
    ourProcessingNs += elapsedNs;
    ourProcessedClasses++;
    if (ourProcessedClasses % STATISTICS_INTERVAL == 0 || Options::isDebug("times")) {
        Logger::detail(ZString("total: ") + longToString(ourProcessedClasses) + " classes " +
                       longToString(ourProcessingNs / 1000000) + " ms");
    }
}

bool patchLoader(ClassFile& classFile, const ZString& name) {
    if (ourIsAway && !contains(ourPatchedLoaders, name)) {
        return false;
    }
    const Delegation delegation = patchLoaderDelegation(&classFile);
    if (delegation == Delegation::IMPOSSIBLE) {
        distrustLoaderClass(name);
    }
    if (delegation == Delegation::PATCHED && !contains(ourPatchedLoaders, name)) {
        ourPatchedLoaders.push(name);
    }
    return delegation == Delegation::PATCHED;
}

// Runs the passes. True if any changed the class. natives: null leaves them as they are.
bool rewrite(ClassFile& classFile, const ZString& name, const NativeSelection* natives,
             DatabaseMethodIds& ids, ProbePasses& probes) {
    bool isWrapped = false;
    if (natives != nullptr &&
        wrapNativeMethods(&classFile, ourNativeMethodPrefix, *natives, &ourCounts)) {
        isWrapped = true;
        if (!listsWrappedNatives(name)) {
            ourNamesOfClassesWithWrappedNatives.push(name);
        }
        if (!natives->isRedefinition()) {
            ourWrappedNatives.add(name, classFile);
        }
    }
    if (ourVMDeathCalled || isComingBack()) {
        return isWrapped;
    }
    bool changed = false;
    const ClassCalls wanted = WantedCalls::ofClass(classFile, ourOfferedUnasked);
    if (wanted.calls.has(CALLS_LOADERS)) {
        changed = patchLoader(classFile, name) || changed;
    }
    const bool isProbed = wanted.calls.has(CALLS_PROBES);
    if (isProbed) {
        changed = probes.weave(ProbePasses::BEFORE_TRACING) || changed;
    }
    if (wanted.calls.has(BODY_CALLS) || wanted.leftOut != nullptr) {
        bool hasCatches = false;
        changed = instrumentForTracingAndAllocation(&classFile, wanted, &ids, ourIsIBM, &ourCounts,
                                                    &hasCatches) ||
                  changed;
        WantedCalls::onRewritten(name, wanted.calls, hasCatches);
    }
    if (isMarkedAsTraced(name) && !wanted.calls.has(CALLS_TRACING)) {
        DatabaseMethodIds::forgetInstrumented();
        forgetInstrumentation(classFile, ids);
    }
    if (isProbed) {
        changed = probes.weave(ProbePasses::BEHIND_TRACING) || changed;
    }
    if (wanted.calls.has(CALLS_GUARDS)) {
        changed = probes.guard() || changed;
    }
    if (changed) {
        ourChangedClasses.add(name);
    }
    return changed || isWrapped;
}

// Why a parsed class is not rewritten; empty if it may be.
const char* reasonToSkip(const ClassFile& classFile) {
    if (classFile.isInvalid()) {
        return "invalid class";
    }
    if (classFile.hasJava7Constants() || (classFile.isStrippingStackMaps() &&
                                          classFile.getMajorVersion() > LAST_STRIPPABLE_VERSION)) {
        return "skipping due to unsupported Java 7 constant pool entries";
    }
    return nullptr;
}

// Whether there is nothing that a pass could change: an interface without bodies, a module.
bool hasNoBodies(ClassFile& classFile) {
    const int flags = classFile.getAccessFlags();
    if ((flags & (ACC_INTERFACE | ACC_MODULE)) != ACC_INTERFACE) {
        return (flags & ACC_MODULE) != 0;
    }
    if (classFile.getMajorVersion() >= FIRST_VERSION_OF_INTERFACE_BODIES) {
        for (int i = 0; i < classFile.getMethods().getSize(); i++) {
            if ((classFile.getMethods()[i]->getAccessFlags() & ACC_ABSTRACT) == 0) {
                return false;
            }
        }
    }
    return true;
}

void dumpClass(const ZString& name, const ZVector<unsigned char>& bytes) {
    ourDumpedClasses++;
    ZString fileName = name;
    fileName.replaceAll('/', '_');
    const ZString path =
        ZString(DUMP_DIRECTORY) + fileName + "_" + longToString(ourDumpedClasses) + ".class";
    FILE* const file = fopen(path.c_str(), "wbe");
    if (file != nullptr) {
        fwrite(bytes.data(), 1, static_cast<size_t>(bytes.getSize()), file);
        fclose(file);
    }
}

// The JVM frees what it is given.
void give(const ZVector<unsigned char>& bytes, jint* newLength, unsigned char** newData) {
    unsigned char* copy = nullptr;
    CHECK_JVMTI(ourJVMTI->Allocate(bytes.getSize(), &copy));
    memcpy(copy, bytes.data(), static_cast<size_t>(bytes.getSize()));
    *newData = copy;
    *newLength = bytes.getSize();
}

void handOver(ClassFile& classFile, const ZString& name, int length, jint* newLength,
              unsigned char** newData) {
    // A rare long class takes memory of its own, which is not kept.
    const int expected = length + length / 2 + 64;
    ZVector<unsigned char> own(expected <= LARGEST_KEPT / 2 ? 1 : expected);
    ZVector<unsigned char>& bytes = expected <= LARGEST_KEPT / 2 ? ourNewBytes : own;
    bytes.clear();
    DataOutput output(bytes);
    classFile.writeClass(output);
    ourRewrittenClasses++;
    if (Options::isDebug("dumpclasses")) {
        dumpClass(name, bytes);
    }
    give(bytes, newLength, newData);
}

// The name of a class that was defined without one; empty if it can't be told.
ZString nameFromBytes(int length, const unsigned char* data) {
    if (logsEachClass()) {
        Logger::detail("warning: NULL class name");
    }
    DataInput input(data, length);
    ClassFile classFile(input);
    if (classFile.isInvalid()) {
        logClass("NULL", "invalid class");
        return "";
    }
    return classFile.getSignature().toString();
}

// The class being loaded or redefined, as the event tells it.
struct OfferedClass {
    JNIEnv* env;
    jclass redefined;
    jobject loader;
    const char* name;
    int length;
    const unsigned char* data;
    uintptr_t place; // on the stack
};

void rewriteOffered(const OfferedClass& offered, const ZString& name, jint* newLength,
                    unsigned char** newData) {
    const OfferedPlace place(offered.redefined == nullptr ? offered.place : LOADED,
                             offered.redefined != nullptr && waitsForRewriting(offered.redefined),
                             offered.env, offered.loader);
    if (offered.redefined != nullptr) {
        if (listsWrappedNatives(name)) {
            const Redefinition redefinition(offered.redefined, name, ourWrappedNatives);
            if (redefinition.hasWrapped()) {
                classFileLoadHookHandlerImpl(name, offered.length, offered.data, newLength, newData,
                                             &redefinition);
                return;
            }
        }
        classFileLoadHookHandlerImpl(name, offered.length, offered.data, newLength, newData,
                                     nullptr);
        return;
    }
    const FirstLoad firstLoad(offered.env, offered.loader);
    classFileLoadHookHandlerImpl(name, offered.length, offered.data, newLength, newData,
                                 WantedCalls::now().has(CALLS_NATIVES) ? &firstLoad : nullptr);
}

// Whether inserted calls would find their target.
bool mayCallAgent(const OfferedClass& offered, const ZString& name) {
    if (!WantedCalls::now().has(CALLS_LOADERS)) {
        return true;
    }
    if (offered.redefined == nullptr) {
        return loaderFindsAgent(offered.env, offered.loader, LoaderUse::FIRST_LOAD);
    }
    // What was loaded with wrappers has to keep them.
    return listsWrappedNatives(name) ||
           loaderFindsAgent(offered.env, offered.loader, LoaderUse::REDEFINITION);
}

void handleOffer(const OfferedClass& given, jint* newLength, unsigned char** newData) {
    LockHolder lock(ourLock, "Instrumentation:351");
    OfferedClass offered = given;
    const char* const givenName = offered.name;
    if (givenName == nullptr && offered.redefined != nullptr) {
        Logger::error("NULL class name is unexpected for a class being redefined", VDK_HERE);
    }
    const ZString name =
        givenName == nullptr ? nameFromBytes(offered.length, offered.data) : ZString(givenName);
    if (name.isEmpty()) {
        return;
    }
    if (offered.redefined == nullptr) {
        if (ourIsAway) {
            return;
        }
        rememberLoadedClass(offered.env, name, offered.loader);
        noteLoadedWhileProbesChange(name);
        noteLoadedWhileCallsCome(name);
    }
    if (!mayCallAgent(offered, name)) {
        logClass(dottedName(name), "skipping: its class loader does not find the agent");
        return;
    }
    const ZVector<unsigned char>* const renewed =
        offered.redefined != nullptr && offered.loader == nullptr ? RenewedClasses::find(name)
                                                                  : nullptr;
    if (renewed != nullptr) {
        offered.length = renewed->getSize();
        offered.data = renewed->data();
    }
    const bool done =
        runGuarded(VDK_HERE, [&] { rewriteOffered(offered, name, newLength, newData); });
    if (!done) {
        logClass(dottedName(name), "left as it was, after an error");
        // It may be the class of a loader.
        distrustLoaderClass(name);
        *newLength = 0;
        *newData = nullptr;
    }
    if (renewed != nullptr && *newData == nullptr) {
        give(*renewed, newLength, newData);
    }
}

} // namespace

bool isAgentClass(const ZString& internalName) {
    return internalName.startsWith("com/vandrik/") &&
           !internalName.startsWith("com/vandrik/runtime/Calibration");
}

void logClass(const ZString& dottedName, const char* text) {
    Logger::detail(phasePrefix() + dottedName + ": " + text);
}

namespace {

// Whether no pass has anything to do, as far as can be told without taking the class apart.
bool hasNoWork(const ZString& name, int length, const unsigned char* data,
               const NativeSelection* natives) {
    const CallSet wanted = WantedCalls::now();
    const Probes::Reach probes = Probes::reachOf(name);
    if (wanted.has(BODY_CALLS) || isMarkedAsTraced(name) || probes == Probes::ANY_METHOD) {
        return false;
    }
    // Loaders alone are worth it only where calls may come later.
    const bool looksForLoaders = wanted.has(CALLS_LOADERS) && (ourOptions->onDemand || ourIsAway);
    if (natives == nullptr && !looksForLoaders && probes == Probes::NO_METHOD) {
        return true;
    }
    const ClassScan scan(data, length,
                         probes == Probes::NO_METHOD ? nullptr : &Probes::methodNames());
    const bool mayWrap = natives != nullptr && scan.hasNatives() &&
                         reasonToLeaveNatives(Utf8View(name.c_str(), name.getLength())) == nullptr;
    return !scan.mayHaveNamed() && !mayWrap && !(wanted.has(CALLS_LOADERS) && scan.hasLoadClass());
}

} // namespace

void classFileLoadHookHandlerImpl(const ZString& name, int length, const unsigned char* data,
                                  jint* newLength, unsigned char** newData,
                                  const NativeSelection* natives) {
    // A JVM that ends may still retransform for others, which must not take a wrapper away.
    const bool keepsShape = natives != nullptr && natives->isRedefinition();
    if (length == 0 || (ourVMDeathCalled && !keepsShape)) {
        return;
    }
    const long start = getTimeNs();
    const ZString dotted = dottedName(name);
    if (!isClassFile(length, data)) {
        if (logsEachClass()) {
            logClass(dotted, "skipping non-CAFEBABE");
        }
        return;
    }
    const bool isOwn = isAgentClass(name);
    const bool isProbe = WantedCalls::now().has(CALLS_GUARDS) && Probes::isProbeClass(name);
    if (isOwn && !isProbe) {
        return;
    }
    if (!isProbe && hasNoWork(name, length, data, natives)) {
        return;
    }
    if (isComingBack() && !keepsShape) {
        if (logsEachClass()) {
            logClass(dotted, "no init yet");
        }
        return;
    }
    DataInput input(data, length);
    ClassFile classFile(input, ourOptions->stripStackMapTable);
    if (!classFile.isInvalid() && hasNoBodies(classFile)) {
        return;
    }
    const char* const skipped = reasonToSkip(classFile);
    if (skipped != nullptr) {
        if (classFile.isInvalid() || declaresLoadClass(&classFile)) {
            distrustLoaderClass(name);
        }
        logClass(dotted, skipped);
        return;
    }
    DatabaseMethodIds ids(name);
    ProbePasses probes(&classFile, ourOfferedEnv, ourOfferedLoader, &ourCounts);
    const bool changed = rewrite(classFile, name, isOwn ? nullptr : natives, ids, probes);
    if (changed && classFile.getConstantPool().getSize() >= 0x10000) {
        forgetInstrumentation(classFile, ids);
        if (declaresLoadClass(&classFile)) {
            distrustLoaderClass(name);
        }
        logClass(dotted, "skipping: resulting constant pool is too big");
        return;
    }
    logResult(dotted, changed, getTimeNs() - start);
    if (changed) {
        handOver(classFile, name, length, newLength, newData);
        ids.confirm();
        probes.confirm();
    }
}

void JNICALL class_file_load_hook_handler(jvmtiEnv*, JNIEnv* env, jclass classBeingRedefined,
                                          jobject loader, const char* name, jobject,
                                          jint classDataLength, const unsigned char* classData,
                                          jint* newClassDataLength, unsigned char** newClassData) {
    *newClassDataLength = 0;
    *newClassData = nullptr;
    if (ourIsAway && classBeingRedefined == nullptr) {
        return;
    }
    const uintptr_t place = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    const bool done = runGuarded(VDK_HERE, [&] {
        handleOffer({env, classBeingRedefined, loader, name, classDataLength, classData, place},
                    newClassDataLength, newClassData);
    });
    if (!done) {
        *newClassDataLength = 0;
        *newClassData = nullptr;
    }
    if (classBeingRedefined != nullptr) {
        noteClassOffered();
    }
}

bool mayBeChanged(const ZString& name) {
    return ourChangedClasses.mayHave(name);
}

void forgetChangedClasses() {
    ourChangedClasses.clear();
}

bool mayHaveWrappedNatives(const ZString& name) {
    return listsWrappedNatives(name);
}

bool isPatchedLoader(const ZString& name) {
    return contains(ourPatchedLoaders, name);
}

bool keepsHookInAnyCase() {
    return !ourNamesOfClassesWithWrappedNatives.isEmpty() || !ourPatchedLoaders.isEmpty() ||
           RenewedClasses::areThere();
}

void logInstrumentationTotals() {
    LockHolder lock(ourLock);
    Logger::message(ZString("rewritten: ") + longToString(ourRewrittenClasses) + " of " +
                    longToString(ourProcessedClasses) + " classes, " +
                    longToString(ourProcessingNs / 1000000) + " ms; " + ourCounts.toString());
}

namespace {

// With `ondemand` the classes have got their calls by then.
void retransformEarlierClasses(JNIEnv* env, ClassNameFilter* filter) {
    if (!ourOptions->onDemand) {
        retransformClassesLoadedBeforeAgentWasAttached(env, filter);
    }
}

} // namespace

void installInstrumentation(const unsigned char* callback, int callbackSize) {
    keepCallbackClass(callback, callbackSize);
    ourConsumedEvents.classFileLoadHook = class_file_load_hook_handler;
    ourConsumedEvents.exceptionCatch = exception_catch;
    ourTracingSwitch.takeCalls = takeRecordingCalls;
    ourTracingSwitch.giveCalls = giveRecordingCalls;
    ourTracingSwitch.redefineCallback = redefineCallback;
    ourTracingSwitch.retransformLoadedClasses = retransformEarlierClasses;
    ourTracingSwitch.switchExceptionCalls = switchExceptionCalls;
}
