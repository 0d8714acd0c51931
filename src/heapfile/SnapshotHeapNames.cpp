#include "db/DB.h"
#include "heapfile/HeapText.h"
#include "heapfile/SnapshotHeapSections.h"

#include <cstring>
#include <map>
#include <set>

namespace {

// Stands for the class below the frame that allocated an object.
constexpr char ALLOCATED_CLASS[] = "<<init>>";

std::string textOf(DB& db, int id, const char* unknown) {
    const char* chars = db.stringPool->getText(id);
    return chars ? cleanUtf8(reinterpret_cast<const uint8_t*>(chars), strlen(chars), 1024)
                 : std::string(unknown);
}

const FrameRecord* frameRecord(DB& db, int frame) {
    const FrameRecord* record = frame > 0 ? db.frameTable->getRecord(frame, false) : nullptr;
    return record && record->stamp > 0 ? record : nullptr;
}

const MethodRecord* methodOf(DB& db, const FrameRecord* frame) {
    return frame && frame->method > 0 ? db.methodTable->getRecord(frame->method, false) : nullptr;
}

bool isHidden(DB& db, const MethodRecord* method) {
    const char* name = method ? db.stringPool->getText(method->methodNameStrID) : nullptr;
    return !name || (method->flags & METHOD_HIDDEN) != 0 || strcmp(name, ALLOCATED_CLASS) == 0;
}

} // namespace

uint32_t SnapshotHeapSections::textOfFrame(DB& db, int frame) {
    const FrameRecord* record = frameRecord(db, frame);
    const MethodRecord* method = methodOf(db, record);
    auto known = textOfMethod.try_emplace(method ? record->method : 0,
                                          static_cast<uint32_t>(model.frameTexts.size()));
    if (known.second) {
        model.frameTexts.push_back(method ? textOf(db, method->classNameStrID, "?") + "." +
                                                textOf(db, method->methodNameStrID, "?")
                                          : "");
    }
    return known.first->second;
}

void SnapshotHeapSections::addGenerations(DB& db) {
    db.generationTable->eachRecord([&](int number, const GenerationRecord& record) {
        if (record.stamp > 0 && number > 0) {
            model.generations.push_back({number, textOf(db, record.descriptionStrID, "?"),
                                         static_cast<int64_t>(record.uptimeMs)});
        }
    });
}

// The frames that allocated recorded objects, and their callers. A parent always has a lower number
// than its children; a row that breaks this has none.
void SnapshotHeapSections::addSiteFrames(DB& db) {
    std::set<int>& frames = allocatorFrames;
    for (auto next = frames.rbegin(); next != frames.rend(); ++next) {
        const FrameRecord* record = frameRecord(db, *next);
        if (record && record->parent > 0 && record->parent < *next) {
            frames.insert(record->parent); // behind the iterator's way
        }
    }
    for (int frame : frames) {
        const FrameRecord* record = frameRecord(db, frame);
        if (record) {
            const int parent = record->parent > 0 && record->parent < frame ? record->parent : 0;
            model.siteFrames.push_back(
                {frame, parent, textOfFrame(db, frame), isHidden(db, methodOf(db, record))});
        }
    }
}

void SnapshotHeapSections::addRoots(DB& db) {
    // Threads that the agent does not number, virtual ones among them, are told by their objects.
    std::map<std::pair<int, int>, int> threadByNumber;
    std::map<std::pair<int, int>, int> lineOfFrame;
    std::map<int, int> textOfVariable;
    for (const RootNote& note : rootNotes) {
        HeapRoot root{note.row, note.kind == 0 ? HEAP_ROOT_OTHER : note.kind, -1, -1};
        if (note.trn != 0 || note.threadRow != 0) {
            auto added = threadByNumber.emplace(std::make_pair(note.trn, note.threadRow),
                                                static_cast<int>(model.threads.size()));
            root.thread = added.first->second;
            if (added.second) {
                model.threads.push_back({static_cast<uint32_t>(note.trn), note.threadRow, 0, {}});
            }
            HeapThread& thread = model.threads[static_cast<size_t>(root.thread)];
            auto line = lineOfFrame.emplace(std::make_pair(root.thread, note.frame),
                                            static_cast<int>(thread.stack.size()));
            if (line.second && note.frame > 0) {
                thread.stack.push_back(textOfFrame(db, note.frame));
            }
            root.frame = note.frame > 0 ? line.first->second : -1;
        }
        if (note.variable > 0) {
            auto known = textOfVariable.try_emplace(note.variable,
                                                    static_cast<int>(model.frameTexts.size()));
            if (known.second) {
                model.frameTexts.push_back(textOf(db, note.variable, "?"));
            }
            root.name = known.first->second;
        }
        model.roots.push_back(root);
    }
    for (size_t i = 0; i < notes.size(); i++) {
        if (!notes[i].hasLoader) {
            model.roots.push_back({model.classes[i].row, HEAP_ROOT_SYSTEM_CLASS, -1, -1});
        }
    }
}

// Bytes of static primitives that a class inherits: they stand ahead of its own in its region.
uint64_t SnapshotHeapSections::inheritedStatics(size_t index) const {
    std::set<int> visited;
    std::vector<int> open;
    const auto push = [&](const ClassNote& note) {
        open.push_back(noteOfRow.get(note.superRow));
        for (int row : note.interfaces) {
            open.push_back(noteOfRow.get(row));
        }
    };
    uint64_t bytes = 0;
    for (push(notes[index]); !open.empty();) {
        const int next = open.back();
        open.pop_back();
        if (next < 0 || !visited.insert(next).second) {
            continue;
        }
        const ClassNote& note = notes[static_cast<size_t>(next)];
        for (const ClassNote::Field& field : note.fields) {
            bytes += field.isStatic ? primitiveTypeSize(field.type) : 0;
        }
        push(note);
    }
    return bytes;
}

void SnapshotHeapSections::readStatics(size_t index) {
    HeapClass& type = model.classes[index];
    const auto region = static_cast<uint64_t>(model.storage->getPrimitiveDataPosition(type.row));
    uint64_t at = region == 0 ? 0 : region + inheritedStatics(index);
    for (HeapStaticField& field : type.statics) {
        const uint32_t bytes = primitiveTypeSize(field.type);
        if (at == 0 || bytes == 0 || at > file.size() || file.size() - at < bytes) {
            continue;
        }
        field.bits = model.element(file.data() + at, 0, field.type);
        at += bytes;
    }
}

// The file numbers static references among all fields of the class and does not tell which is
// which: the order does, where none of them is null.
void SnapshotHeapSections::nameStaticReferences(const ClassNote& note, HeapClass& type,
                                                const std::vector<std::string>& names) {
    if (note.staticIndices.size() != names.size()) {
        return;
    }
    size_t at = 0;
    for (const auto& entry : note.staticIndices) {
        type.referenceNames[static_cast<size_t>(entry.second)] = names[at++];
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
        std::vector<std::string> references;
        for (int id : note.staticReferenceNames) {
            references.push_back(text(id));
        }
        nameStaticReferences(note, type, references);
        for (const ClassNote::Field& field : note.fields) {
            if (field.isStatic) {
                type.statics.push_back({text(field.nameId), field.type, 0});
            } else {
                type.fields.push_back({text(field.nameId), field.type});
            }
        }
        readStatics(i);
    }
    model.indexClasses();
    addRoots(db);
    addGenerations(db);
    addSiteFrames(db);
}
