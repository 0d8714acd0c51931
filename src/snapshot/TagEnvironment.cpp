#include "snapshot/TagEnvironment.h"

#include "core/ground/Logger.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"

namespace {

constexpr jlong FOUND = 1;
constexpr jlong TAKEN = 2;

jvmtiIterationControl JNICALL tagFound(jlong, jlong, jlong* tag, void*) {
    *tag = FOUND;
    return JVMTI_ITERATION_CONTINUE;
}

} // namespace

TagEnvironment::TagEnvironment() : jvmti(nullptr) {
    const jint result = ourVM->GetEnv(reinterpret_cast<void**>(&jvmti), JVMTI_VERSION_1_1);
    Logger::assertEquals(result, JNI_OK, VDK_HERE);
    jvmtiCapabilities capabilities = {};
    capabilities.can_tag_objects = 1;
    const jvmtiError error = jvmti->AddCapabilities(&capabilities);
    if (error != JVMTI_ERROR_NONE) {
        jvmti->DisposeEnvironment();
    }
    CHECK_JVMTI(error);
}

TagEnvironment::~TagEnvironment() {
    jvmti->DisposeEnvironment();
}

void TagEnvironment::findInstances(jclass type, ZVector<jobject>& found) {
    CHECK_JVMTI(
        jvmti->IterateOverInstancesOfClass(type, JVMTI_HEAP_OBJECT_EITHER, tagFound, nullptr));
    jint count = 0;
    JvmtiMemory<jobject> objects;
    CHECK_JVMTI(jvmti->GetObjectsWithTags(1, &FOUND, &count, objects.receive(), nullptr));
    for (jint i = 0; i < count; i++) {
        found.push(objects.get()[i]);
    }
}

bool TagEnvironment::take(jobject object) {
    jlong tag = 0;
    CHECK_JVMTI(jvmti->GetTag(object, &tag));
    if (tag == FOUND) {
        CHECK_JVMTI(jvmti->SetTag(object, TAKEN));
    }
    return tag == FOUND;
}
