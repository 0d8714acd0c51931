#include "profiling/memory/Generations.h"

#include "core/ground/Globals.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"

namespace {

int ourCurrentGenerationID = 0;

constexpr jlong LOW_WORD = 0xFFFFFFFF;

// Runs on the VM thread.
jvmtiIterationControl JNICALL markObject(jlong, jlong, jlong* tag, void* generation) {
    if (static_cast<unsigned long>(*tag) <= static_cast<unsigned long>(LOW_WORD)) {
        *tag |= *static_cast<const jlong*>(generation) << 32;
    }
    return JVMTI_ITERATION_CONTINUE;
}

// The heap iteration of IBM JVMs leaves the class objects out.
void markClasses(JNIEnv* env, jlong generation) {
    jint count = 0;
    JvmtiMemory<jclass> classes;
    CHECK_JVMTI(ourJVMTI->GetLoadedClasses(&count, classes.receive()));
    announceLocalReferences(env, count);
    for (jint i = 0; i < count; i++) {
        jlong tag = 0;
        CHECK_JVMTI(ourJVMTI->GetTag(classes.get()[i], &tag));
        if (static_cast<unsigned long>(tag) >> 32 == 0) {
            CHECK_JVMTI(ourJVMTI->SetTag(classes.get()[i], generation << 32 | (tag & LOW_WORD)));
        }
        env->DeleteLocalRef(classes.get()[i]);
    }
}

} // namespace

int Generations::getCurrentGenerationID() {
    return ourCurrentGenerationID;
}

void Generations::advanceGeneration(JNIEnv* env, const ZString& description, bool tagObjects) {
    ourCurrentGenerationID = ourDB->generationTable->nextIndex();
    GenerationRecord* row = ourDB->generationTable->getRecord(ourCurrentGenerationID, true);
    row->reserved = 0;
    row->descriptionStrID = ourDB->stringPool->getDBIndex(description.c_str(), true);
    row->uptimeMs = ourUptimeProvider.getUptimeMs();
    row->stamp = ourDB->currentStamp;
    if (!tagObjects) {
        return;
    }
    ourHasTaggedObjects = true;
    jlong generation = ourCurrentGenerationID;
    iterateOverHeapEither(ourJVMTI, markObject, &generation);
    if (ourIsIBM) {
        markClasses(env, generation);
    }
}
