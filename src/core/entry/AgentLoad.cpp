// Loading, from the JVM's call to the point where its events take over.
#include "core/entry/Capabilities.h"
#include "core/entry/Detach.h"
#include "core/entry/EventTable.h"
#include "core/entry/JVMTI_Agent.h"
#include "core/entry/JvmArguments.h"
#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/Options.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "instrument/Instrumentation.h"
#include "instrument/JNIRedirect.h"
#include "instrument/LoaderReach.h"
#include "instrument/ProbeChanges.h"
#include "instrument/ProbeReach.h"
#include "instrument/Retransformation.h"
#include "instrument/WantedCalls.h"
#include "platform/Platform.h"
#include "probes/Probes.h"
#include "profiling/events/Exceptions.h"
#include "profiling/events/Monitors.h"
#include "profiling/memory/AllocationRecorder.h"
#include "profiling/memory/Generations.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ThreadInfo.h"
#include "runtime/RuntimeArchive.h"
#include "runtime/RuntimeArchiveFile.h"
#include "runtime/RuntimeClasses.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const jint JVMTI_WANTED_VERSION = 0x30010100;
const jint JVMTI_TAG_VERSION = 0x30010000;
const jint JVMTI_TOO_OLD_VERSION = 0x30010154;
const jint JVMTI_6U4_VERSION = 0x30010169;
const jint JNI_WANTED_VERSION = 0x00010004;
const int VERSION_DIGITS = 8;
const char IBM_LEAST_BUILD[] = "20081105";
const char IBM_LEAST_BUILD_WEBSPHERE[] = "20080816";

// What the JVM says about itself.
struct VmDescription {
    jint jvmtiVersion = 0;
    ZString vendor;
    ZString version;
    ZString info;
};

// All environments, in the order in which they are disposed.
jvmtiEnv** const ENVIRONMENTS[] = {&ourJVMTI,  &ourJVMTI2, &ourJVMTI3, &ourJVMTI4,
                                   &ourJVMTI5, &ourJVMTI7, &ourJVMTI8, &ourJVMTI9};

bool isAttached() {
    return (ourCapabilities & CAPABILITY_ATTACHED_AGENT) != 0;
}

void printUnsupportedJavaVersionMessage() {
    Logger::refusal("Cannot start: Java 6 or newer is required. To profile on Java 5, use Vandrik "
                    "Java Profiler 8.0.x");
}

void logVersion(jint version) {
    Logger::message(ZString("phase: ") + longToString(getJVMTIPhase()));
    Logger::message(ZString("jvmtiVersion: ") +
                    toHexadecimal(static_cast<unsigned>(version), VERSION_DIGITS));
}

void describeVm(VmDescription* vm) {
    vm->vendor = getSystemProperty("java.vm.vendor");
    vm->version = getSystemProperty("java.vm.version");
    vm->info = getSystemProperty("java.vm.info");
    Logger::message(ZString("vendor: ") + vm->vendor);
    Logger::message(ZString("version: ") + vm->version);
    Logger::message(ZString("info: ") + vm->info);
}

// Before the options are parsed, which read the results.
void sniffVm(const VmDescription& vm) {
    ourIsIBM = vm.vendor.startsWith("IBM");
    ourIsJRockitR28 = vm.vendor.startsWith("Oracle") && vm.version.contains("R2");
    ourIsJRockit = ourIsJRockitR28 || vm.vendor.startsWith("BEA");
}

// LOAD_OK, or why a JVM of this family and age is refused.
int checkVendor(const VmDescription& vm) {
    if (ourIsJRockit && vm.version.contains("1.5.0")) {
        printUnsupportedJavaVersionMessage();
        return LOAD_JROCKIT_TOO_OLD;
    }
    if (ourIsIBM) {
        const char* least = ourOptions->getSessionName() == "WebSphere" ? IBM_LEAST_BUILD_WEBSPHERE
                                                                        : IBM_LEAST_BUILD;
        if (strcmp(vm.info.c_str(), least) < 0) {
            Logger::refusal(ZString("Cannot start: unsupported version of IBM Java (") + vm.info +
                            "). Use IBM Java 6 SR3 or newer, or Sun Java");
            return LOAD_IBM_TOO_OLD;
        }
        ourIsOldIBM = ourOptions->oldIBM;
    }
    return LOAD_OK;
}

