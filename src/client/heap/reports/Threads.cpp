// Threads with what they and their frames keep alive, and of some the stack with its locals.
#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapFields.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/reports/ThreadShares.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

const size_t ShownThreads = 30;
const size_t ShownStacks = 10;
const size_t ShownLocals = 20; // of a frame
const int NoFrame = -1;

struct ThreadEntry {
    int index; // in HeapModel::threads
    std::string name;
    HeapThreadShare share;
    std::vector<const HeapRoot*> locals;
};

// The bits of JVMTI in java.lang.Thread, as java.lang.Thread.State names them.
const char* stateName(int64_t status) {
    static const struct {
        int64_t bit;
        const char* name;
    } states[] = {{0x0002, "terminated"}, {0x0400, "blocked"},  {0x0020, "timed waiting"},
                  {0x0010, "waiting"},    {0x0004, "runnable"}, {0x0001, "alive"}};
    for (const auto& state : states) {
        if ((status & state.bit) != 0) {
            return state.name;
        }
    }
    return "new";
}

class ThreadList {
public:
    ThreadList(const HeapSession& session, const std::string& pattern)
        : model(session.model()), holder(model, "holder"), status(model, "threadStatus"),
          carrier(model, "carrierThread") {
        const std::vector<HeapThreadShare> shares = threadShares(session);
        std::vector<std::vector<const HeapRoot*>> locals(model.threads.size());
        for (const HeapRoot& root : model.roots) {
            if (root.thread >= 0 && root.kind != HEAP_ROOT_THREAD) {
                locals[size_t(root.thread)].push_back(&root);
            }
        }
        for (size_t i = 0; i < model.threads.size(); i++) {
            std::string name = model.threadName(int(i));
            if (classNameMatches(pattern, name)) {
                threads.push_back({int(i), std::move(name), shares[i], std::move(locals[i])});
            }
        }
        std::stable_sort(threads.begin(), threads.end(), [](const auto& a, const auto& b) {
            return a.share.bytes > b.share.bytes;
        });
    }

    std::string stateOf(const ThreadEntry& thread) const {
        const int row = model.threads[size_t(thread.index)].row;
        if (row == 0) {
            return "";
        }
        const HeapValue mount = carrier.read(row);
        if (mount.type != 0) {
            return mount.row == 0 ? "virtual, not mounted" : "virtual, mounted";
        }
        // JDK 19 and later keep the state in an object of its own.
        const int held = holder.reference(row);
        const HeapValue value = status.read(held == 0 ? row : held);
        return value.type == 'I' ? stateName(value.integer()) : "";
    }

    const HeapModel& model;
    std::vector<ThreadEntry> threads;

private:
    HeapFieldReader holder, status, carrier;
};

HeapTable tableOf(const ThreadList& list, size_t top) {
    std::vector<HeapTable::Column> columns = {{"retained", "retained", HeapTable::Kind::Bytes},
                                              {"objects", "count", HeapTable::Kind::Count},
                                              {"locals", "locals", HeapTable::Kind::Count},
                                              {"state", "state"},
                                              {"name", "name"},
                                              {"class", "class"},
                                              {"", "id"},
                                              {"", "serial"}};
    HeapTable table(columns);
    for (size_t i = 0; i < std::min(top, list.threads.size()); i++) {
        const ThreadEntry& each = list.threads[i];
        const HeapThread& thread = list.model.threads[size_t(each.index)];
        table.add({each.share.bytes, each.share.count, each.locals.size(), list.stateOf(each),
                   each.name, thread.row == 0 ? "?" : list.model.classNameOf(thread.row),
                   thread.row == 0 ? "" : heapId(list.model, thread.row), int64_t(thread.serial)});
    }
    table.setOmitted(list.threads.size() - std::min(top, list.threads.size()));
    return table;
}

// Locals by frame, the same object of a frame once; NoFrame for those of no frame.
std::map<int, std::vector<const HeapRoot*>> localsByFrame(const ThreadEntry& thread) {
    std::map<int, std::vector<const HeapRoot*>> frames;
    for (const HeapRoot* root : thread.locals) {
        std::vector<const HeapRoot*>& known = frames[std::max(root->frame, NoFrame)];
        if (std::none_of(known.begin(), known.end(),
                         [&](const HeapRoot* each) { return each->row == root->row; })) {
            known.push_back(root);
        }
    }
    return frames;
}

