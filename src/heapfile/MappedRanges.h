#pragma once

// Which file is mapped where, for the handler of SIGBUS: the pages of a file that was cut while it
// is mapped are gone. Any thread may note and forget; mappedFileAt is safe in a signal handler.
// Beyond the first 16 mappings at a time there is no name.
void noteMapping(const void* address, unsigned long length, const char* path);
void forgetMapping(const void* address);

// Path of the file whose mapping holds the address, at most its first 1023 bytes; null if none is
// known.
const char* mappedFileAt(const void* address);
