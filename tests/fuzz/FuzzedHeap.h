#pragma once

#include "core/ground/Logger.h"
#include "heapfile/HeapModel.h"
#include "heapfile/MappedFile.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <unistd.h>

// What the targets that read heap files share.

// A file of this content, mapped; it has no name any more.
inline std::shared_ptr<MappedFile> mappedInput(const std::string& contents) {
    Logger::setSink([](const char*) {});
    char name[] = "/tmp/vdk-fuzz-XXXXXX";
    const int file = mkstemp(name);
    if (file < 0 || write(file, contents.data(), contents.size()) < 0) {
        abort();
    }
    close(file);
    auto mapped = std::make_shared<MappedFile>(name, "");
    unlink(name);
    return mapped;
}

// Touches all that the reports read of an object. A long list without values takes no memory and
// costs time only.
inline void useHeap(const HeapModel& model) {
    std::string text;
    uint64_t bits = 0;
    for (int row = 1; row <= model.rowCount(); row++) {
        for (int i = 0; i < std::min(model.storage->getRefCount(row), 1000); i++) {
            if (model.storage->getRef(row, i) < 0 ||
                model.storage->getRef(row, i) > model.rowCount()) {
                abort();
            }
            model.referenceName(row, i);
        }
        model.stringValue(row, text, 100);
        model.primitiveField(row, "value", bits);
        model.classNameOf(row);
    }
}