void printLocals(Console& console, const HeapSession& session,
                 const std::vector<const HeapRoot*>& locals) {
    for (size_t i = 0; i < locals.size(); i++) {
        if (i == ShownLocals) {
            console.out << "        ... " << locals.size() - i << " more\n";
            break;
        }
        const HeapRoot& root = *locals[i];
        const std::string name = heapRootVariable(session.model(), root);
        console.out << "        " << (name.empty() ? heapRootName(root.kind) : name.c_str()) << " "
                    << formatBytes(session.retainedOf(root.row)) << "  "
                    << heapLabel(session.model(), root.row) << "\n";
    }
}

void printStack(Console& console, const HeapSession& session, const ThreadList& list,
                const ThreadEntry& thread) {
    console.out << "\n\"" << printable(thread.name, 200) << "\" " << list.stateOf(thread)
                << ", retains " << formatBytes(thread.share.bytes) << " with its locals\n";
    const std::vector<std::string> stack = list.model.stackOf(thread.index);
    auto locals = localsByFrame(thread);
    printLocals(console, session, locals[NoFrame]);
    for (size_t frame = 0; frame < stack.size(); frame++) {
        console.out << "    at " << printable(stack[frame], 400) << "\n";
        printLocals(console, session, locals[int(frame)]);
        locals.erase(int(frame));
    }
    locals.erase(NoFrame);
    for (const auto& [frame, roots] : locals) {
        console.out << "    at frame " << frame << "\n";
        printLocals(console, session, roots);
    }
}

void writeLocals(JsonWriter& json, const HeapSession& session,
                 const std::vector<const HeapRoot*>& locals) {
    json.key("locals").beginArray();
    for (const HeapRoot* root : locals) {
        json.beginObject().field("kind", heapRootName(root->kind));
        const std::string name = heapRootVariable(session.model(), *root);
        if (!name.empty()) {
            json.field("variable", name);
        }
        writeHeapObject(json, session, root->row);
        json.endObject();
    }
    json.endArray();
}

void writeStack(JsonWriter& json, const HeapSession& session, const ThreadList& list,
                const ThreadEntry& thread) {
    const std::vector<std::string> stack = list.model.stackOf(thread.index);
    auto locals = localsByFrame(thread);
    const int last = locals.empty() ? NoFrame : locals.rbegin()->first;
    json.beginObject().field("name", thread.name).field("retained", thread.share.bytes);
    writeLocals(json, session, locals[NoFrame]);
    json.key("frames").beginArray();
    for (int frame = 0; frame < std::max(int(stack.size()), last + 1); frame++) {
        // A damaged file names frames far beyond the stack.
        const bool isInStack = size_t(frame) < stack.size();
        if (!isInStack && locals.count(frame) == 0) {
            frame = locals.upper_bound(frame)->first;
        }
        json.beginObject().field("frame", frame);
        json.key("method");
        isInStack ? json.value(stack[size_t(frame)]) : json.nullValue();
        writeLocals(json, session, locals[frame]);
        json.endObject();
    }
    json.endArray().endObject();
}

} // namespace

int reportHeapThreads(Console& console, const Arguments& arguments) {
    const auto& names = heapArguments(arguments, 0, 1, "at most the name of a thread");
    HeapSession session(console, heapOptions(arguments), true);
    const ThreadList list(session, names.empty() ? "*" : names[0]);
    if (list.threads.empty() && !names.empty()) {
        throw ClientError(ExitCode::Refused, "heap.nothread",
                          "the heap has no thread " + printable(names[0], 200),
                          "`threads` lists them; * in a name is any text");
    }
    HeapDocument document(console, arguments, session, "threads");
    document.field("count", list.threads.size());
    document.table("threads", tableOf(list, heapTop(arguments, ShownThreads)));
    if (names.empty()) {
        document.line("retained is with all that the local variables hold; `threads NAME` shows "
                      "the stack and its locals");
        document.end();
        return 0;
    }
    const size_t stacks = std::min(list.threads.size(), heapTop(arguments, ShownStacks));
    if (JsonWriter* json = document.writer()) {
        json->key("stacks").beginArray();
        for (size_t i = 0; i < stacks; i++) {
            writeStack(*json, session, list, list.threads[i]);
        }
        json->endArray();
    }
    for (size_t i = 0; i < stacks && document.isText(); i++) {
        printStack(console, session, list, list.threads[i]);
    }
    document.end();
    return 0;
}

} // namespace vdk