bool acquireCapabilities() {
    const jvmtiError error = requestCapabilities(ourJVMTI);
    if (error == JVMTI_ERROR_NONE) {
        return true;
    }
    ZString text("Cannot start: the JVM does not provide required profiling capabilities (error "
                 "code=");
    text.appendLong(error);
    text.append(").\n\nMost likely, you have configured JVM to use a garbage collector that does "
                "not support heap profiling.\nPlease examine specified JVM options. Using default "
                "garbage collector will solve the problem.");
    Logger::refusal(text);
    return false;
}

void createTagEnvironments() {
    ourJVMTI3 = createTaggableJVMTIEnv(false);
    ourJVMTI4 = createTaggableJVMTIEnv(false);
    ourJVMTI5 = createTaggableJVMTIEnv(false);
    ourJVMTI7 = createTaggableJVMTIEnv(false);
    ourJVMTI8 = createTaggableJVMTIEnv(true);
    registerUnloadHandler(ourJVMTI8);
    ourJVMTI9 = createTaggableJVMTIEnv(true);
    registerObjectMapHandler(ourJVMTI9);
}

// The boot path invalidates an archive of application classes, and in a live JVM it makes the JVM
// print a warning on standard output: there the classes are defined one by one at agentStart.
bool mustDefineClasses(const RuntimeArchiveFile& file, const JvmArguments& arguments) {
    return !file.isUsable || isAttached() || arguments.mayUseApplicationArchive();
}

// The file may be missing, or another user's.
void searchProbesInMemory() {
    long count = 0;
    for (int part = 0; part < ourCallbackJarPartCount; part++) {
        count += ourCallbackJarPartSizes[part];
    }
    Probes::setRuntimeArchive(ourCallbackJarParts[0], count);
}

bool bringRuntimeClasses(const JvmArguments& arguments) {
    const bool isNamed = !ourOptions->tmpDir.isEmpty();
    const RuntimeArchiveFile file =
        writeCallbackJar(ourOptions->tmpDir, isNamed && !ourOptions->optional);
    if (file.path.isEmpty()) {
        return false;
    }
    ourDefinesRuntimeClasses = mustDefineClasses(file, arguments);
    if (ourDefinesRuntimeClasses) {
        Logger::message("Runtime classes are defined from memory");
    } else {
        CHECK_JVMTI(ourJVMTI->AddToBootstrapClassLoaderSearch(file.path.c_str()));
    }
    if (file.isUsable) {
        Probes::ourProbeClassPathElements.push(file.path);
    } else {
        searchProbesInMemory();
    }
    return true;
}

bool isSearchedForProbes(const ZString& path) {
    for (int i = 0; i < Probes::ourProbeClassPathElements.getSize(); i++) {
        if (Probes::ourProbeClassPathElements[i] == path) {
            return true;
        }
    }
    return false;
}

// An agent that comes back has those of before.
void addOptionClassPaths() {
    for (int i = 0; i < ourOptions->probeBootClassPath.getSize(); i++) {
        const ZString& element = ourOptions->probeBootClassPath[i];
        if (isSearchedForProbes(element)) {
            continue;
        }
        CHECK_JVMTI(ourJVMTI->AddToBootstrapClassLoaderSearch(element.c_str()));
        Probes::ourProbeClassPathElements.push(element);
    }
    for (int i = 0; i < ourOptions->probeSystemClassPath.getSize(); i++) {
        const ZString& element = ourOptions->probeSystemClassPath[i];
        if (isSearchedForProbes(element)) {
            continue;
        }
        CHECK_JVMTI(ourJVMTI->AddToSystemClassLoaderSearch(element.c_str()));
        Probes::addSystemPathElement(element);
    }
    Probes::setApplicationPath(getSystemProperty("java.class.path"));
}

