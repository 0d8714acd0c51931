// Databases made by hand: methods, frames, threads and their times.
#pragma once

#include "db/DB.h"

#include <string>

class DbBuilder {
public:
    DbBuilder() : db(-1, -1) {}

    int text(const std::string& characters) {
        return db.stringPool->getDBIndex(characters.c_str(), true);
    }

    int method(const std::string& className, const std::string& name, int flags = 0) {
        int index = db.methodTable->nextIndex();
        MethodRecord* record = db.methodTable->getRecord(index, true);
        record->classNameStrID = text(className);
        record->methodNameStrID = text(name);
        record->parametersStrID = text("()");
        record->flags = flags;
        record->stamp = db.currentStamp;
        return index;
    }

    // A frame of the method below the parent; 0 is the root.
    int frame(int parent, int method) {
        int index = db.frameTable->nextIndex();
        FrameRecord* record = db.frameTable->getRecord(index, true);
        record->parent = parent;
        record->method = method;
        record->stamp = db.currentStamp;
        FrameRecord* above = db.frameTable->getRecord(parent, true);
        record->nextSibling = above->firstChild;
        above->firstChild = index;
        above->stamp = db.currentStamp;
        return index;
    }

    // The key of the new thread.
    int thread(const std::string& name) {
        int index = db.threadTable->nextIndex();
        ThreadRecord* record = db.threadTable->getRecord(index, true);
        record->nameStrID = text(name);
        record->groupStrID = text("main");
        record->tfiThreadIndex = index;
        record->trn = index + 2;
        record->stamp = db.currentStamp;
        return index;
    }

    // Time inside the frame, callees included; the row's index.
    int time(int thread, int frame, long ns, long count = 0) {
        int tfi = db.threadFrameIndex->getTFI(thread, frame, true);
        CPUProfilingRecord* record = db.cpuProfilingTable->getRecord(tfi, true);
        record->timeNs = ns;
        record->count = count;
        record->stamp = db.currentStamp;
        return tfi;
    }

    DB db;
};
