#pragma once

#include "db/AbstractWriter.h"
#include "db/DB.h"

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

// "01 02 FF": bytes as text, for comparing by eye.
std::string hex(const std::string& bytes);
// The bytes of a text like "01 02 FF"; blanks and newlines separate.
std::string bytesOf(const char* hexText);
// A number as four little-endian bytes.
std::string intBytes(int value);

// The lines that the logger wrote since the last call.
std::string takeLog();

// A database with a few rows in every table, deleted ones among them, and a user table.
void fillSample(DB& db);

// Writes all tables as a snapshot's table stream.
std::string streamOf(DB& db);
// Writes the selected tables as an agent sends them, with the end mark.
std::string socketStreamOf(DB& db, int mask, const int* stamps);
