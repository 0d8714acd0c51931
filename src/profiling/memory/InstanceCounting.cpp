#include "profiling/memory/InstanceCounting.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "probes/SignatureUtil.h"

namespace {

jvmtiIterationControl JNICALL countObject(jlong classTag, jlong size, jlong*, void* counting) {
    static_cast<InstanceCounting*>(counting)->addObject(classTag, size);
    return JVMTI_ITERATION_CONTINUE;
}

} // namespace

InstanceCounting::InstanceCounting(JNIEnv* env, DB* db, int tableMask, Objects objects)
    : counts(nullptr), countCapacity(0) {
    if ((tableMask >> SLOT_InstanceCounts & 1) != 0 && db == ourDB) {
        gatherClassInstanceStatistics(env, objects);
    }
}

InstanceCounting::~InstanceCounting() {
    delete[] counts;
}

void InstanceCounting::addClass(int classNumber, const ZString& name) {
    newClasses.push(classNumber);
    newNames.push(name);
}

void InstanceCounting::beginCounting(int highestClassNumber) {
    delete[] counts;
    counts = nullptr;
    counts = new SizeAndCount[static_cast<size_t>(highestClassNumber) + 1]();
    countCapacity = highestClassNumber + 1;
}

int InstanceCounting::tagClass(jclass type) {
    jlong tag = 0;
    CHECK_JVMTI(ourJVMTI4->GetTag(type, &tag));
    if (tag != 0) {
        return static_cast<int>(tag);
    }
    JvmtiMemory<char> signature;
    CHECK_JVMTI(ourJVMTI4->GetClassSignature(type, signature.receive(), nullptr));
    const ZString name = SignatureUtil::convertClassSignatureToFullName(signature.get());
    const int index = ourDB->instanceCountsTable->nextIndex();
    CHECK_JVMTI(ourJVMTI4->SetTag(type, index));
    addClass(index, name);
    return index;
}

void InstanceCounting::deleteUnloadedClasses(const RowSet& loaded) {
    ourDB->instanceCountsTable->eachRecord([&](int index, InstanceCountsRecord& row) {
        if (row.stamp > 0 && !loaded.contains(index)) {
            row = InstanceCountsRecord();
            row.stamp = -ourDB->currentStamp;
            ourDB->instanceCountsTable->releaseIndex(index);
        }
    });
}

void InstanceCounting::tagClasses(JNIEnv* env) {
    // Two counts at once must not give a class two numbers, nor take the number of a class that the
    // other has found.
    LockHolder lock(ourLock);
    jint count = 0;
    JvmtiMemory<jclass> classes;
    CHECK_JVMTI(ourJVMTI4->GetLoadedClasses(&count, classes.receive()));
    announceLocalReferences(env, count);
    RowSet loaded(ourDB->instanceCountsTable->getIndexPool().getEnd() + count);
    for (jint i = 0; i < count; i++) {
        loaded.mark(tagClass(classes.get()[i]));
        env->DeleteLocalRef(classes.get()[i]);
    }
    deleteUnloadedClasses(loaded);
    beginCounting(ourDB->instanceCountsTable->getIndexPool().getEnd());
}

long InstanceCounting::numberOf(jclass type) {
    jlong tag = 0;
    if (ourJVMTI4 != nullptr) {
        CHECK_JVMTI(ourJVMTI4->GetTag(type, &tag));
    }
    return tag;
}

void InstanceCounting::gatherClassInstanceStatistics(JNIEnv* env, Objects objects) {
    if (ourJVMTI4 == nullptr || (ourIsJRockit && ourVMDeathCalled)) {
        return;
    }
    tagClasses(env);
    if (objects == WALKS_ITSELF) {
        iterateOverHeapEither(ourJVMTI4, countObject, this);
    }
}

void InstanceCounting::storeNewClasses() {
    for (int i = 0; counts != nullptr && i < newClasses.getSize(); i++) {
        InstanceCountsRecord* row = ourDB->instanceCountsTable->getRecord(newClasses[i], true);
        row->classNameStrID = ourDB->stringPool->getDBIndex(newNames[i].c_str(), true);
        row->stamp = ourDB->currentStamp;
    }
}

void InstanceCounting::updateDatabase() {
    if (counts == nullptr) {
        return;
    }
    storeNewClasses();
    DBTable<InstanceCountsRecord>* table = ourDB->instanceCountsTable;
    const int stamp = ourDB->currentStamp;
    table->eachRecord([&](int index, InstanceCountsRecord& row) {
        const SizeAndCount none = {};
        const SizeAndCount& now = index < countCapacity ? counts[index] : none;
        // The number of a deleted row may be that of a class that another count is about to tell
        // of.
        if (row.stamp < 0) {
            return;
        }
        if (row.instanceCount != now.count || row.shallowSize != now.size) {
            row.instanceCount = now.count;
            row.shallowSize = now.size;
            row.stamp = stamp;
        }
    });
}
