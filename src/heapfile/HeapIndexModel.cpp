#include "heapfile/HeapIndexModel.h"

#include <cstring>

namespace {

constexpr uint64_t MOST_OBJECTS = 0x3ffffff0; // that a storage takes

void writeClass(IndexOutput& out, const HeapClass& type) {
    out.u32(static_cast<uint32_t>(type.row));
    out.u32(static_cast<uint32_t>(type.superClass + 1));
    out.u32(static_cast<uint8_t>(type.elementType));
    out.text(type.name);
    out.u64(static_cast<uint64_t>(type.instanceSize));
    out.u32(static_cast<uint32_t>(type.fields.size()));
    for (const HeapField& field : type.fields) {
        out.text(field.name);
        out.u32(static_cast<uint8_t>(field.type));
    }
    out.u32(static_cast<uint32_t>(type.statics.size()));
    for (const HeapStaticField& field : type.statics) {
        out.text(field.name);
        out.u32(static_cast<uint8_t>(field.type));
        out.u64(field.bits);
    }
    out.u32(static_cast<uint32_t>(type.referenceNames.size()));
    for (const std::string& name : type.referenceNames) {
        out.text(name);
    }
}

char readTypeLetter(IndexInput& in, bool mayBeNone) {
    auto letter = static_cast<char>(in.u32AtMost(127, "type letter"));
    if (letter == 0 ? !mayBeNone : !strchr("LBCDFIJSZ", letter)) {
        in.fail("unknown type letter");
    }
    return letter;
}

uint32_t readCount(IndexInput& in, uint64_t itemSize, const char* what) {
    uint32_t count = in.u32();
    in.expect(count, itemSize, what);
    return count;
}

HeapClass readClass(IndexInput& in, int objectCount, uint32_t classCount) {
    HeapClass type;
    type.row = static_cast<int>(in.u32AtMost(static_cast<uint64_t>(objectCount) - 1, "class row"));
    if (type.row == 0) {
        in.fail("a class has the row 0");
    }
    type.superClass = static_cast<int>(in.u32AtMost(classCount, "superclass")) - 1;
    type.elementType = readTypeLetter(in, true);
    type.name = in.text();
    type.instanceSize = static_cast<int64_t>(in.u64());
    for (uint32_t n = readCount(in, 8, "fields"); n > 0; n--) {
        std::string name = in.text();
        type.fields.push_back({std::move(name), readTypeLetter(in, false)});
    }
    for (uint32_t n = readCount(in, 16, "static fields"); n > 0; n--) {
        std::string name = in.text();
        char letter = readTypeLetter(in, false);
        type.statics.push_back({std::move(name), letter, in.u64()});
    }
    for (uint32_t n = readCount(in, 4, "names of references"); n > 0; n--) {
        type.referenceNames.push_back(in.text());
    }
    return type;
}

void writeSizing(IndexOutput& out, const HeapSizing& sizing) {
    out.u32(sizing.fromJvm ? 1 : 0);
    for (uint32_t bytes : {sizing.reference, sizing.header, sizing.arrayHeader, sizing.alignment}) {
        out.u32(bytes);
    }
    for (uint64_t count :
         {sizing.arrays, sizing.exactArrays, sizing.classes, sizing.agreeingClasses}) {
        out.u64(count);
    }
}

void readSizing(IndexInput& in, HeapSizing& sizing) {
    sizing.fromJvm = in.u32AtMost(1, "origin of sizes") == 1;
    for (uint32_t* bytes :
         {&sizing.reference, &sizing.header, &sizing.arrayHeader, &sizing.alignment}) {
        *bytes = in.u32();
    }
    for (uint64_t* count :
         {&sizing.arrays, &sizing.exactArrays, &sizing.classes, &sizing.agreeingClasses}) {
        *count = in.u64();
    }
}

void writeOrigins(IndexOutput& out, const HeapModel& model) {
    out.u32(static_cast<uint32_t>(model.generations.size()));
    for (const HeapGeneration& generation : model.generations) {
        out.u32(static_cast<uint32_t>(generation.number));
        out.text(generation.name);
        out.u64(static_cast<uint64_t>(generation.uptimeMs));
    }
    out.u32(static_cast<uint32_t>(model.siteFrames.size()));
    for (const HeapSiteFrame& site : model.siteFrames) {
        out.u32(static_cast<uint32_t>(site.frame));
        out.u32(static_cast<uint32_t>(site.parent));
        out.u32(site.text);
        out.u32(site.hidden ? 1 : 0);
    }
}

void readThreadsAndRoots(IndexInput& in, HeapModel& model) {
    const uint64_t lastRow = static_cast<uint64_t>(model.objectCount) - 1;
    const uint64_t lastText = model.frameTexts.empty() ? 0 : model.frameTexts.size() - 1;
    for (uint32_t n = readCount(in, 16, "threads"); n > 0; n--) {
        HeapThread thread = {};
        thread.serial = in.u32();
        thread.row = static_cast<int>(in.u32AtMost(lastRow, "row of a thread"));
        thread.trace = in.u32();
        const uint32_t frames = readCount(in, 4, "frames");
        if (frames > 0 && model.frameTexts.empty()) {
            in.fail("frames without texts");
        }
        for (uint32_t f = frames; f > 0; f--) {
            thread.stack.push_back(in.u32AtMost(lastText, "text of a frame"));
        }
        model.threads.push_back(std::move(thread));
    }
    for (uint32_t n = readCount(in, 20, "roots"); n > 0; n--) {
        HeapRoot root;
        root.row = static_cast<int>(in.u32AtMost(lastRow, "row of a root"));
        root.kind = in.u32();
        root.thread = static_cast<int>(in.u32AtMost(model.threads.size(), "thread of a root")) - 1;
        root.frame = static_cast<int>(in.u32AtMost(0x7ffffffe, "frame of a root")) - 1;
        root.name =
            static_cast<int>(in.u32AtMost(model.frameTexts.size(), "variable of a root")) - 1;
        if (root.row == 0) {
            in.fail("a root has the row 0");
        }
        model.roots.push_back(root);
    }
}

void readLargeObjects(IndexInput& in, HeapModel& model) {
    const uint64_t lastRow = static_cast<uint64_t>(model.objectCount) - 1;
    int before = 0;
    for (uint32_t n = readCount(in, 12, "large objects"); n > 0; n--) {
        LargeObject object;
        object.row = static_cast<int>(in.u32AtMost(lastRow, "row of a large object"));
        object.size = static_cast<int64_t>(in.u64());
        if (object.row <= before || object.size < HeapModel::LARGEST_STORED) {
            in.fail("large objects are not in order");
        }
        before = object.row;
        model.largeObjects.push_back(object);
    }
}

void readOrigins(IndexInput& in, HeapModel& model) {
    int before = 0;
    for (uint32_t n = readCount(in, 16, "generations"); n > 0; n--) {
        HeapGeneration generation;
        generation.number = static_cast<int>(in.u32AtMost(0x7fffffff, "generation"));
        generation.name = in.text();
        generation.uptimeMs = static_cast<int64_t>(in.u64());
        if (generation.number <= before) {
            in.fail("generations are not in order");
        }
        before = generation.number;
        model.generations.push_back(std::move(generation));
    }
    const uint64_t lastText = model.frameTexts.empty() ? 0 : model.frameTexts.size() - 1;
    before = 0;
    for (uint32_t n = readCount(in, 16, "frames of allocations"); n > 0; n--) {
        HeapSiteFrame site;
        site.frame = static_cast<int>(in.u32AtMost(0x7fffffff, "frame of an allocation"));
        if (site.frame <= before || model.frameTexts.empty()) {
            in.fail("frames of allocations are not in order");
        }
        before = site.frame;
        site.parent = static_cast<int>(
            in.u32AtMost(static_cast<uint64_t>(site.frame) - 1, "caller of an allocation"));
        site.text = in.u32AtMost(lastText, "text of a frame");
        site.hidden = in.u32AtMost(1, "mark of a frame") == 1;
        model.siteFrames.push_back(site);
    }
}

} // namespace

