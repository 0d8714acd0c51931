#include "client/heap/HeapReport.h"

#include "client/console/Text.h"

#include <algorithm>
#include <cstdio>
#include <thread>

namespace vdk {

std::string heapId(const HeapModel& model, int row) {
    if (model.format == HeapModel::Format::Snapshot) {
        return std::to_string(row);
    }
    char digits[32];
    snprintf(digits, sizeof(digits), "0x%llx", static_cast<unsigned long long>(model.idOf(row)));
    return digits;
}

std::string heapDetail(const HeapModel& model, int row, uint32_t maxChars) {
    std::string text;
    if (model.isClass(row)) {
        return model.classes[size_t(model.classByRow(row))].name;
    }
    if (model.stringValue(row, text, maxChars)) {
        return text;
    }
    for (size_t i = 0; i < model.threads.size() && model.threads.size() < 10000; i++) {
        if (model.threads[i].row == row) {
            return model.threadName(int(i));
        }
    }
    return "";
}

std::string heapLabel(const HeapModel& model, int row) {
    if (model.isClass(row)) {
        return "class " + printable(heapDetail(model, row, 0)) + " @" + heapId(model, row);
    }
    std::string name = model.classNameOf(row);
    int length = model.storage->getArrayLength(row);
    if (length >= 0 && endsWith(name, "[]")) {
        size_t at = name.find("[]");
        name = name.substr(0, at + 1) + std::to_string(length) + name.substr(at + 1);
    }
    std::string label = printable(name) + " @" + heapId(model, row);
    std::string detail = heapDetail(model, row, 60);
    return detail.empty() ? label : label + " \"" + printable(detail, 60) + "\"";
}

void writeHeapObject(JsonWriter& json, const HeapSession& session, int row) {
    const HeapModel& model = session.model();
    json.field("id", heapId(model, row)).field("class", model.classNameOf(row));
    json.field("shallow", session.sizeOf(row));
    if (!session.reachedBits().empty()) {
        json.field("retained", session.retainedOf(row));
    }
    if (session.storage().getArrayLength(row) >= 0) {
        json.field("length", session.storage().getArrayLength(row));
    }
    std::string detail = heapDetail(model, row, 1000);
    if (!detail.empty()) {
        json.field("text", detail);
    }
}

const char* heapRootName(uint32_t kind) {
    switch (kind) {
    case HEAP_ROOT_JNI_GLOBAL:
        return "JNI global";
    case HEAP_ROOT_JNI_LOCAL:
        return "JNI local";
    case HEAP_ROOT_STACK_LOCAL:
        return "local variable";
    case HEAP_ROOT_THREAD:
        return "thread";
    case HEAP_ROOT_MONITOR:
        return "monitor";
    case HEAP_ROOT_SYSTEM_CLASS:
        return "system class";
    case HEAP_ROOT_NATIVE_STACK:
        return "native stack";
    default:
        return "other";
    }
}

std::string heapRootVariable(const HeapModel& model, const HeapRoot& root) {
    return root.name < 0 ? "" : printable(model.frameTexts[size_t(root.name)], 200);
}

std::string heapRootPlace(const HeapModel& model, const HeapRoot& root) {
    if (root.thread < 0 || size_t(root.thread) >= model.threads.size()) {
        return "";
    }
    const HeapThread& thread = model.threads[size_t(root.thread)];
    std::string name = model.threadName(root.thread);
    std::string place = name.empty() ? "thread " + std::to_string(thread.serial)
                                     : "thread \"" + printable(name, 200) + "\"";
    const std::vector<std::string> stack = model.stackOf(root.thread);
    if (root.frame >= 0 && size_t(root.frame) < stack.size()) {
        place += " at " + printable(stack[size_t(root.frame)], 400);
    }
    return place;
}

// How sizes were found: the numbers that the text tells.
static void writeSizing(JsonWriter& json, const HeapSizing& sizing) {
    json.key("sizing").beginObject().field("fromJvm", sizing.fromJvm);
    json.field("assumed", sizing.isAssumed());
    const std::pair<const char*, uint64_t> numbers[] = {
        {"referenceBytes", sizing.reference},     {"headerBytes", sizing.header},
        {"arrayHeaderBytes", sizing.arrayHeader}, {"alignmentBytes", sizing.alignment},
        {"sampledArrays", sizing.arrays},         {"agreeingArrays", sizing.exactArrays},
        {"judgedClasses", sizing.classes},        {"agreeingClasses", sizing.agreeingClasses},
    };
    for (const auto& [name, number] : numbers) {
        json.key(name);
        sizing.fromJvm ? json.nullValue() : json.value(int64_t(number));
    }
    json.endObject();
}

void beginHeapDocument(JsonWriter& json, const char* schema, const HeapSession& session,
                       const std::vector<std::string>& otherRemarks) {
    const HeapModel& model = session.model();
    beginDocument(json, schema);
    json.field("file", model.file->path()).field("format", model.formatName);
    json.field("objectCount", int64_t(model.rowCount())).field("sizes", model.sizing.text());
    writeSizing(json, model.sizing);
    json.key("remarks").beginArray();
    for (const std::string& remark : otherRemarks) {
        json.value(remark);
    }
    for (const std::vector<std::string>* texts : {&model.remarks, &model.notes}) {
        for (const std::string& remark : *texts) {
            json.value(remark);
        }
    }
    json.endArray();
}

// The search is one thread's, so that more cores than these gain nothing.
static long coresOfUse() {
    return std::min(std::max(long(std::thread::hardware_concurrency()), 1L), 8L);
}

static constexpr long MostThreads = 64;

HeapOptions heapOptions(const Arguments& arguments) {
    HeapOptions options;
    options.file = arguments.text("FILE");
    options.index = arguments.text("--index");
    options.temporaryDir = arguments.text("--tmp");
    options.dumpNumber = int(arguments.number("--dump", 1));
    options.threads = int(std::clamp(arguments.number("--threads", coresOfUse()), 1L, MostThreads));
    options.graphNeeded = heapReportNeedsGraph(arguments);
    options.verify = arguments.has("--verify");
    return options;
}

const std::vector<std::string>& heapArguments(const Arguments& arguments, size_t least, size_t most,
                                              const char* what) {
    const std::vector<std::string>& all = arguments.all("ARGUMENT");
    if (all.size() < least || all.size() > most) {
        throw ClientError(ExitCode::Usage, "usage",
                          std::string("this report takes ") + what + " behind its name",
                          "`vdk heap --help` tells more");
    }
    return all;
}

size_t heapTop(const Arguments& arguments, size_t fallback) {
    return size_t(arguments.number("--top", long(fallback)));
}

} // namespace vdk
