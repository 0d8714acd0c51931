#include "client/heap/sql/HeapSqlTables.h"

#include "client/heap/HeapFields.h"
#include "client/heap/HeapReport.h"
#include "heapfile/HeapText.h"
#include "offline/ObjectStorage.h"

#include <cstdlib>
#include <memory>

namespace vdk {

namespace {

int64_t one(int64_t) {
    return 1;
}

// A number, or nothing for 0 and less: rows and indices that stand for "none".
SqlValue positive(int64_t number) {
    return number > 0 ? SqlValue(number) : SqlValue();
}

SqlValue fieldValue(const HeapValue& value) {
    if (value.type == 0 || value.isReference()) {
        return SqlValue();
    }
    return value.isFloating() ? SqlValue(double(value.number())) : SqlValue(value.integer());
}

// The one outer number that equals a key, if the table has it.
SqlTable::Key outerKey(const SqlTable& table, size_t column) {
    return {column, [from = table.from, end = table.end](const SqlValue& value) {
                SqlRows rows;
                if (value.holds == SqlValue::Holds::Number && value.number >= from &&
                    value.number < end) {
                    rows.from = value.number;
                    rows.end = value.number + 1;
                }
                return rows;
            }};
}

// A table whose outer numbers are the rows of objects.
SqlTable objectTable(const HeapSession& session, const char* name, const char* help,
                     std::vector<SqlTable::Column> columns) {
    SqlTable table{name, help, std::move(columns), {}, 1, session.model().rowCount() + 1L, one, {}};
    table.keys.push_back(outerKey(table, 0));
    table.ascends = true;
    return table;
}

bool isObject(const HeapSession& session, int64_t row) {
    return row > 0 && row <= session.model().rowCount() && session.sizeOf(int(row)) >= 0;
}

// Row of the class of an object.
int64_t classRowOf(const HeapModel& model, int row) {
    const int type = model.classOf(row);
    return type < 0 ? 0 : model.classes[size_t(type)].row;
}

SqlTable objects(const HeapSession& session) {
    const HeapModel& model = session.model();
    SqlTable table = objectTable(session, "objects", "every object, class objects among them",
                                 {{"object", "INTEGER"},
                                  {"id", "TEXT"},
                                  {"class", "INTEGER"},
                                  {"shallow", "INTEGER"},
                                  {"retained", "INTEGER"},
                                  {"length", "INTEGER"},
                                  {"dominator", "INTEGER"},
                                  {"reached", "INTEGER"},
                                  {"generation", "INTEGER"}});
    table.count = [&session](int64_t row) { return isObject(session, row) ? 1 : 0; };
    table.value = [&session, &model](SqlPosition at, size_t column) -> SqlValue {
        const int row = int(at.outer);
        const ObjectStorage& storage = session.storage();
        const bool reached = session.isReached(row);
        switch (column) {
        case 0:
            return at.outer;
        case 1:
            return heapId(model, row);
        case 2:
            return positive(classRowOf(model, row));
        case 3:
            return session.sizeOf(row);
        case 4:
            return session.retainedOf(row);
        case 5:
            return storage.getArrayLength(row) < 0 || model.isClass(row)
                       ? SqlValue()
                       : SqlValue(storage.getArrayLength(row));
        case 6:
            return reached ? positive(storage.getDominator(row)) : SqlValue();
        case 7:
            return int(reached);
        default:
            return model.generations.empty() ? SqlValue() : SqlValue(storage.getGeneration(row));
        }
    };
    table.keys.push_back({1, [&session, &model](const SqlValue& value) {
                              SqlRows rows;
                              char* end = nullptr;
                              const uint64_t id = strtoull(value.text.c_str(), &end, 0);
                              const bool isId = !value.text.empty() && *end == '\0';
                              const int row = isId ? model.rowOfId(id) : 0;
                              if (isObject(session, row)) {
                                  rows.listed.push_back({row, 0});
                              }
                              return rows;
                          }});
    return table;
}

SqlTable classes(const HeapSession& session) {
    const HeapModel& model = session.model();
    SqlTable table{"classes",
                   "every class by the row of its class object",
                   {{"class", "INTEGER"},
                    {"name", "TEXT"},
                    {"superclass", "INTEGER"},
                    {"loader", "INTEGER"},
                    {"element_type", "TEXT"},
                    {"instance_size", "INTEGER"}},
                   {},
                   0,
                   int64_t(model.classes.size()),
                   one,
                   {}};
    table.value = [&model](SqlPosition at, size_t column) -> SqlValue {
        const HeapClass& type = model.classes[size_t(at.outer)];
        switch (column) {
        case 0:
            return type.row;
        case 1:
            return type.name;
        case 2:
            return type.superClass < 0 ? SqlValue()
                                       : SqlValue(model.classes[size_t(type.superClass)].row);
        case 3:
            return positive(model.loaderOf(int(at.outer)));
        case 4:
            return type.elementType == 0     ? SqlValue()
                   : type.elementType == 'L' ? SqlValue("reference")
                                             : SqlValue(primitiveTypeName(type.elementType));
        default:
            return positive(type.instanceSize);
        }
    };
    table.keys.push_back({0, [&model](const SqlValue& value) {
                              SqlRows rows;
                              const bool isRow =
                                  value.number > 0 && value.number < model.objectCount;
                              const int type = isRow ? model.classByRow(int(value.number)) : -1;
                              if (type >= 0) {
                                  rows.listed.push_back({type, 0});
                              }
                              return rows;
                          }});
    return table;
}

// The instance fields of each class, found once.
class KnownFields {
public:
    explicit KnownFields(const HeapModel& model) : model(model), byClass(model.classes.size()) {}

