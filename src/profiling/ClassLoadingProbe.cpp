#include "profiling/ClassLoadingProbe.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "probes/SignatureUtil.h"
#include "profiling/UserTableRows.h"
#include "profiling/threads/ThreadInfo.h"

#include <atomic>

namespace {

const char DESCRIPTION[] = "Class Loading\n5\nuptime_ns\n1\nthread\n0\nframe\n0\nClass\n4\n"
                           "Loaded or Unloaded\n2\n";
const char CLASS_COLUMN[] = "Class";
const char STATUS_COLUMN[] = "Loaded or Unloaded";

ZLock& ourUnloadedClassesLock = *new ZLock("ClassLoadingProbeLock");
ZVector<int>& ourUnloadedClassStrIDs = *new ZVector<int>();
// Set once the table has taken all the rows it may: none is ever deleted, so the event of a
// prepared class is over at once from then on.
std::atomic<bool> ourIsFull{false};
// Slot of the table: 0 before it was made, negative when it could not be.
int ourTable = 0;

bool isLimitReached(const UserTable* table) {
    const int limit = ourDB->probeTableLengthLimit;
    return limit != -1 && table->peekNextIndex() >= limit;
}

// A walk over the stack for each class is most of what a start would pay for this table.
RowOrigin originOfRows() {
    constexpr long RECORDS = CPU_TIMES_BIT | ALLOCATION_RECORDING_BIT | MONITORS_BIT;
    return ourOptions->noIdleStacks && (ourStatus & RECORDS) == 0 ? RowOrigin::THREAD
                                                                  : RowOrigin::THREAD_AND_STACK;
}

// False if no row was made.
bool createRow(JNIEnv* env, int classNameStrID, int statusStrID) {
    if (ourTable == 0) {
        ourTable = ourDB->createUserTableByDescription(DESCRIPTION);
    }
    if (ourTable < 0) {
        ourIsFull = true;
        return false;
    }
    if (isLimitReached(ourDB->getUserTable(ourTable))) {
        ourIsFull = true;
        return false;
    }
    const int row = createUserTableRow(env, ourTable, -1, 0, originOfRows());
    if (row == NO_USER_TABLE_ROW) {
        return false;
    }
    UserTable* table = ourDB->getUserTable(ourTable);
    int* record = table->getRecord(row, true);
    table->setClassNameColumn(record, table->findColumn(CLASS_COLUMN), classNameStrID);
    table->setStringColumn(record, table->findColumn(STATUS_COLUMN), statusStrID);
    record[0] = ourDB->currentStamp;
    return true;
}

// Moves what has queued up to `taken`, in order of arrival.
void takeUnloadedClasses(ZVector<int>* taken) {
    LockHolder lock(ourUnloadedClassesLock);
    for (int i = 0; i < ourUnloadedClassStrIDs.getSize(); i++) {
        taken->push(ourUnloadedClassStrIDs[i]);
    }
    ourUnloadedClassStrIDs.clear();
}

// Daemon threads go on preparing classes while the JVM ends around them; nothing is recorded then.
bool hasEnded(jvmtiError error) {
    return error == JVMTI_ERROR_WRONG_PHASE;
}

} // namespace

void ClassLoadingProbe::reset() {
    ZVector<int> forgotten;
    takeUnloadedClasses(&forgotten);
    ourIsFull = false;
    ourTable = 0;
}

void ClassLoadingProbe::onClassPrepare(JNIEnv* env, jclass type) {
    if (ourVMDeathCalled || ourIsFull.load(std::memory_order_relaxed) ||
        getThreadInfo() == nullptr) {
        return;
    }
    JvmtiMemory<char> signature;
    const jvmtiError error = ourJVMTI->GetClassSignature(type, signature.receive(), nullptr);
    if (hasEnded(error)) {
        return;
    }
    CHECK_JVMTI(error);
    const ZString name = SignatureUtil::convertClassSignatureToFullName(signature.get());
    int nameStrID;
    {
        LockHolder lock(ourLock);
        nameStrID = ourDB->stringPool->getDBIndex(name.c_str(), true);
        if (!createRow(env, nameStrID, ourDB->stringPool->getDBIndex("loaded", true))) {
            // Without a row that keeps it the name is collected sooner or later, and its number
            // given to another text.
            return;
        }
    }
    const jvmtiError tagError = ourJVMTI8->SetTag(type, nameStrID);
    if (!hasEnded(tagError)) {
        CHECK_JVMTI(tagError);
    }
}

void ClassLoadingProbe::onClassUnload(long tag) {
    if (tag == 0) {
        return;
    }
    LockHolder lock(ourUnloadedClassesLock);
    ourUnloadedClassStrIDs.push(static_cast<int>(tag));
}

void ClassLoadingProbe::flushUnloadedClassesToDB() {
    ZVector<int> taken;
    takeUnloadedClasses(&taken);
    for (int i = 0; i < taken.getSize(); i++) {
        createRow(nullptr, taken[i], ourDB->stringPool->getDBIndex("unloaded", true));
    }
}
