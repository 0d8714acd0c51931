#pragma once

#include "db/AbstractWriter.h"

#include <string>
#include <vector>

// Collects what is written, and the sizes in which it was flushed.
class MemoryWriter : public AbstractWriter {
public:
    explicit MemoryWriter(int capacity = 4096, bool with32BitOIDs = true)
        : AbstractWriter(capacity, with32BitOIDs, -1) {}
    void flush() override {
        if (used > 0) {
            pieces.push_back(used);
        }
        bytes.append(reinterpret_cast<char*>(buffer), static_cast<size_t>(used));
        used = 0;
    }
    // Everything written so far.
    const std::string& take() {
        flush();
        return bytes;
    }

    std::string bytes;
    std::vector<int> pieces;
};