void writeIndexModel(IndexOutput& out, const HeapModel& model) {
    out.u32(model.format == HeapModel::Format::Snapshot ? 1 : 0);
    out.text(model.formatName);
    out.u32(model.idSize);
    out.u64(model.captureTimeMs);
    out.u32(static_cast<uint32_t>(model.objectCount));
    out.u32(static_cast<uint32_t>(model.lastRowWithId));
    writeSizing(out, model.sizing);
    for (const std::vector<std::string>* texts :
         {&model.remarks, &model.notes, &model.frameTexts}) {
        out.u32(static_cast<uint32_t>(texts->size()));
        for (const std::string& text : *texts) {
            out.text(text);
        }
    }
    out.u32(static_cast<uint32_t>(model.largeObjects.size()));
    for (const LargeObject& object : model.largeObjects) {
        out.u32(static_cast<uint32_t>(object.row));
        out.u64(static_cast<uint64_t>(object.size));
    }
    writeOrigins(out, model);
    out.u32(static_cast<uint32_t>(model.classes.size()));
    for (const HeapClass& type : model.classes) {
        writeClass(out, type);
    }
    out.u32(static_cast<uint32_t>(model.threads.size()));
    for (const HeapThread& thread : model.threads) {
        out.u32(thread.serial);
        out.u32(static_cast<uint32_t>(thread.row));
        out.u32(thread.trace);
        out.u32(static_cast<uint32_t>(thread.stack.size()));
        for (uint32_t frame : thread.stack) {
            out.u32(frame);
        }
    }
    out.u32(static_cast<uint32_t>(model.roots.size()));
    for (const HeapRoot& root : model.roots) {
        out.u32(static_cast<uint32_t>(root.row));
        out.u32(root.kind);
        out.u32(static_cast<uint32_t>(root.thread + 1));
        out.u32(static_cast<uint32_t>(root.frame + 1));
        out.u32(static_cast<uint32_t>(root.name + 1));
    }
}

void readIndexModel(IndexInput& in, HeapModel& model) {
    model.format =
        in.u32AtMost(1, "format") == 1 ? HeapModel::Format::Snapshot : HeapModel::Format::Hprof;
    model.formatName = in.text();
    model.idSize = in.u32AtMost(8, "size of identifiers");
    if (model.idSize != 4 && model.idSize != 8) {
        in.fail("size of identifiers is neither 4 nor 8");
    }
    model.captureTimeMs = in.u64();
    model.objectCount = static_cast<int>(in.u32AtMost(MOST_OBJECTS, "number of objects"));
    if (model.objectCount < 1) {
        in.fail("no objects");
    }
    model.lastRowWithId = static_cast<int>(
        in.u32AtMost(static_cast<uint64_t>(model.objectCount) - 1, "last row with an identifier"));
    readSizing(in, model.sizing);
    for (std::vector<std::string>* texts : {&model.remarks, &model.notes, &model.frameTexts}) {
        for (uint32_t n = readCount(in, 4, "texts"); n > 0; n--) {
            texts->push_back(in.text());
        }
    }
    readLargeObjects(in, model);
    readOrigins(in, model);
    uint32_t classes = readCount(in, 36, "classes");
    for (uint32_t i = 0; i < classes; i++) {
        model.classes.push_back(readClass(in, model.objectCount, classes));
    }
    readThreadsAndRoots(in, model);
    model.indexClasses();
}
