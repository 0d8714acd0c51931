#pragma once

#include <stddef.h>
#include <stdint.h>

// JvmLayout: where the JVM's structures have their fields, from the tables that it exports for
// debuggers. Reads constant data; for any thread.
namespace JvmLayout {

// A function or variable that the library of the JVM exports; null if there is none.
void* findExported(const char* name);

const ptrdiff_t UNKNOWN = -1;

// Bytes from the begin of a structure to a field; UNKNOWN without it, or beyond 64 KB.
ptrdiff_t offsetOf(const char* type, const char* field);
// Where a static field is; null without it.
const void* addressOf(const char* type, const char* field);
// Bytes of a structure; UNKNOWN without it.
ptrdiff_t sizeOf(const char* type);

} // namespace JvmLayout
