// Files where other users can make files too: a folder for temporary files, or whatever a container
// holds. What is opened cannot block, no link is followed that leads out of the process's own root
// folder, and nothing is believed before the opened file has told its owner and kind.
#pragma once

#include "client/attach/ProcFs.h"
#include "client/console/Descriptor.h"

#include <functional>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace vdk {

// The root folder of a process, through which its files are reached. Invalid (and errno tells why)
// where the process may not be looked into.
Descriptor openRoot(const ProcFs& processes, int pid);

// The same, or this process's own root where it may not: the process sees the same files then, or
// what is looked for is not found.
Descriptor openRootOrOwn(const ProcFs& processes, int pid);

// A folder below the root folder, by the path that the process has for it.
Descriptor openFolder(const Descriptor& root, const std::string& path);

// The name is no link, and the file belongs to the user or to root.
bool belongsTo(const struct stat& info, uid_t uid);

// Bytes of a plain file of the user or of root, at most `limit`, that has no second name. Nothing
// for any other file, and if it cannot be read.
std::optional<std::string> readOwnedFile(const Descriptor& folder, const std::string& name,
                                         uid_t uid, size_t limit = 1 << 20);

// The first `limit` bytes of a plain file below the root folder, whoever owns it.
std::optional<std::string> readPlainFile(const Descriptor& root, const std::string& path,
                                         size_t limit);

// The last `limit` bytes of a file as readOwnedFile takes it.
std::optional<std::string> readOwnedTail(const Descriptor& folder, const std::string& name,
                                         uid_t uid, size_t limit);

// Names of the folder's entries until the visitor gives false; at most 65 536.
void eachEntry(const Descriptor& folder, const std::function<bool(const char*)>& visitor);

} // namespace vdk