void logEnvironment(const VmDescription& vm) {
    ZString text("JVMTI ");
    text.append(toHexadecimal(static_cast<unsigned>(vm.jvmtiVersion), VERSION_DIGITS));
    text.append(ZString("; ") + vm.vendor + "; " + vm.version + "; " + vm.info + "; ");
    text.append(ZString(Platform::name()) + "; 64-bit JVM; JR=");
    text.appendLong(ourIsJRockit ? 1 : 0);
    text.append("; I=");
    text.appendLong(ourIsIBM ? 1 : 0);
    Logger::message(text);
}

// What VMStart and VMInit would have driven in a starting JVM.
int startAttached(bool isFirst) {
    JNIEnv* env = nullptr;
    if (ourVM->GetEnv(reinterpret_cast<void**>(&env), JNI_WANTED_VERSION) != JNI_OK) {
        return LOAD_NO_JNI;
    }
    {
        LockHolder lock(ourLock, "JVMTI_Agent:1053");
        Generations::advanceGeneration(env, "Agent attached", !ourOptions->noStartGeneration);
    }
    agentStart(env);
    if (!agentInit(env)) {
        return LOAD_INIT_FAILED;
    }
    if ((ourCapabilities & (CAPABILITY_CAN_TRACE | CAPABILITY_CAN_RECORD_ALLOCATIONS)) != 0) {
        ourJVMTI2 = createTaggableJVMTIEnv(false);
        tagClassesLoadedBeforeAttach(env);
    }
    if (isFirst) {
        prepareProbes(env);
    } else if (Probes::areThere()) {
        rememberLoadedClasses(env); // of those that came meanwhile
    }
    enableClassFileLoadHook(ourJVMTI, env);
    retransformLoadersLoadedBeforeAttach(env);
    retransformClassesForChangedProbes(env, "apply probes after attach");
    registerLiveThreads(env);
    startProfiling(env);
    return LOAD_OK;
}

// Its classes would be bound to this library, under code that goes on in the other one.
bool isOtherAgentThere() {
    JNIEnv* env = nullptr;
    if (areRuntimeClassesOurs() ||
        ourVM->GetEnv(reinterpret_cast<void**>(&env), JNI_WANTED_VERSION) != JNI_OK) {
        return false;
    }
    jclass core = env->FindClass("com/vandrik/runtime/Core");
    env->ExceptionClear();
    const bool isThere = core != nullptr;
    env->DeleteLocalRef(core);
    return isThere;
}

// The environment, the checks of the JVM and the options. LOAD_OK or the refusal.
int examineVm(const char* options, VmDescription* vm) {
    const jint error = ourVM->GetEnv(reinterpret_cast<void**>(&ourJVMTI), JVMTI_WANTED_VERSION);
    if (error != JNI_OK) {
        ourJVMTI = nullptr;
        Logger::refusal(ZString("Cannot start: unable to create JVMTI environment, error=") +
                        longToString(error));
        return LOAD_NO_ENVIRONMENT;
    }
    CHECK_JVMTI(ourJVMTI->GetVersionNumber(&vm->jvmtiVersion));
    if (vm->jvmtiVersion <= JVMTI_TOO_OLD_VERSION) {
        printUnsupportedJavaVersionMessage();
        return LOAD_JVMTI_TOO_OLD;
    }
    ourIs6u4OrNewer = vm->jvmtiVersion > JVMTI_6U4_VERSION;
    logVersion(vm->jvmtiVersion);
    describeVm(vm);
    sniffVm(*vm);
    if (!ourOptions->parse(options)) {
        return LOAD_INVALID_OPTIONS;
    }
    return checkVendor(*vm);
}

// Puts the probes of these slashed names into the list. False if anything is wrong with them; the
// log tells.
bool registerProbes(const ZVectorSafe<ZString>& names, PROBE_STATUS status) {
    ProbeCreationResult result;
    Probes::createProbeDescriptors(names, status, &result);
    if (result.isOK()) {
        LockHolder lock(ourLock);
        Probes::addProbes(&result);
    }
    if (!result.messages.isEmpty()) {
        Logger::message(result.getAllMessages());
    }
    if (result.isOK()) {
        result.logRegisteredProbeClasses();
    }
    return result.isOK();
}

