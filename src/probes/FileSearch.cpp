#include "probes/FileSearch.h"

#include "core/ground/Logger.h"

#include <dirent.h>

bool FileSearch::isDirectory(const ZString& path) {
    const ZString folder = path.endsWith("/") ? path : path + "/";
    DIR* const opened = opendir(folder.c_str());
    if (opened == nullptr) {
        return false;
    }
    closedir(opened);
    return true;
}

void FileSearch::findClasses(const ZString& directory, const ZString& classPath,
                             ZVectorSafe<ZString>* files) {
    Logger::assertNotNULL(files, VDK_HERE);
    const int slash = classPath.lastIndexOf('/');
    const ZString folder = directory + "/" + classPath.substring(0, slash + 1);
    const ZString fileName = classPath.substring(slash + 1) + ".class";
    const ZString nestedPrefix = classPath.substring(slash + 1) + "$";
    DIR* const opened = opendir(folder.c_str());
    if (opened == nullptr) {
        return;
    }
    ZVectorSafe<ZString> found;
    while (const dirent* entry = readdir(opened)) {
        const ZString name(entry->d_name);
        if (name == fileName ||
            (name.startsWith(nestedPrefix.c_str()) && name.endsWith(".class"))) {
            found.push(folder + name);
        }
    }
    closedir(opened);
    found.sort();
    for (int i = 0; i < found.getSize(); i++) {
        files->push(found[i]);
    }
}
