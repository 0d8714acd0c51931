// Databases made by hand: methods, frames, threads and their times.
#pragma once

#include "db/DB.h"

#include <map>
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

    // The frame of a stack like "A.main;A.work". Methods of the package `hidden` are hidden, those
    // of `java` filtered.
    int stack(const std::string& methodsFromTheRoot) {
        int& index = frames[methodsFromTheRoot];
        if (index == 0) {
            size_t cut = methodsFromTheRoot.rfind(';') + 1;
            std::string name = methodsFromTheRoot.substr(cut);
            int flags = (name.find("hidden.") == 0 ? METHOD_HIDDEN : 0) |
                        (name.find("waits.") == 0 ? METHOD_WALL_TIME : 0) |
                        (name.find("java.") == 0 ? METHOD_FILTERED : 0);
            int& known = methods[name];
            if (known == 0) {
                size_t dot = name.rfind('.');
                known = method(name.substr(0, dot), name.substr(dot + 1), flags);
            }
            index = frame(cut == 0 ? 0 : stack(methodsFromTheRoot.substr(0, cut - 1)), known);
        }
        return index;
    }

    // Time of a thread, by its name, in a stack; the row's index.
    int sample(const std::string& threadName, const std::string& methodsFromTheRoot, long ns) {
        int& key = threads[threadName];
        key = key == 0 ? thread(threadName) : key;
        return time(key, stack(methodsFromTheRoot), ns);
    }

    // A part of that time, in one line.
    void line(const std::string& threadName, const std::string& methodsFromTheRoot, int number,
              long ns) {
        if (lines == nullptr) {
            lines = db.getUserTable(db.createUserTableByDescription(
                "Sampled Lines\n4\nthread\n0\nframe\n0\nline\n0\ntime_ns\n1\n"));
        }
        int* const row = lines->getRecord(lines->nextIndex(), true);
        lines->setIntColumn(row, 0, threads[threadName] + 2);
        lines->setIntColumn(row, 1, stack(methodsFromTheRoot));
        lines->setIntColumn(row, 2, number);
        lines->setLongColumn(row, 3, ns);
        row[0] = db.currentStamp;
    }

    DB db;

private:
    UserTable* lines = nullptr;
    std::map<std::string, int> frames, methods, threads;
};
