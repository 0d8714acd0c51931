#pragma once

#include "core/ground/ZString.h"

// Home directory of the real user; "?" if there is none.
ZString getUserHome();

// Makes every directory of the path, those that are not there for this user alone. Failures are
// ignored.
void mkdirs(const ZString& path);

// Makes /tmp/vdk-<uid>, for a user without a home that can be written to. Empty if another user
// could write there, or has made it.
ZString makePrivateDirectory();

// Reads the whole file at `path`. False if it can't be opened or read.
bool readFile(const ZString& path, ZString* content);

// Reads a file that another process of this user left for this one: a regular file, no link, owned
// by the effective user or root, at most 64 KB. False, with errno or 0, for anything else.
bool readPrivateFile(const ZString& path, ZString* content);

// The content of the file `path`, or of the file defaultName in the configuration directory when
// path is empty; the fallback if that can't be opened. A missing file is no error, even when the
// user named it.
ZString readConfigFromFile(const ZString& path, const char* defaultName, const char* fallback);
