#pragma once

#include "LogLines.h"
#include "MemoryWriter.h"
#include "db/DB.h"
#include "db/Progress.h"

#include <string>

// "01 02 FF": bytes as text, for comparing by eye.
std::string hex(const std::string& bytes);
// The bytes of a text like "01 02 FF"; blanks and newlines separate.
std::string bytesOf(const char* hexText);
// A number as four little-endian bytes.
std::string intBytes(int value);

// A database with a few rows in every table, deleted ones among them, and a user table.
void fillSample(DB& db);

// Writes one table with the rows that came behind the stamp.
std::string tableOf(AbstractTable& table, int stamp = 0);
// Writes all tables as a snapshot's table stream.
std::string streamOf(DB& db);
// Writes the selected tables as an agent sends them, with the end mark.
std::string socketStreamOf(DB& db, int mask, const int* stamps);