// One that is wrong stops the others as little as the application.
void registerOptionProbes() {
    ZVectorSafe<ZString> names;
    for (int i = 0; i < ourOptions->probes.getSize(); i++) {
        ZString name = ourOptions->probes[i];
        name.replaceAll('.', '/');
        names.push(name);
    }
    // What is there before the hook is rewritten in any case where any calls are wanted.
    const bool isLate = isAttached() || !WantedCalls::now().has(BODY_CALLS);
    const PROBE_STATUS status = isLate ? PROBE_ADDED : PROBE_IN_FORCE;
    if (names.isEmpty() || registerProbes(names, status)) {
        return;
    }
    for (int i = 0; i < names.getSize(); i++) {
        ZVectorSafe<ZString> name;
        name.push(names[i]);
        registerProbes(name, status);
    }
}

// Tables, capabilities, environments, events, classes. LOAD_OK or the refusal.
int prepareAgent(const JvmArguments& arguments, const VmDescription& vm) {
    DB::createAndInitializeDB(ourOptions->telemetryLimit, ourOptions->probeTableLengthLimit,
                              createStandInThreads);
    if (!acquireCapabilities()) {
        return LOAD_NO_CAPABILITIES;
    }
    createTagEnvironments();
    if (!checkPlatformCapabilities()) {
        return LOAD_PLATFORM_REFUSED;
    }
    EventGate::open();
    registerEventHandlers(ourJVMTI);
    CHECK_JVMTI(ourJVMTI->SetNativeMethodPrefix(ourNativeMethodPrefix));
    if (!bringRuntimeClasses(arguments)) {
        return LOAD_NO_ARCHIVE;
    }
    addOptionClassPaths();
    logEnvironment(vm);
    CHECK_JVMTI(ourJVMTI->CreateRawMonitor("vdk_jvmti_sampler_lock", &ourJVMTISamplerLock));
    registerOptionProbes();
    return LOAD_OK;
}

// Where a start cannot even be undone in order: ends the process, or with the option "optional" the
// start alone.
[[noreturn]] void refuseStart() {
    if (ourOptions->optional) {
        throw VDKRuntimeException();
    }
    doExit();
}

void logEntry(const char* entry, const char* options) {
    if (ourJVMTI == nullptr || isAway()) {
        ourOptions->findEarly(options);
    }
    Logger::message(ZString(entry) + ": options=" + (options == nullptr ? "<NULL>" : options));
}

} // namespace

bool checkPlatformCapabilities() {
    return true;
}

void doExit() {
    exit(1);
}

void abandonStart(long capabilities, long status) {
    runGuarded(VDK_HERE, [] { restoreJNIFunctions(); });
    EventGate::close();
    disposeEnvironments();
    ourCapabilities = capabilities;
    ourStatus = status;
    runGuarded(VDK_HERE, [] { ourOptions = new Options(); });
}

jvmtiEnv* createTaggableJVMTIEnv(bool withObjectFree) {
    jvmtiEnv* environment = nullptr;
    if (ourVM->GetEnv(reinterpret_cast<void**>(&environment), JVMTI_TAG_VERSION) != JNI_OK) {
        Logger::refusal("Cannot start: Unable to create JVMTI environment");
        refuseStart();
    }
    jvmtiCapabilities capabilities = {};
    capabilities.can_tag_objects = 1;
    capabilities.can_generate_object_free_events = withObjectFree ? 1 : 0;
    if (environment->AddCapabilities(&capabilities) != JVMTI_ERROR_NONE) {
        Logger::refusal(
            withObjectFree
                ? "Cannot start: Unable to create JVMTI environment with can_tag_objects "
                  "and can_generate_object_free_events capabilities"
                : "Cannot start: Unable to create JVMTI environment with can_tag_objects "
                  "capability");
        refuseStart();
    }
    return environment;
}

int agentLoadImpl(JavaVM* vm, const char* options) {
    ourVM = vm;
    if (ourJVMTI != nullptr && isAway()) {
        return returnToJvm(options);
    }
    if (ourJVMTI != nullptr) {
        Logger::message("Agent already loaded");
        return LOAD_OK;
    }
    VmDescription description;
    int result = examineVm(options, &description);
    if (result != LOAD_OK) {
        return result;
    }
    const JvmArguments arguments(ourOptions->commandLine);
    if (arguments.isArchiveDump()) {
        Logger::message("The JVM writes a class archive; the agent does nothing in this process");
        disposeEnvironments();
        return LOAD_OK;
    }
    if (isAttached() && isOtherAgentThere()) {
        Logger::refusal("Cannot start: another copy of the agent is in this JVM, or was");
        return LOAD_OTHER_AGENT;
    }
    installInstrumentation(ourCallbackBytecode, ourCallbackBytecodeSize);
    installAllocationRecording();
    Monitors::install();
    Exceptions::install();
    result = prepareAgent(arguments, description);
    if (result == LOAD_OK && isAttached()) {
        result = startAttached(true);
    }
    return result;
}

