#include "client/heap/HeapObjectTable.h"

#include "client/heap/HeapReport.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

// Those for programs as writeHeapObject names and orders them.
void addColumns(std::vector<HeapTable::Column>& columns, bool analyzed) {
    columns.push_back({"", "id"});
    columns.push_back({"", "class"});
    if (analyzed) {
        columns.push_back({"retained", "", HeapTable::Kind::Bytes});
    }
    columns.push_back({"shallow", "shallow", HeapTable::Kind::Bytes});
    if (analyzed) {
        columns.push_back({"", "retained"});
    }
    columns.push_back({"object", ""});
    columns.push_back({"", "length", HeapTable::Kind::Value, true});
    columns.push_back({"", "text", HeapTable::Kind::Text, true});
}

void addCells(HeapTable::Row& cells, const HeapSession& session, int row, bool analyzed) {
    cells.emplace_back(heapId(session.model(), row));
    cells.emplace_back(session.model().classNameOf(row));
    if (analyzed) {
        cells.emplace_back(session.retainedOf(row));
    }
    cells.emplace_back(session.sizeOf(row));
    if (analyzed) {
        cells.emplace_back(session.retainedOf(row));
    }
    cells.emplace_back(heapLabel(session.model(), row));
    const int length = session.storage().getArrayLength(row);
    cells.push_back(length < 0 ? HeapTable::Cell() : HeapTable::Cell(length));
    const std::string text = heapDetail(session.model(), row, 1000);
    cells.push_back(text.empty() ? HeapTable::Cell() : HeapTable::Cell(text));
}

// By row, for those that frames hold: the outermost frame, which ends last.
std::map<int, const HeapRoot*> localsOf(const HeapModel& model, const std::vector<int>& rows) {
    std::vector<int> wanted = rows;
    std::sort(wanted.begin(), wanted.end());
    std::map<int, const HeapRoot*> locals;
    for (const HeapRoot& root : model.roots) {
        if (root.frame >= 0 && root.kind == HEAP_ROOT_STACK_LOCAL &&
            std::binary_search(wanted.begin(), wanted.end(), root.row)) {
            const HeapRoot*& known = locals[root.row];
            known = known == nullptr || known->frame < root.frame ? &root : known;
        }
    }
    return locals;
}

} // namespace

HeapTable heapObjectTable(const HeapSession& session, const std::vector<int>& rows) {
    const auto locals = localsOf(session.model(), rows);
    std::vector<HeapTable::Column> columns;
    addColumns(columns, true);
    columns.push_back(
        {locals.empty() ? "" : "local variable of", "local", HeapTable::Kind::Text, true});
    HeapTable table(columns);
    for (int row : rows) {
        HeapTable::Row cells;
        addCells(cells, session, row, true);
        const auto local = locals.find(row);
        if (local == locals.end()) {
            cells.emplace_back();
        } else {
            const std::string name = heapRootVariable(session.model(), *local->second);
            cells.emplace_back((name.empty() ? "" : name + " of ") +
                               heapRootPlace(session.model(), *local->second));
        }
        table.add(std::move(cells));
    }
    return table;
}

HeapTable heapLinkTable(const HeapSession& session, const std::vector<HeapLink>& links) {
    const bool analyzed = !session.reachedBits().empty();
    std::vector<HeapTable::Column> columns = {{"name", "name"}};
    addColumns(columns, analyzed);
    HeapTable table(columns);
    for (const HeapLink& link : links) {
        HeapTable::Row cells = {link.name};
        addCells(cells, session, link.row, analyzed);
        table.add(std::move(cells));
    }
    return table;
}

} // namespace vdk
