// The index of a heap, behind the part that names the heap file: a dump is made once, and its
// identity is put in front of each input. Any checksum is taken, as the fuzzer can't find the right
// one.

#include "../unit/heapfile/HprofWriter.h"
#include "core/ground/Logger.h"
#include "heapfile/HeapIndexFile.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/IndexSections.h"
#include "offline/Reachability.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

void append(std::string& to, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; i++) {
        to += static_cast<char>(value >> (8 * i));
    }
}

std::string header(const MappedFile::Identity& identity) {
    std::string text("VDK heap index\n\x1a");
    append(text, 0x01020304, 4);
    append(text, 7, 4); // version
    append(text, identity.size, 8);
    append(text, identity.modifiedNs, 8);
    append(text, identity.headDigest, 8);
    append(text, 1, 4); // dump
    return text;
}

void checkRow(const HeapModel& model, int row) {
    if (row < 0 || row > model.rowCount()) {
        abort();
    }
}

// Touches all that the reports read of an object.
void useHeap(const AnalyzedHeap& heap) {
    const HeapModel& model = *heap.model;
    std::string text;
    uint64_t bits = 0;
    for (int row = 1; row <= model.rowCount(); row++) {
        for (int i = 0; i < model.storage->getRefCount(row) && i < 1000; i++) {
            checkRow(model, model.storage->getRef(row, i));
            model.referenceName(row, i);
        }
        const RefTable& referrers = *model.storage->getBackwardReferences();
        for (int i = 0; i < referrers.getCount(row) && i < 1000; i++) {
            checkRow(model, referrers.getRef(row, i));
        }
        checkRow(model, model.storage->getDominator(row));
        model.storage->getRetainedSize(row);
        model.storage->getGeneration(row);
        isMarked(heap.reachedBits.data(), row);
        model.stringValue(row, text, 100);
        model.primitiveField(row, "value", bits);
        model.rowOfId(model.idOf(row));
        model.classNameOf(row);
    }
    for (const HeapRoot& root : model.roots) {
        checkRow(model, root.row);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    static const TemporaryFile dump(sampleHeap(8).out);
    static const std::shared_ptr<MappedFile> mapped = [] {
        Logger::setSink([](const char*) {});
        IndexSections::ourTakesAnyChecksum = true;
        return std::make_shared<MappedFile>(dump.path, "");
    }();
    std::string contents = header(mapped->identity());
    contents.append(reinterpret_cast<const char*>(bytes), count);
    const TemporaryFile index(contents);
    AnalyzedHeap heap;
    std::string why;
    if (HeapIndexFile::read(index.path, mapped, 1, heap, why)) {
        try {
            useHeap(heap);
        } catch (const HeapIndexError&) {
            // told when a block comes that is damaged
        }
    } else if (why.find("another") != std::string::npos) {
        abort(); // the header above is out of date: nothing would be tested
    }
    return 0;
}
