// All that the heap knows of one object.
#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapFields.h"
#include "client/heap/HeapPathSearch.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"

#include <algorithm>

namespace vdk {

namespace {

const size_t ShownElements = 50;
const uint32_t ShownCharacters = 4000;
const uint32_t WrittenCharacters = 1000000;

// One line of what an object holds.
struct Entry {
    std::string owner; // class that declares the field; empty for elements
    std::string name;
    HeapValue value;
};

std::vector<Entry> instanceFields(const HeapModel& model, int row) {
    std::vector<Entry> entries;
    const int type = model.classOf(row);
    if (type < 0 || model.isClass(row) || model.storage->getArrayLength(row) >= 0) {
        return entries;
    }
    for (const HeapFieldPlace& place : model.fieldsOf(type)) {
        const HeapClass& owner = model.classes[size_t(place.owner)];
        entries.push_back(
            {owner.name, owner.fields[place.index].name, heapFieldValue(model, row, place)});
    }
    return entries;
}

std::vector<Entry> staticFields(const HeapModel& model, int row) {
    std::vector<Entry> entries;
    for (size_t i = 0; i < heapStaticFieldCount(model, row); i++) {
        HeapNamedValue field = heapStaticField(model, row, i);
        entries.push_back({model.classes[size_t(model.classByRow(row))].name, std::move(field.name),
                           field.value});
    }
    return entries;
}

std::vector<Entry> elements(const HeapModel& model, int row, size_t from, size_t count) {
    std::vector<Entry> entries;
    const int length = model.isClass(row) ? -1 : model.storage->getArrayLength(row);
    const uint8_t* bytes = nullptr;
    uint32_t there = 0;
    char type = 0;
    const bool isPrimitive = length >= 0 && model.primitiveArray(row, bytes, there, type);
    for (size_t i = from; length >= 0 && i < size_t(length) && i - from < count; i++) {
        HeapValue value;
        if (isPrimitive) {
            value.type = type;
            value.bits = model.element(bytes, uint32_t(i), type);
        } else if (i + 1 < size_t(model.storage->getRefCount(row))) {
            value.type = 'L';
            value.row = model.storage->getRef(row, int(i) + 1);
        }
        entries.push_back({"", "[" + std::to_string(i) + "]", value});
    }
    return entries;
}

// The head of the report: what is told of any object.
class Header {
public:
    Header(const HeapSession& session, HeapDocument& document, int row)
        : session(session), model(session.model()), document(document), row(row) {}

    void write() {
        document.line(heapLabel(model, row));
        if (JsonWriter* json = document.writer()) {
            json->key("object").beginObject();
            writeHeapObject(*json, session, row);
            json->endObject();
        }
        const bool analyzed = !session.reachedBits().empty();
        document.line("  shallow    " + formatBytes(session.sizeOf(row)));
        if (analyzed) {
            document.line("  retained   " + formatBytes(session.retainedOf(row)) +
                          (session.isReached(row) ? "" : ", not reached by any root"));
            document.field("reached", session.isReached(row));
        }
        const int asClass = model.classByRow(row);
        object("loader", "loaded by", loader(asClass), "the JVM's own loader");
        if (asClass >= 0) {
            writeClass(asClass);
        }
        if (analyzed && session.isReached(row)) {
            object("dominator", "held by", session.storage().getDominator(row),
                   "no single object (roots, or several objects)");
            roots();
        }
    }

private:
    int loader(int asClass) const {
        const int type = asClass >= 0 ? asClass : model.classOf(row);
        return type < 0 ? 0 : model.loaderOf(type);
    }
    void object(const char* key, std::string title, int which, const char* none) {
        title.resize(10, ' ');
        document.line("  " + title + " " + (which == 0 ? none : heapLabel(model, which)));
        if (JsonWriter* json = document.writer()) {
            json->key(key);
            if (which == 0) {
                json->nullValue();
                return;
            }
            json->beginObject();
            writeHeapObject(*json, session, which);
            json->endObject();
        }
    }
    void writeClass(int asClass) {
        const HeapClass& type = model.classes[size_t(asClass)];
        int64_t count = 0, bytes = 0;
        for (int each = 1; each <= model.lastRowWithId; each++) {
            if (model.classOf(each) == asClass) {
                count++;
                bytes += std::max<int64_t>(session.sizeOf(each), 0);
            }
        }
        const int above = type.superClass;
        const std::string super = above < 0 ? "" : model.classes[size_t(above)].name;
        document.line("  objects    " + formatCount(count) + ", " + formatBytes(bytes));
        document.field("instances", count);
        document.field("instanceBytes", bytes);
        if (!super.empty()) {
            document.line("  extends    " + printable(super));
            document.field("superclass", super);
        }
    }
    void roots() {
        JsonWriter* json = document.writer();
        if (json) {
            json->key("roots").beginArray();
        }
        for (const HeapRoot* root : rootsOf(model, row)) {
            const std::string place = heapRootPlace(model, *root);
            document.line("  root       " + std::string(heapRootName(root->kind)) +
                          (place.empty() ? "" : " ") + place);
            if (json) {
                json->beginObject().field("kind", heapRootName(root->kind));
                json->field("place", place).endObject();
            }
        }
        if (json) {
            json->endArray();
        }
    }

