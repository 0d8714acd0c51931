// The objects of a class: those that a condition on their fields takes, in an order.
#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/reports/Condition.h"

#include <algorithm>
#include <tuple>

namespace vdk {

namespace {

const size_t ShownObjects = 30;

// By what objects are put in order: numbers fall, texts rise.
struct Rank {
    long double number = 0;
    std::string text;
    int row = 0;

    bool operator<(const Rank& other) const {
        return number != other.number ? number > other.number
                                      : std::tie(text, row) < std::tie(other.text, other.row);
    }
};

Rank rankOf(const HeapSession& session, const HeapOperand& key, int row) {
    const HeapValue value = key.of(session, row);
    Rank rank{0, "", row};
    if (value.isReference() || value.type == 0) {
        // What has no value, and null, comes last.
        rank.text = value.row == 0 ? "\xff" : heapDetail(session.model(), value.row, 1000);
    } else {
        rank.number = value.number();
    }
    return rank;
}

// Numbers and texts as they are, other objects by what they are.
HeapTable::Cell cellOf(const HeapModel& model, const HeapValue& value) {
    std::string text;
    if (value.type == 0) {
        return {};
    }
    if (value.isReference() && model.stringValue(value.row, text, 1000)) {
        return text;
    }
    const bool isWhole =
        !value.isReference() && !value.isFloating() && value.type != 'Z' && value.type != 'C';
    return isWhole ? HeapTable::Cell(value.integer())
                   : HeapTable::Cell(heapValueText(model, value));
}

struct Found {
    std::vector<Rank> first;
    int64_t count = 0;
    int64_t shallow = 0;
};

Found find(const HeapSession& session, const HeapClassSet& classes,
           const std::vector<HeapCondition>& conditions, const HeapOperand& key, size_t top) {
    const HeapModel& model = session.model();
    Found found;
    const auto keepFirst = [&] {
        const size_t kept = std::min(top, found.first.size());
        std::partial_sort(found.first.begin(), found.first.begin() + std::ptrdiff_t(kept),
                          found.first.end());
        found.first.resize(kept);
    };
    for (int row = 1; row <= model.lastRowWithId; row++) {
        if (!classes.hasObject(row) || session.sizeOf(row) < 0 ||
            !std::all_of(conditions.begin(), conditions.end(),
                         [&](const HeapCondition& each) { return each.takes(session, row); })) {
            continue;
        }
        found.count++;
        found.shallow += session.sizeOf(row);
        found.first.push_back(rankOf(session, key, row));
        if (found.first.size() >= std::max<size_t>(4 * top, 4096)) {
            keepFirst();
        }
    }
    keepFirst();
    return found;
}

// The values that the command line asks about, each once.
std::vector<const HeapOperand*> shownOperands(const std::vector<HeapCondition>& conditions,
                                              const HeapOperand& key) {
    std::vector<const HeapOperand*> shown;
    const auto add = [&](const HeapOperand& operand) {
        const bool isKnown = std::any_of(shown.begin(), shown.end(), [&](const HeapOperand* each) {
            return each->text() == operand.text();
        });
        if (operand.isField() && !isKnown) {
            shown.push_back(&operand);
        }
    };
    for (const HeapCondition& condition : conditions) {
        add(condition.operand());
    }
    add(key);
    return shown;
}

HeapTable tableOf(const HeapSession& session, const Found& found,
                  const std::vector<const HeapOperand*>& operands) {
    const bool analyzed = !session.reachedBits().empty();
    std::vector<HeapTable::Column> columns;
    if (analyzed) {
        columns.push_back({"retained", "retained", HeapTable::Kind::Bytes});
    }
    columns.push_back({"shallow", "shallow", HeapTable::Kind::Bytes});
    columns.push_back({"", "length", HeapTable::Kind::Count});
    for (const HeapOperand* operand : operands) {
        columns.push_back({operand->text(), operand->text()});
    }
    HeapTable::addObjectColumns(columns);
    HeapTable table(columns);
    for (const Rank& rank : found.first) {
        HeapTable::Row cells;
        if (analyzed) {
            cells.emplace_back(session.retainedOf(rank.row));
        }
        cells.emplace_back(session.sizeOf(rank.row));
        const int length = session.storage().getArrayLength(rank.row);
        cells.push_back(length < 0 ? HeapTable::Cell() : HeapTable::Cell(length));
        for (const HeapOperand* operand : operands) {
            cells.push_back(cellOf(session.model(), operand->of(session, rank.row)));
        }
        HeapTable::addObject(cells, session.model(), rank.row);
        table.add(std::move(cells));
    }
    table.setOmitted(size_t(found.count) - found.first.size());
    return table;
}

} // namespace

int reportHeapObjects(Console& console, const Arguments& arguments) {
    // "--where size > 3" leaves the operator and the value among the arguments.
    const auto& words = heapArguments(arguments, 1, 3, "a pattern of class names");
    const bool analyze = !arguments.has("--no-retained");
    HeapSession session(console, heapOptions(arguments), analyze);
    HeapClassSet classes = classesNamed(session, words[0]);
    if (arguments.has("--subclasses")) {
        classes.addSubclasses();
    }
    std::vector<std::string> texts = arguments.all("--where");
    if (words.size() > 1) {
        if (texts.size() != 1 || words.size() != 3) {
            throw ClientError(ExitCode::Usage, "usage",
                              "objects takes one pattern of class names behind its name",
                              "put a condition into quotes: --where 'size > 3'");
        }
        texts[0] += " " + words[1] + " " + words[2];
    }
    std::vector<HeapCondition> conditions;
    conditions.reserve(texts.size());
    for (const std::string& text : texts) {
        conditions.emplace_back(session, classes, text);
    }
    const HeapOperand key(session, classes,
                          arguments.text("--sort", analyze ? "retained" : "shallow"));
    const Found found = find(session, classes, conditions, key, heapTop(arguments, ShownObjects));
    HeapDocument document(console, arguments, session, "objects");
    document.field("count", found.count);
    document.field("shallow", found.shallow);
    document.table("objects", tableOf(session, found, shownOperands(conditions, key)));
    document.line(formatCount(found.count) + (found.count == 1 ? " object, " : " objects, ") +
                  formatBytes(found.shallow) + "; `show ID` tells all about one");
    document.end();
    return 0;
}

} // namespace vdk
