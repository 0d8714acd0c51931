#include "agent/FakeJvm.h"

#include "core/ground/Logger.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

FakeJvm* FakeJvm::current = nullptr;

namespace {

FakeJvm& fake() {
    return *FakeJvm::current;
}

std::string hex(jint value) {
    char text[16];
    snprintf(text, sizeof text, "%08X", static_cast<unsigned>(value));
    return text;
}

char* copyOf(const std::string& text) {
    return strdup(text.c_str());
}

FakeJvm::Environment& environmentOf(jvmtiEnv* env) {
    return *reinterpret_cast<FakeJvm::Environment*>(env);
}

std::string numberOf(jvmtiEnv* env) {
    return std::to_string(environmentOf(env).number);
}

bool isSubset(const jvmtiCapabilities& wanted, const jvmtiCapabilities& offered) {
    const auto* left = reinterpret_cast<const unsigned char*>(&wanted);
    const auto* right = reinterpret_cast<const unsigned char*>(&offered);
    for (size_t i = 0; i < sizeof wanted; i++) {
        if ((left[i] & ~right[i]) != 0) {
            return false;
        }
    }
    return true;
}

jint JNICALL getEnv(JavaVM*, void** out, jint version) {
    fake().calls.push_back("GetEnv " + hex(version));
    if (version == 0x00010004) {
        *out = fake().env();
        return JNI_OK;
    }
    const int number = static_cast<int>(fake().environments.size());
    if (number == 0 && fake().getEnvResult != JNI_OK) {
        return fake().getEnvResult;
    }
    if (number >= fake().failGetEnvFrom) {
        return JNI_EVERSION;
    }
    auto* environment = new FakeJvm::Environment{{&fake().jvmtiFunctions}, number, false};
    fake().environments.emplace_back(environment);
    *out = &environment->env;
    return JNI_OK;
}

jvmtiError JNICALL addCapabilities(jvmtiEnv*, const jvmtiCapabilities* wanted) {
    const int number = static_cast<int>(fake().requests.size());
    fake().requests.push_back(*wanted);
    fake().calls.push_back("AddCapabilities");
    return isSubset(*wanted, fake().potential) && number < fake().failAddCapabilitiesFrom
               ? JVMTI_ERROR_NONE
               : JVMTI_ERROR_NOT_AVAILABLE;
}

jvmtiError JNICALL setEventNotificationMode(jvmtiEnv* env, jvmtiEventMode mode, jvmtiEvent event,
                                            jthread, ...) {
    return fake().answer(mode == JVMTI_ENABLE ? "Enable" : "Disable",
                         std::to_string(event) + " in " + numberOf(env));
}

void fillWhatTheJvmSaysOfItself(jvmtiInterface_1_* table) {
    table->GetVersionNumber = [](jvmtiEnv*, jint* out) {
        *out = fake().jvmtiVersion;
        return fake().answer("GetVersionNumber");
    };
    table->GetPhase = [](jvmtiEnv*, jvmtiPhase* out) {
        *out = fake().phase;
        return JVMTI_ERROR_NONE;
    };
    table->GetSystemProperty = [](jvmtiEnv*, const char* key, char** out) {
        const auto found = fake().properties.find(key);
        *out = found == fake().properties.end() ? nullptr : copyOf(found->second);
        return *out == nullptr ? JVMTI_ERROR_NOT_AVAILABLE : JVMTI_ERROR_NONE;
    };
    table->Deallocate = [](jvmtiEnv*, unsigned char* memory) {
        free(memory);
        return JVMTI_ERROR_NONE;
    };
    table->GetErrorName = [](jvmtiEnv*, jvmtiError error, char** out) {
        *out = copyOf("JVMTI_ERROR_" + std::to_string(error));
        return JVMTI_ERROR_NONE;
    };
    table->GetPotentialCapabilities = [](jvmtiEnv*, jvmtiCapabilities* out) {
        *out = fake().potential;
        return fake().answer("GetPotentialCapabilities");
    };
}

void fillWhatIsAskedOfTheJvm(jvmtiInterface_1_* table) {
    table->AddCapabilities = addCapabilities;
    table->RelinquishCapabilities = [](jvmtiEnv*, const jvmtiCapabilities*) {
        return fake().answer("RelinquishCapabilities");
    };
    table->SetEventCallbacks = [](jvmtiEnv* env, const jvmtiEventCallbacks* callbacks, jint) {
        if (environmentOf(env).number == 0) {
            fake().callbacks = *callbacks;
        }
        return fake().answer("SetEventCallbacks", numberOf(env));
    };
    table->SetEventNotificationMode = setEventNotificationMode;
    table->SetNativeMethodPrefix = [](jvmtiEnv*, const char* prefix) {
        return fake().answer("SetNativeMethodPrefix", prefix);
    };
    table->AddToBootstrapClassLoaderSearch = [](jvmtiEnv*, const char* path) {
        return fake().answer("AddToBootstrapClassLoaderSearch", path);
    };
    table->AddToSystemClassLoaderSearch = [](jvmtiEnv*, const char* path) {
        return fake().answer("AddToSystemClassLoaderSearch", path);
    };
    table->CreateRawMonitor = [](jvmtiEnv*, const char* name, jrawMonitorID* out) {
        *out = reinterpret_cast<jrawMonitorID>(&fake());
        return fake().answer("CreateRawMonitor", name);
    };
    table->DisposeEnvironment = [](jvmtiEnv* env) {
        environmentOf(env).isDisposed = true;
        return fake().answer("DisposeEnvironment", numberOf(env));
    };
}

void fillObjectsAndThreads(jvmtiInterface_1_* table) {
    table->GetTag = [](jvmtiEnv*, jobject object, jlong* out) {
        const auto found = fake().tags.find(reinterpret_cast<jlong>(object));
        *out = found == fake().tags.end() ? 0 : found->second;
        return fake().answer("GetTag");
    };
    table->SetTag = [](jvmtiEnv*, jobject object, jlong tag) {
        fake().tags[reinterpret_cast<jlong>(object)] = tag;
        return fake().answer("SetTag");
    };
    table->GetThreadInfo = [](jvmtiEnv*, jthread, jvmtiThreadInfo*) {
        return JVMTI_ERROR_THREAD_NOT_ALIVE;
    };
    table->GetThreadLocalStorage = [](jvmtiEnv*, jthread, void** out) {
        *out = nullptr;
        return fake().answer("GetThreadLocalStorage");
    };
    table->SetThreadLocalStorage = [](jvmtiEnv*, jthread, const void*) {
        return fake().answer("SetThreadLocalStorage");
    };
    table->GetClassSignature = [](jvmtiEnv*, jclass, char** out, char**) {
        *out = nullptr;
        return fake().answer("GetClassSignature");
    };
}

// A file whose content is read back as text.
class CaughtStream {
public:
    CaughtStream() : file(tmpfile()) {}
    ~CaughtStream() { fclose(file); }
    int descriptor() const { return fileno(file); }
    std::string text() {
        std::string result;
        char buffer[4096];
        rewind(file);
        size_t count = 0;
        while ((count = fread(buffer, 1, sizeof buffer, file)) > 0) {
            result.append(buffer, count);
        }
        return result;
    }

private:
    FILE* file;
};

int ourLogDescriptor = -1;

void writeLogLine(const char* line) {
    dprintf(ourLogDescriptor, "%s\n", line);
}

} // namespace

