#include "instrument/LoaderReach.h"

#include "core/ground/Globals.h"
#include "core/ground/ZVector.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "instrument/LoaderDelegation.h"

#include <atomic>

namespace {

const char ROOT_LOADER[] = "java/lang/ClassLoader";
// Longer chains of parents or superclasses are taken for a fault, and so is a loader whose class
// was defined by a loader, and so on.
constexpr int LONGEST_CHAIN = 1000;
constexpr int DEEPEST_NESTING = 50;

// Internal names. ourLock.
ZVectorSafe<ZString>& ourDistrusted = *new ZVectorSafe<ZString>();
std::atomic<bool> ourEarlierLoadersDone{false};
jclass ourRootOfLoaders = nullptr;

// A local reference that ends with the block or is replaced.
class LocalRef {
public:
    LocalRef(JNIEnv* javaEnv, jobject object) : env(javaEnv), reference(object) {}
    ~LocalRef() { release(); }
    LocalRef(const LocalRef&) = delete;
    LocalRef& operator=(const LocalRef&) = delete;
    jobject get() const { return reference; }
    jclass type() const { return static_cast<jclass>(reference); }
    void replace(jobject object) {
        release();
        reference = object;
    }

private:
    void release() {
        if (reference != nullptr) {
            env->DeleteLocalRef(reference);
        }
    }
    JNIEnv* env;
    jobject reference;
};

bool isDistrusted(const ZString& name) {
    for (int i = 0; i < ourDistrusted.getSize(); i++) {
        if (ourDistrusted[i] == name) {
            return true;
        }
    }
    return false;
}

bool findsAgent(JNIEnv* env, jobject loader, int nesting);

// A class of the JDK, or one that was rewritten as it was loaded.
bool isTrusted(JNIEnv* env, jclass type, const ZString& name, int nesting) {
    if (!mayDefineLoader(Utf8View(name.c_str(), name.getLength()))) {
        return true;
    }
    jobject definer = nullptr;
    if (isDistrusted(name) || ourJVMTI->GetClassLoader(type, &definer) != JVMTI_ERROR_NONE) {
        return false;
    }
    LocalRef reference(env, definer);
    return findsAgent(env, definer, nesting + 1);
}

// Whether the class and its superclasses are trusted; finds the root of all loaders on the way.
bool isTrustedChain(JNIEnv* env, jobject loader, LocalRef* root, int nesting) {
    LocalRef type(env, env->GetObjectClass(loader));
    for (int i = 0; type.get() != nullptr && i < LONGEST_CHAIN; i++) {
        const ZString name = internalNameOf(type.type());
        if (name == ROOT_LOADER) {
            root->replace(env->NewLocalRef(type.get()));
            return true;
        }
        if (name.isEmpty() || !isTrusted(env, type.type(), name, nesting)) {
            return false;
        }
        type.replace(env->GetSuperclass(type.type()));
    }
    return false;
}

jobject parentOf(JNIEnv* env, jobject loader, jclass root) {
    jfieldID field = env->GetFieldID(root, "parent", "Ljava/lang/ClassLoader;");
    if (field == nullptr) {
        env->ExceptionClear(); // another library; its chain alone has to do
        return nullptr;
    }
    return env->GetObjectField(loader, field);
}

// A loader that inherits loadClass asks its parent.
bool findsAgent(JNIEnv* env, jobject loader, int nesting) {
    if (nesting > DEEPEST_NESTING) {
        return false;
    }
    LocalRef current(env, loader == nullptr ? nullptr : env->NewLocalRef(loader));
    for (int i = 0; current.get() != nullptr && i < LONGEST_CHAIN; i++) {
        LocalRef root(env, nullptr);
        if (!isTrustedChain(env, current.get(), &root, nesting)) {
            return false;
        }
        current.replace(parentOf(env, current.get(), root.type()));
    }
    return true;
}

} // namespace

bool isLoaderOfJdk(JNIEnv* env, jobject loader) {
    LocalRef type(env, env->GetObjectClass(loader));
    const ZString name = internalNameOf(type.type());
    return !name.isEmpty() && !mayDefineLoader(Utf8View(name.c_str(), name.getLength()));
}

void rememberRootOfLoaders(JNIEnv* env, jclass root) {
    LockHolder lock(ourLock);
    ourRootOfLoaders = static_cast<jclass>(env->NewGlobalRef(root));
}

jobject parentOfLoader(JNIEnv* env, jobject loader) {
    return ourRootOfLoaders == nullptr ? nullptr : parentOf(env, loader, ourRootOfLoaders);
}

ZString internalNameOf(jclass type) {
    JvmtiMemory<char> signature;
    if (ourJVMTI->GetClassSignature(type, signature.receive(), nullptr) != JVMTI_ERROR_NONE ||
        signature.get() == nullptr || signature.get()[0] != 'L') {
        return "";
    }
    return ZString(signature.get() + 1, static_cast<int>(strlen(signature.get())) - 2);
}

void distrustLoaderClass(const ZString& name) {
    if (mayDefineLoader(Utf8View(name.c_str(), name.getLength())) && !isDistrusted(name)) {
        ourDistrusted.push(name);
    }
}

void trustEarlierLoaders() {
    ourEarlierLoadersDone.store(true, std::memory_order_release);
}

void forgetEarlierLoaders() {
    ourEarlierLoadersDone.store(false, std::memory_order_release);
}

bool loaderFindsAgent(JNIEnv* env, jobject loader, LoaderUse use) {
    if (loader == nullptr || env == nullptr) {
        return true;
    }
    if (use == LoaderUse::FIRST_LOAD && !ourEarlierLoadersDone.load(std::memory_order_acquire)) {
        return isLoaderOfJdk(env, loader);
    }
    if (ourDistrusted.isEmpty()) {
        return true;
    }
    PendingException pending(env);
    return findsAgent(env, loader, 0);
}
