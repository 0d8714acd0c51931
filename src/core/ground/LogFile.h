#pragma once

#include "core/ground/ZString.h"

#include <cstdio>

// LogFile: the file of the log, bounded in size, and its older neighbours, bounded in number.
//
// A file that has reached the limit of the option `loglimit` is renamed to <name>.1, in place of an
// older one of that name, and an empty one takes its place: a process keeps the last one to two
// limits of its lines. The stream stays the same, so a thread that writes meanwhile loses nothing.
namespace LogFile {

// Opens the log of this process in the directory, which is made if need be, and removes the logs of
// processes that ended long ago. Null if it cannot be had; a link in the file's place is not
// followed.
FILE* open(const ZString& directory, ZString* path);

// To be told of each line that went to the log. Allocates nothing.
void wrote(FILE* log, int bytes) noexcept;

} // namespace LogFile
