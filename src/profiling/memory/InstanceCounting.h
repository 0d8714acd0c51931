#pragma once

#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"
#include "db/DB.h"
#include "db/RowSet.h"

#include <jni.h>

// Number and bytes of the instances of one class.
struct SizeAndCount {
    int count;
    long size;
};

// InstanceCounting counts live instances and shallow sizes by class, when a client asks for the
// table. A class keeps its row over all counts: its number is its tag in ourJVMTI4. Gathering
// happens at construction, outside ourLock, and stops the JVM for one walk over the heap;
// updateDatabase then runs under the lock.
class InstanceCounting {
public:
    enum Objects { WALKS_ITSELF, ARE_TOLD };

    // Gathers only if the mask selects `instancecounts` and db is ourDB. The objects may be told by
    // somebody who walks over the heap anyway: each walk makes a JVM give identity hashes.
    InstanceCounting(JNIEnv* env, DB* db, int tableMask, Objects objects = WALKS_ITSELF);
    ~InstanceCounting();
    InstanceCounting(const InstanceCounting&) = delete;
    InstanceCounting& operator=(const InstanceCounting&) = delete;

    // Brings `instancecounts` up to date with what was gathered: names of new classes, and the
    // counts that have changed, down to 0. Nothing if nothing was gathered. Caller holds ourLock.
    void updateDatabase();
    // The names alone: no other count tells them.
    void storeNewClasses();
    // For addObject; 0 for a class that is not counted.
    static long numberOf(jclass type);

    // The parts of gathering. A class that was not counted before:
    void addClass(int classNumber, const ZString& name);
    // Deletes the rows of classes that are not among these: the JVM has unloaded them. Caller holds
    // ourLock, and has asked for the loaded classes under it.
    static void deleteUnloadedClasses(const RowSet& loaded);
    // Makes room for classes up to this number; objects of classes above it are not counted.
    void beginCounting(int highestClassNumber);
    // Adds an object of a class. Runs on the VM thread at a safepoint: it allocates nothing and
    // throws nothing.
    void addObject(long classNumber, long size) noexcept {
        if (classNumber > 0 && classNumber < countCapacity) {
            counts[classNumber].count++;
            counts[classNumber].size += size > 0 ? size : 0;
        }
    }

private:
    void gatherClassInstanceStatistics(JNIEnv* env, Objects objects);
    void tagClasses(JNIEnv* env);
    // The number of the class, which may be a new one.
    int tagClass(jclass type);

    SizeAndCount* counts; // by class number, null until gathered
    int countCapacity;
    ZVector<int> newClasses;
    ZVectorSafe<ZString> newNames;
};
