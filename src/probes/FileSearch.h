#pragma once

#include "core/ground/ZString.h"

// FileSearch: class files in folders.
class FileSearch {
public:
    static bool isDirectory(const ZString& path);
    // Pushes the paths of the class of a slashed name below the folder, and of the classes nested
    // in it, in the order of their names. A missing folder has none.
    static void findClasses(const ZString& directory, const ZString& classPath,
                            ZVectorSafe<ZString>* files);
};
