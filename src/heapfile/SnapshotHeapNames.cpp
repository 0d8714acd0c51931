#include "db/DB.h"
#include "heapfile/HeapText.h"
#include "heapfile/SnapshotHeapSections.h"

#include <cstring>
#include <map>

std::string SnapshotHeapSections::frameText(DB& db, int frame) const {
    const FrameRecord* record = frame > 0 ? db.frameTable->getRecord(frame, false) : nullptr;
    const MethodRecord* method =
        record && record->method > 0 ? db.methodTable->getRecord(record->method, false) : nullptr;
    if (!method) {
        return "";
    }
    auto text = [&](int id) {
        const char* chars = db.stringPool->getText(id);
        return chars ? cleanUtf8(reinterpret_cast<const uint8_t*>(chars), strlen(chars), 1024)
                     : std::string("?");
    };
    return text(method->classNameStrID) + "." + text(method->methodNameStrID);
}

void SnapshotHeapSections::addRoots(DB& db) {
    std::map<int, int> threadByNumber;
    std::map<std::pair<int, int>, int> lineOfFrame;
    std::map<int, uint32_t> textOfFrame;
    for (const RootNote& note : rootNotes) {
        HeapRoot root{note.row, note.kind == 0 ? HEAP_ROOT_OTHER : note.kind, -1, -1};
        if (note.trn != 0 || note.threadRow != 0) {
            auto added = threadByNumber.emplace(note.trn, static_cast<int>(model.threads.size()));
            root.thread = added.first->second;
            if (added.second) {
                model.threads.push_back({static_cast<uint32_t>(note.trn), note.threadRow, {}});
            }
            HeapThread& thread = model.threads[static_cast<size_t>(root.thread)];
            auto line = lineOfFrame.emplace(std::make_pair(root.thread, note.frame),
                                            static_cast<int>(thread.stack.size()));
            if (line.second && note.frame > 0) {
                auto known = textOfFrame.try_emplace(
                    note.frame, static_cast<uint32_t>(model.frameTexts.size()));
                if (known.second) {
                    model.frameTexts.push_back(frameText(db, note.frame));
                }
                thread.stack.push_back(known.first->second);
            }
            root.frame = note.frame > 0 ? line.first->second : -1;
        }
        model.roots.push_back(root);
    }
    for (size_t i = 0; i < notes.size(); i++) {
        if (!notes[i].hasLoader) {
            model.roots.push_back({model.classes[i].row, HEAP_ROOT_SYSTEM_CLASS, -1, -1});
        }
    }
}

void SnapshotHeapSections::resolveNames(DB& db) {
    auto text = [&](int id) {
        const char* chars = db.stringPool->getText(id);
        return chars ? cleanUtf8(reinterpret_cast<const uint8_t*>(chars), strlen(chars), 1024)
                     : "<name " + std::to_string(id) + ">";
    };
    for (size_t i = 0; i < notes.size(); i++) {
        const ClassNote& note = notes[i];
        HeapClass& type = model.classes[i];
        type.name = sourceClassName(text(note.nameId));
        type.superClass = noteOfRow.get(note.superRow);
        type.elementType = arrayElementType(type.name);
        for (const ClassNote::Field& field : note.fields) {
            if (field.isStatic) {
                type.statics.push_back({text(field.nameId), field.type, 0});
            } else {
                type.fields.push_back({text(field.nameId), field.type});
            }
        }
    }
    model.indexClasses();
    addRoots(db);
}
