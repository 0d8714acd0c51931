#pragma once

// VDK_HERE: the place of a check or an entry as two arguments, source file and line, for
// assertions, guards and errors. The file's name alone: no path of the machine that built the
// library.
#define VDK_HERE __FILE_NAME__, __LINE__