    const HeapSession& session;
    const HeapModel& model;
    HeapDocument& document;
    const int row;
};

void writeText(const HeapModel& model, HeapDocument& document, int row) {
    std::string text;
    if (!model.stringValue(row, text, document.isText() ? ShownCharacters : WrittenCharacters)) {
        return;
    }
    document.field("string", text);
    document.line("  text       \"" + printable(text, ShownCharacters) + "\"");
}

void writeEntries(const HeapSession& session, HeapDocument& document, const char* key,
                  const char* heading, const std::vector<Entry>& entries) {
    if (JsonWriter* json = document.writer()) {
        json->key(key).beginArray();
        for (const Entry& entry : entries) {
            json->beginObject();
            if (!entry.owner.empty()) {
                json->field("declaredBy", entry.owner);
            }
            json->field("name", entry.name).field("type", heapValueTypeName(entry.value));
            writeHeapValue(*json, session, entry.value);
            json->endObject();
        }
        json->endArray();
        return;
    }
    const bool isField = !entries.empty() && !entries[0].owner.empty();
    HeapTable table({{"name", "name"},
                     {"type", "type"},
                     {isField ? "declared by" : "", "declaredBy"},
                     {"value", "value"}});
    for (const Entry& entry : entries) {
        table.add({entry.name, heapValueTypeName(entry.value), entry.owner,
                   heapValueText(session.model(), entry.value)});
    }
    if (!entries.empty()) {
        document.table(key, table, heading);
    }
}

} // namespace

int reportHeapShow(Console& console, const Arguments& arguments) {
    const auto& ids = heapArguments(arguments, 1, 1, "an object");
    HeapSession session(console, heapOptions(arguments), !arguments.has("--no-retained"));
    const HeapModel& model = session.model();
    const int row = session.rowOf(ids[0]);
    HeapDocument document(console, arguments, session, "show");
    Header(session, document, row).write();
    writeText(model, document, row);
    writeEntries(session, document, "fields", "Fields", instanceFields(model, row));
    if (model.isClass(row)) {
        writeEntries(session, document, "statics", "Static fields", staticFields(model, row));
    }
    const int length = model.isClass(row) ? -1 : session.storage().getArrayLength(row);
    if (length >= 0) {
        const auto from = size_t(arguments.number("--from", 0));
        const std::vector<Entry> shown =
            elements(model, row, from, heapTop(arguments, ShownElements));
        document.field("from", from);
        writeEntries(session, document, "elements", "Elements", shown);
        const size_t behind = from + shown.size();
        if (behind < size_t(length)) {
            document.line("(" + formatCount(length - int64_t(behind)) + " more; --from " +
                          std::to_string(behind) + " goes on)");
        }
    }
    document.end();
    return 0;
}

} // namespace vdk