    const std::vector<HeapFieldPlace>& of(int classIndex) {
        auto& known = byClass[size_t(classIndex)];
        if (!known) {
            known = std::make_unique<std::vector<HeapFieldPlace>>(model.fieldsOf(classIndex));
        }
        return *known;
    }

private:
    const HeapModel& model;
    std::vector<std::unique_ptr<std::vector<HeapFieldPlace>>> byClass;
};

// Instance fields of objects, static ones of class objects.
SqlTable fields(const HeapSession& session) {
    const HeapModel& model = session.model();
    SqlTable table =
        objectTable(session, "fields", "values of fields; those of class objects are static ones",
                    {{"object", "INTEGER"},
                     {"name", "TEXT"},
                     {"class", "INTEGER"},
                     {"type", "TEXT"},
                     {"value", ""},
                     {"target", "INTEGER"}});
    auto known = std::make_shared<KnownFields>(model);
    const auto fieldAt = [&model, known](SqlPosition at, bool withValue) {
        const int row = int(at.outer);
        if (model.isClass(row)) {
            return heapStaticField(model, row, size_t(at.inner));
        }
        const HeapFieldPlace& place = known->of(model.classOf(row))[size_t(at.inner)];
        const HeapClass& owner = model.classes[size_t(place.owner)];
        return HeapNamedValue{owner.row, owner.fields[place.index].name,
                              withValue ? heapFieldValue(model, row, place) : HeapValue()};
    };
    table.count = [&session, &model, known](int64_t outer) -> int64_t {
        const int row = int(outer);
        if (!isObject(session, row)) {
            return 0;
        }
        if (model.isClass(row)) {
            return int64_t(heapStaticFieldCount(model, row));
        }
        const bool hasFields = model.classOf(row) >= 0 && session.storage().getArrayLength(row) < 0;
        return hasFields ? int64_t(known->of(model.classOf(row)).size()) : 0;
    };
    table.value = [fieldAt](SqlPosition at, size_t column) -> SqlValue {
        if (column == 0) {
            return at.outer;
        }
        const HeapNamedValue field = fieldAt(at, column > 2);
        switch (column) {
        case 1:
            return field.name;
        case 2:
            return field.owner;
        case 3:
            return field.value.type == 0 ? SqlValue() : SqlValue(heapValueTypeName(field.value));
        case 4:
            return fieldValue(field.value);
        default:
            return positive(field.value.row);
        }
    };
    return table;
}

// All references but those to nothing; by target through the list of referrers.
SqlTable references(const HeapSession& session, const char* name) {
    const HeapModel& model = session.model();
    SqlTable table = objectTable(
        session, name, "what refers to what, and by which field or element",
        {{"object", "INTEGER"}, {"position", "INTEGER"}, {"name", "TEXT"}, {"target", "INTEGER"}});
    table.count = [&session](int64_t row) -> int64_t {
        return isObject(session, row) ? session.storage().getRefCount(int(row)) : 0;
    };
    table.value = [&session, &model](SqlPosition at, size_t column) -> SqlValue {
        const int row = int(at.outer);
        const int position = int(at.inner);
        switch (column) {
        case 0:
            return at.outer;
        case 1:
            return position;
        case 2:
            return model.referenceName(row, position);
        default:
            return positive(session.storage().getRef(row, position));
        }
    };
    table.keys.push_back({3, [&session](const SqlValue& value) {
                              SqlRows rows;
                              if (!isObject(session, value.number)) {
                                  return rows;
                              }
                              const int target = int(value.number);
                              const RefTable& referrers = session.referrers();
                              int last = 0;
                              for (int i = 0; i < referrers.getCount(target); i++) {
                                  // One that refers several times stands there as often, in a row.
                                  const int source = referrers.getRef(target, i);
                                  if (source == last) {
                                      continue;
                                  }
                                  last = source;
                                  const int count = session.storage().getRefCount(source);
                                  for (int position = 0; position < count; position++) {
                                      if (session.storage().getRef(source, position) == target) {
                                          rows.listed.push_back({source, position});
                                      }
                                  }
                              }
                              return rows;
                          }});
    return table;
}

// What each object dominates, made when first asked for: 8 bytes an object.
class DominatedObjects {
public:
    explicit DominatedObjects(const HeapSession& session) : session(session) {}