// Somebody may still be reading them, but not those that were retired before.
static void retire(Options* options) {
    static Options* unused = nullptr;
    delete unused;
    unused = options;
}

int startAgain(const char* options) {
    Options* const before = ourOptions;
    {
        // The hook may be at work, and is to see one or the other.
        LockHolder lock(ourLock);
        ourCapabilities = INITIAL_CAPABILITIES;
        ourStatus = INITIAL_STATUS;
        ourOptions = new Options();
        ourCapabilities |= CAPABILITY_ATTACHED_AGENT;
        ourVMInitCalled = false;
        ourIsAway = false;
    }
    ourOptions->findEarly(options);
    if (!ourOptions->parse(options)) {
        Options* const refused = ourOptions;
        ourOptions = before;
        retire(refused);
        return LOAD_INVALID_OPTIONS;
    }
    retire(before);
    if (!acquireCapabilities()) {
        return LOAD_NO_CAPABILITIES;
    }
    registerEventHandlers(ourJVMTI);
    registerUnloadHandler(ourJVMTI8);
    addOptionClassPaths();
    registerOptionProbes();
    forgetEarlierLoaders();
    return startAttached(false);
}

void disposeEnvironments() {
    for (jvmtiEnv** environment : ENVIRONMENTS) {
        if (*environment != nullptr) {
            (*environment)->DisposeEnvironment();
            *environment = nullptr;
        }
    }
}

void goOnWithoutAgent() {
    runGuarded(VDK_HERE, [] { Logger::message("The application goes on without the agent"); });
    abandonStart(INITIAL_CAPABILITIES, INITIAL_STATUS);
}

jint agentOnLoad(JavaVM* vm, const char* options) {
    int result = LOAD_INTERNAL_ERROR;
    runGuarded(VDK_HERE, [&] {
        logEntry("Agent_OnLoad", options);
        result = agentLoadImpl(vm, options);
    });
    if (result == LOAD_INTERNAL_ERROR) {
        // Not one of the refusals that a user must see: the application starts without profiling.
        goOnWithoutAgent();
        return LOAD_OK;
    }
    if (result != LOAD_OK) {
        if (!ourOptions->optional) {
            doExit();
        }
        goOnWithoutAgent();
    }
    return LOAD_OK;
}

jint agentOnAttach(JavaVM* vm, const char* options) {
    const bool isFirst = ourJVMTI == nullptr;
    const long capabilities = ourCapabilities;
    const long status = ourStatus;
    int result = LOAD_INTERNAL_ERROR;
    runGuarded(VDK_HERE, [&] {
        logEntry("Agent_OnAttach", options);
        if (isFirst) {
            ourCapabilities |= CAPABILITY_ATTACHED_AGENT;
        }
        result = agentLoadImpl(vm, options);
    });
    if (!isFirst) {
        return result; // an agent that is there, or was away, stays as it is
    }
    if (result == LOAD_INTERNAL_ERROR && ourVMInitCalled) {
        // The agent's threads run and use the environments. What was reached so far stays.
        runGuarded(VDK_HERE,
                   [] { Logger::message("Agent_OnAttach: the start was not completed"); });
        return LOAD_OK;
    }
    if (result != LOAD_OK) {
        // The JVM lives on, and the user may try again with other options.
        abandonStart(capabilities, status);
    }
    return result;
}

jint jvmOnLoad() {
    if (ourJVMTI != nullptr) {
        return LOAD_OK;
    }
    Logger::refusal(
        "Cannot start: Java 6 or newer is required. To profile on Java 1.4, use Vandrik "
        "Java Profiler 7.5.x");
    doExit();
}
