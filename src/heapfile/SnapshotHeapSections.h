#pragma once

#include "db/SnapshotReader.h"
#include "heapfile/HeapModel.h"
#include "offline/AnalysisProgress.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

// The heap sections of a snapshot file, for SnapshotReader: object, class, root, reference and
// primitive records go to an ObjectStorage whose rows are the object numbers of the file. Two
// passes over the mapped records: the first finds objects and the lengths of all lists, the second
// stores the references. Also the closing sections of a file that an analysis wrote.
//
// The input is not trusted: object numbers, list positions and offsets are checked, and memory
// stays in proportion to the bytes of the file. Failures go through ByteReader::fail or as
// HeapReadError, both with the offset.
class SnapshotHeapSections : public HeapSectionReader {
public:
    // All stay the caller's. The reader's input must be the bytes of file from their beginning.
    SnapshotHeapSections(const MappedFile& file, HeapModel& model, AnalysisProgress* progress);

    void readHeapSections(ByteReader& input, const SnapshotHeader& header) override;
    void readClosingSections(ByteReader& input, const SnapshotHeader& header) override;

    // To be called when the tables have been read: names of classes, fields, frames and threads.
    void resolveNames(DB& db);

    bool hasObjects() const { return objectRecords > 0; }
    // The file held the results of an analysis.
    bool hasClosingSections() const { return closingRead; }
    // Class rows as the closing sections list them.

private:
    class Cursor;
    // What the first pass notes about a class, in the order of HeapModel::classes.
    struct ClassNote {
        uint64_t offset;
        int nameId;
        int size;
        int generation;
        int superRow;
        int linkCount = 0; // references of the records 14 and 15
        int nextLink = 0;  // position for the next of them
        bool hasLoader = false;
        std::vector<int> interfaces;
        std::vector<int> staticReferenceNames;
        std::map<int, int> staticIndices; // of records 14, to positions of the list
        struct Field {
            int nameId;
            char type;
            bool isStatic;
        };
        std::vector<Field> fields;
    };
    struct RootNote {
        int row;
        uint32_t kind;
        int trn;
        int threadRow;
        int frame;
        int variable; // name of a local one, 0 if not known
    };

    uint64_t firstPass(uint64_t from);
    void secondPass(uint64_t from, uint64_t to);
    void readObject(Cursor& in, uint8_t tag);
    void readClass(Cursor& in);
    void readFieldLists(Cursor& in, ClassNote& note);
    void readRoot(Cursor& in);
    void skipPrimitives(Cursor& in);
    void storeReference(Cursor& in, uint8_t tag);
    void createClasses(Cursor& in);
    int readRow(Cursor& in, const char* what, bool mayBeNull) const;
    ClassNote* noteOfClass(int row);
    uint64_t inheritedStatics(size_t index) const;
    void readStatics(size_t index);
    static void nameStaticReferences(const ClassNote& note, HeapClass& type,
                                     const std::vector<std::string>& names);
    void addRoots(DB& db);
    void addGenerations(DB& db);
    void addSiteFrames(DB& db);
    // Index in frameTexts of what a frame's method is called.
    uint32_t textOfFrame(DB& db, int frame);
    void readPagedArray(ByteReader& input, int kind);

    const MappedFile& file;
    HeapModel& model;
    AnalysisProgress* progress;
    uint64_t positionsUsed = 0;
    uint64_t mostPositions;
    uint64_t objectRecords = 0;
    uint64_t droppedReferences = 0;
    std::vector<ClassNote> notes;
    RowTable noteOfRow;
    std::vector<RootNote> rootNotes;
    std::set<int> allocatorFrames;
    std::map<int, uint32_t> textOfMethod;
    uint64_t offsetTable = 0; // of the primitive block, 0 if there is none
    bool closingRead = false;
};
