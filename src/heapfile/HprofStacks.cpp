#include "heapfile/HprofStacks.h"

#include "heapfile/HeapReadError.h"

std::vector<std::string> HprofStacks::stack(uint32_t traceSerial) {
    const std::lock_guard<std::mutex> asking(lock);
    if (!isRead) {
        isRead = true;
        std::vector<std::string> remarks; // were told when the heap was read
        try {
            records = std::make_unique<HprofRecords>(file.data(), file.size(), 1, remarks);
        } catch (const HeapReadError&) {
            records = nullptr;
        }
    }
    std::vector<std::string> result;
    if (!records) {
        return result;
    }
    for (uint64_t frameId : records->trace(traceSerial)) {
        result.push_back(textOf(frameId));
    }
    return result;
}

const std::string& HprofStacks::textOf(uint64_t frameId) {
    const auto added = texts.try_emplace(frameId);
    HprofRecords::Frame frame = {};
    if (added.second) {
        added.first->second =
            records->frame(frameId, frame) ? records->frameText(frame) : std::string("?");
    }
    return added.first->second;
}
