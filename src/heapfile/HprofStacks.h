#pragma once

#include "heapfile/HprofRecords.h"
#include "heapfile/MappedFile.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

// Stacks of the threads in an HPROF file as text. The records outside of the heap are read again
// when the first stack is asked for, so that a heap without that question pays nothing for them.
class HprofStacks {
public:
    explicit HprofStacks(const MappedFile& mappedFile) : file(mappedFile) {}

    // Texts of a trace's frames, top first; none for a trace that the file doesn't hold.
    std::vector<std::string> stack(uint32_t traceSerial);

private:
    const std::string& textOf(uint64_t frameId);

    const MappedFile& file;
    std::mutex lock; // guards all below
    bool isRead = false;
    std::unique_ptr<HprofRecords> records;
    std::unordered_map<uint64_t, std::string> texts; // by frame: threads share them
};
