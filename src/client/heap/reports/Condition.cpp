#include "client/heap/reports/Condition.h"

#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapReport.h"

#include <algorithm>
#include <cstdlib>

namespace vdk {

namespace {

const char ConditionHint[] =
    "FIELD OP VALUE with OP one of = != < <= > >= ~, such as --where 'size > 1000', "
    "--where 'name ~ *pool*' or --where 'owner = null'";

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    const size_t last = text.find_last_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

std::string unquoted(const std::string& text) {
    const bool isQuoted =
        text.size() >= 2 && (text[0] == '"' || text[0] == '\'') && text.back() == text[0];
    return isQuoted ? text.substr(1, text.size() - 2) : text;
}

// "1000", "-1.5", "10k", "true", "c".
std::optional<long double> numberOf(const std::string& text) {
    if (text == "true" || text == "false") {
        return text == "true" ? 1.0L : 0.0L;
    }
    char* end = nullptr;
    long double number = strtold(text.c_str(), &end);
    const std::string rest = text.empty() ? "-" : end;
    if (rest.empty()) {
        return number;
    }
    if (rest == "k" || rest == "m" || rest == "g") {
        return number * (rest == "k" ? 1024.0L : rest == "m" ? 1048576.0L : 1073741824.0L);
    }
    return text.size() == 1 ? std::optional<long double>(static_cast<unsigned char>(text[0]))
                            : std::nullopt;
}

bool compares(const std::string& op, int order) {
    return op == "="    ? order == 0
           : op == "!=" ? order != 0
           : op == "<"  ? order < 0
           : op == "<=" ? order <= 0
           : op == ">"  ? order > 0
                        : order >= 0;
}

std::vector<std::string> fieldNames(const HeapModel& model, const HeapClassSet& classes) {
    std::vector<std::string> names;
    for (size_t i = 0; i < model.classes.size() && names.size() < 1000; i++) {
        if (!classes.hasClass(int(i))) {
            continue;
        }
        for (const HeapFieldPlace& place : model.fieldsOf(int(i))) {
            names.push_back(model.classes[size_t(place.owner)].fields[place.index].name);
        }
    }
    return names;
}

} // namespace

HeapOperand::HeapOperand(const HeapSession& session, const HeapClassSet& classes,
                         const std::string& text)
    : name(text) {
    if (text == "shallow" || text == "length" || text == "retained") {
        if (text == "retained" && session.reachedBits().empty()) {
            throw ClientError(ExitCode::Usage, "usage",
                              "retained sizes and --no-retained exclude each other");
        }
        return;
    }
    const HeapModel& model = session.model();
    std::vector<std::string> parts = split(text, '.');
    if (parts.size() > 1 && parts[0] == "this") {
        parts.erase(parts.begin());
    }
    for (const std::string& part : parts) {
        fields.emplace_back(model, part);
    }
    bool isThere = false;
    for (size_t i = 0; i < model.classes.size() && !isThere; i++) {
        isThere = classes.hasClass(int(i)) && fields[0].placeIn(int(i)).owner >= 0;
    }
    if (!isThere) {
        throw ClientError(ExitCode::Usage, "heap.nofield",
                          "the class has no field " + printable(parts[0], 200) +
                              didYouMean(parts[0], fieldNames(model, classes)),
                          "`vdk heap FILE show ID` lists the fields of an object; "
                          "beside them there are retained, shallow and length");
    }
}

HeapValue HeapOperand::of(const HeapSession& session, int row) const {
    HeapValue value;
    if (!isField()) {
        const int64_t number = name == "retained"  ? session.retainedOf(row)
                               : name == "shallow" ? session.sizeOf(row)
                                                   : session.storage().getArrayLength(row);
        value.type = name == "length" && number < 0 ? 0 : 'J';
        value.bits = uint64_t(number);
        return value;
    }
    for (const HeapFieldReader& field : fields) {
        value = field.read(row);
        row = value.row;
    }
    return value;
}

HeapCondition::HeapCondition(const HeapSession& session, const HeapClassSet& classes,
                             const std::string& text) {
    const size_t at = text.find_first_of("=!<>~");
    const size_t end = at == std::string::npos ? at : text.find_first_not_of("=!<>~", at);
    const std::string found =
        at == std::string::npos ? "" : text.substr(at, end == std::string::npos ? end : end - at);
    static const std::vector<std::string> known = {"=", "!=", "<", "<=", ">", ">=", "~", "=="};
    if (std::find(known.begin(), known.end(), found) == known.end() || at == 0) {
        throw ClientError(ExitCode::Usage, "usage",
                          "\"" + printable(text, 200) + "\" is no condition", ConditionHint);
    }
    op = found == "==" ? "=" : found;
    left.emplace(session, classes, trimmed(text.substr(0, at)));
    const std::string value = end == std::string::npos ? "" : trimmed(text.substr(end));
    right = unquoted(value);
    number = numberOf(right);
    isObject = value == right && (right == "null" || startsWith(right, "0x") || right[0] == '@');
    object = isObject && right != "null" ? session.rowOf(right) : 0;
}

bool HeapCondition::takesReference(const HeapModel& model, int row) const {
    if (isObject) {
        return op == "=" ? row == object : op == "!=" && row != object;
    }
    if (row == 0) {
        return op == "!=";
    }
    std::string text;
    const bool isString = model.stringValue(row, text);
    if (op == "~") {
        return classNameMatches(right, isString ? text : model.classNameOf(row));
    }
    return isString ? compares(op, text.compare(right)) : op == "!=";
}

bool HeapCondition::takes(const HeapSession& session, int row) const {
    const HeapValue value = left->of(session, row);
    if (value.type == 0) {
        return false;
    }
    if (value.isReference()) {
        return takesReference(session.model(), value.row);
    }
    if (op == "~") {
        return classNameMatches(right, heapValueText(session.model(), value));
    }
    if (!number) {
        return op == "!=";
    }
    const long double own = value.number();
    return own == own ? compares(op, own < *number ? -1 : own > *number ? 1 : 0) : op == "!=";
}

} // namespace vdk
