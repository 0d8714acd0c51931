#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The records of an HPROF file outside of its heap dumps: strings, classes' names, threads and
// their stacks, and where the heap dumps are. Reads only the heads of records and what small ones
// hold; keeps offsets, not copies.
class HprofRecords {
public:
    struct Segment {
        uint64_t from;
        uint64_t to;
    };

    static bool isHprof(const uint8_t* bytes, uint64_t size);
    // Reads all records. Throws HeapReadError for a wrong header, and for a file without the dump
    // of that number (from 1). What is cut or damaged is told in remarks.
    HprofRecords(const uint8_t* fileBytes, uint64_t fileSize, int dumpNumber,
                 std::vector<std::string>& remarks);

    uint32_t idSize() const { return identifierSize; }
    const std::string& formatName() const { return format; }
    uint64_t captureTimeMs() const { return timeMs; }
    // Stretches of the chosen dump that hold heap records, in ascending order.
    const std::vector<Segment>& segments() const { return heapSegments; }
    // Text of a string record, empty if there is none.
    std::string string(uint64_t id) const;
    // Name of a loaded class by its identifier, in source form; empty if not known.
    std::string className(uint64_t classId) const;
    // What a frame record says: identifiers of texts, the class's serial number, the line.
    struct Frame {
        uint64_t methodName;
        uint64_t fileName;
        uint32_t classSerial;
        int32_t line; // as in the file: 0 and below for none
    };
    // False if there is no such record.
    bool frame(uint64_t frameId, Frame& result) const;
    std::string frameText(const Frame& frame) const;
    // Identifiers of the frames of a trace record, top first.
    std::vector<uint64_t> trace(uint32_t traceSerial) const;

private:
    struct StringAt {
        uint64_t id;
        uint64_t offset;
        uint32_t length;
    };
    struct LoadedClass {
        uint64_t classId;
        uint64_t nameId;
        uint32_t serial;
    };
    // A record found again by a number: frames by id, traces by serial.
    struct RecordAt {
        uint64_t key;
        uint64_t offset; // of the record's body
        uint32_t length;
    };

    void readHeader();
    void readRecords(int dumpNumber, std::vector<std::string>& remarks);
    void readSmallRecord(uint8_t tag, uint64_t body, uint64_t length);
    uint64_t endOfHeapRecord(uint8_t tag, uint64_t body, uint64_t length, bool& guessed) const;
    bool recordsReachEnd(uint64_t pos) const;
    uint64_t nextPlausibleRecord(uint64_t from) const;
    std::string damageAt(uint64_t pos, uint8_t tag, bool isKnown, uint64_t length,
                         uint64_t next) const;
    void sortTables();

    const uint8_t* base;
    uint64_t size;
    uint64_t firstRecord = 0;
    uint32_t identifierSize = 0;
    std::string format;
    uint64_t timeMs = 0;
    int dumps = 0;
    std::vector<Segment> heapSegments;
    std::vector<StringAt> strings;
    std::vector<LoadedClass> loaded;
    std::vector<RecordAt> frames;
    std::vector<RecordAt> traces;
    std::vector<std::pair<uint32_t, uint64_t>> classIdsBySerial;
};