    SqlRows of(int64_t row) {
        if (starts.empty()) {
            build();
        }
        SqlRows rows;
        if (row >= 0 && row <= session.model().rowCount()) {
            for (int i = starts[size_t(row)]; i < starts[size_t(row) + 1]; i++) {
                rows.listed.push_back({children[size_t(i)], 0});
            }
        }
        return rows;
    }

private:
    void build() {
        const int last = session.model().rowCount();
        starts.assign(size_t(last) + 2, 0);
        eachReached([&](int row) { starts[size_t(session.storage().getDominator(row)) + 1]++; });
        for (size_t i = 1; i < starts.size(); i++) {
            starts[i] += starts[i - 1];
        }
        children.resize(size_t(starts.back()));
        std::vector<int> next(starts.begin(), starts.end() - 1);
        eachReached([&](int row) {
            children[size_t(next[size_t(session.storage().getDominator(row))]++)] = row;
        });
    }
    template <typename Visit>
    void eachReached(Visit visit) const {
        for (int row = 1; row <= session.model().rowCount(); row++) {
            if (session.isReached(row)) {
                visit(row);
            }
        }
    }

    const HeapSession& session;
    std::vector<int> starts;
    std::vector<int> children;
};

SqlTable dominators(const HeapSession& session) {
    SqlTable table =
        objectTable(session, "dominators", "what alone keeps an object alive; 0 is the roots",
                    {{"object", "INTEGER"}, {"dominator", "INTEGER"}});
    table.count = [&session](int64_t row) {
        return isObject(session, row) && session.isReached(int(row)) ? 1 : 0;
    };
    table.value = [&session](SqlPosition at, size_t column) -> SqlValue {
        return column == 0 ? SqlValue(at.outer)
                           : SqlValue(session.storage().getDominator(int(at.outer)));
    };
    auto dominated = std::make_shared<DominatedObjects>(session);
    table.keys.push_back({1, [dominated](const SqlValue& value) {
                              return value.holds == SqlValue::Holds::Number
                                         ? dominated->of(value.number)
                                         : SqlRows();
                          }});
    return table;
}

SqlTable threads(const HeapSession& session) {
    const HeapModel& model = session.model();
    SqlTable table{
        "threads",
        "threads of the JVM",
        {{"thread", "INTEGER"}, {"object", "INTEGER"}, {"name", "TEXT"}, {"serial", "INTEGER"}},
        {},
        0,
        int64_t(model.threads.size()),
        one,
        {}};
    table.keys.push_back(outerKey(table, 0));
    table.value = [&model](SqlPosition at, size_t column) -> SqlValue {
        const HeapThread& thread = model.threads[size_t(at.outer)];
        switch (column) {
        case 0:
            return at.outer;
        case 1:
            return positive(thread.row);
        case 2:
            return model.threadName(int(at.outer));
        default:
            return int64_t(thread.serial);
        }
    };
    return table;
}

SqlTable frames(const HeapSession& session) {
    const HeapModel& model = session.model();
    SqlTable table{"frames",
                   "stacks of the threads, depth 0 the innermost call",
                   {{"thread", "INTEGER"}, {"depth", "INTEGER"}, {"frame", "TEXT"}},
                   {},
                   0,
                   int64_t(model.threads.size()),
                   {},
                   {}};
    table.keys.push_back(outerKey(table, 0));
    // Rows of a thread are asked for one after the other.
    struct Stack {
        int64_t thread = -1;
        std::vector<std::string> frames;
    };
    auto last = std::make_shared<Stack>();
    const auto stackOf = [&model, last](int64_t thread) -> const std::vector<std::string>& {
        if (last->thread != thread) {
            *last = {thread, model.stackOf(int(thread))};
        }
        return last->frames;
    };
    table.count = [stackOf](int64_t thread) { return int64_t(stackOf(thread).size()); };
    table.value = [stackOf](SqlPosition at, size_t column) -> SqlValue {
        return column == 0   ? SqlValue(at.outer)
               : column == 1 ? SqlValue(at.inner)
                             : SqlValue(stackOf(at.outer)[size_t(at.inner)]);
    };
    return table;
}

SqlTable roots(const HeapSession& session) {
    const HeapModel& model = session.model();
    SqlTable table{"roots",
                   "what holds objects from outside of the heap, local variables among it",
                   {{"object", "INTEGER"},
                    {"kind", "TEXT"},
                    {"thread", "INTEGER"},
                    {"depth", "INTEGER"},
                    {"variable", "TEXT"}},
                   {},
                   0,
                   int64_t(model.roots.size()),
                   one,
                   {}};
    table.value = [&model](SqlPosition at, size_t column) -> SqlValue {
        const HeapRoot& root = model.roots[size_t(at.outer)];
        switch (column) {
        case 0:
            return root.row;
        case 1:
            return heapRootName(root.kind);
        case 2:
            return root.thread < 0 ? SqlValue() : SqlValue(root.thread);
        case 3:
            return root.frame < 0 ? SqlValue() : SqlValue(root.frame);
        default:
            return root.name < 0 ? SqlValue() : SqlValue(model.frameTexts[size_t(root.name)]);
        }
    };
    return table;
}

SqlTable strings(const HeapSession& session) {
    const HeapModel& model = session.model();
    SqlTable table =
        objectTable(session, "strings", "texts", {{"object", "INTEGER"}, {"text", "TEXT"}});
    table.count = [&session, &model](int64_t row) {
        const bool isString = isObject(session, row) && !model.isClass(int(row)) &&
                              model.stringClass >= 0 &&
                              model.classOf(int(row)) == model.stringClass;
        return isString ? 1 : 0;
    };
    table.value = [&model](SqlPosition at, size_t column) -> SqlValue {
        std::string text;
        return column == 0                              ? SqlValue(at.outer)
               : model.stringValue(int(at.outer), text) ? SqlValue(std::move(text))
                                                        : SqlValue();
    };
    return table;
}

SqlTable elements(const HeapSession& session) {
    const HeapModel& model = session.model();
    SqlTable table = objectTable(session, "elements", "contents of primitive arrays",
                                 {{"object", "INTEGER"}, {"position", "INTEGER"}, {"value", ""}});
    struct Array {
        const uint8_t* bytes = nullptr;
        uint32_t count = 0;
        char type = 0;
    };
    const auto arrayOf = [&session, &model](int64_t outer) {
        Array array;
        const int row = int(outer);
        const bool isArray = isObject(session, row) && !model.isClass(row) &&
                             session.storage().getArrayLength(row) >= 0 &&
                             model.primitiveArray(row, array.bytes, array.count, array.type);
        return isArray ? array : Array();
    };
    table.count = [arrayOf](int64_t outer) { return int64_t(arrayOf(outer).count); };
    table.value = [arrayOf, &model](SqlPosition at, size_t column) -> SqlValue {
        if (column < 2) {
            return column == 0 ? at.outer : at.inner;
        }
        const Array array = arrayOf(at.outer);
        HeapValue value;
        value.type = array.type;
        value.bits = model.element(array.bytes, uint32_t(at.inner), array.type);
        return fieldValue(value);
    };
    return table;
}

} // namespace

std::vector<SqlTable> heapSqlTables(const HeapSession& session) {
    std::vector<SqlTable> tables = {objects(session), classes(session), fields(session),
                                    references(session, "refs"), dominators(session),
                                    threads(session), frames(session), roots(session),
                                    strings(session), elements(session),
                                    // A word of SQL, to be written in quotes.
                                    references(session, "references")};
    tables[tables.size() - 1].isCopied = false;
    tables[tables.size() - 2].isCopied = false;
    return tables;
}

} // namespace vdk