FakeJvm::FakeJvm() : jvmtiFunctions(), javaVM(), jniEnv(), invokeFunctions(), jniFunctions() {
    current = this;
    memset(&potential, 0xff, sizeof potential);
    properties["java.vm.vendor"] = "Eclipse Adoptium";
    properties["java.vm.version"] = "17.0.15+6";
    properties["java.vm.info"] = "mixed mode, sharing";
    javaVM.functions = &invokeFunctions;
    jniEnv.functions = &jniFunctions;
    invokeFunctions.GetEnv = getEnv;
    fillWhatTheJvmSaysOfItself(&jvmtiFunctions);
    fillWhatIsAskedOfTheJvm(&jvmtiFunctions);
    fillObjectsAndThreads(&jvmtiFunctions);
    jniFunctions.GetObjectClass = [](JNIEnv*, jobject object) {
        return static_cast<jclass>(object);
    };
    jniFunctions.FindClass = [](JNIEnv*, const char*) { return jclass(nullptr); };
    jniFunctions.ExceptionClear = [](JNIEnv*) {};
    jniFunctions.DeleteLocalRef = [](JNIEnv*, jobject) {};
    jniFunctions.NewGlobalRef = [](JNIEnv*, jobject object) { return object; };
    jniFunctions.DeleteGlobalRef = [](JNIEnv*, jobject) {};
}

jvmtiError FakeJvm::answer(const std::string& function, const std::string& argument) {
    calls.push_back(argument.empty() ? function : function + " " + argument);
    return function == failingFunction ? failure : JVMTI_ERROR_NONE;
}

int FakeJvm::countCalls(const std::string& call) const {
    int count = 0;
    for (const std::string& made : calls) {
        count += made == call ? 1 : 0;
    }
    return count;
}

ProcessOutcome runInChild(const std::function<int()>& body) {
    CaughtStream output;
    CaughtStream errors;
    CaughtStream log;
    fflush(nullptr);
    const int pid = fork();
    if (pid == 0) {
        dup2(output.descriptor(), STDOUT_FILENO);
        dup2(errors.descriptor(), STDERR_FILENO);
        ourLogDescriptor = log.descriptor();
        Logger::setSink(writeLogLine);
        const int result = body();
        fflush(nullptr);
        _exit(result);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ProcessOutcome outcome;
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    outcome.output = output.text();
    outcome.errors = errors.text();
    outcome.log = log.text();
    return outcome;
}
