#include "probes/Filter.h"

#include "core/ground/ConfigFile.h"
#include "core/ground/FilteredMethods.h"
#include "core/ground/Options.h"
#include "core/ground/WildcardMatch.h"
#include "db/DB.h"
#include "probes/FilterDefaults.h"
#include "probes/SignatureUtil.h"

#include <cstdlib>
#include <cstring>
#include <new>

// Never destroyed: threads may run to the very end of the process.
ZVector<Filter*>& Filter::ourFilters = *new ZVector<Filter*>();
bool Filter::ourWithInclusiveFilters = false;
std::atomic<bool> Filter::ourHasWallTime{false};

namespace {
constexpr int CLASS_NAME_FILTER_CAPACITY = 16;

// A copy of the pattern, or null for one that matches anything.
char* storedPattern(const char* pattern) {
    if (pattern == nullptr || strcmp(pattern, "*") == 0 || strcmp(pattern, "**") == 0) {
        return nullptr;
    }
    char* copy = strdup(pattern);
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    return copy;
}

bool matchesString(const char* pattern, int stringIndex) {
    if (pattern == nullptr) {
        return true;
    }
    const char* text = ourDB->stringPool->getText(stringIndex);
    return wildcardMatch(pattern, text == nullptr ? "" : text);
}

void deleteFilters(ZVector<Filter*>& filters) {
    for (int i = 0; i < filters.getSize(); i++) {
        delete filters.get(i);
    }
    filters.clear();
}

void addLines(ZString& text, const FilterAddition* additions, int count) {
    for (int i = 0; i < count; i++) {
        text.append(additions[i].line);
        text.append("\n");
    }
}

ZString defaultFilterSpec() {
    ZString text = getDefaultGeneralFilterText() + "\n";
    addLines(text, ourGeneralFilterAdditions, ourGeneralFilterAdditionCount);
    return text;
}

void pushWaitFilters(const WaitMethod* methods, int count) {
    for (int i = 0; i < count; i++) {
        Filter::ourFilters.push(
            new Filter(FILTER_TYPE_WAIT, methods[i].className, methods[i].methodName, nullptr));
    }
}
} // namespace

Filter::Filter(int filterType, const char* className, const char* methodName,
               const char* parameters)
    : classPattern(nullptr), methodPattern(nullptr), parametersPattern(nullptr), type(filterType) {
    Logger::assertNotNULL(className, VDK_HERE);
    classPattern = storedPattern(className);
    methodPattern = storedPattern(methodName);
    parametersPattern = storedPattern(parameters);
}

Filter::~Filter() {
    free(classPattern);
    free(methodPattern);
    free(parametersPattern);
}

bool Filter::accept(const MethodRecord& record) const {
    return matchesString(classPattern, record.classNameStrID) &&
           matchesString(methodPattern, record.methodNameStrID) &&
           matchesString(parametersPattern, record.parametersStrID);
}

void Filter::applyFilters(int method) {
    MethodRecord* const record = ourDB->methodTable->getRecord(method, true);
    Logger::assertNotNULL(record, VDK_HERE);
    bool hit[FILTER_TYPE_WAIT + 1] = {};
    const bool& wallTime = hit[FILTER_TYPE_WALL_TIME];
    const bool& excluded = hit[FILTER_TYPE_EXCLUDE];
    const bool& included = hit[FILTER_TYPE_INCLUDE];
    bool& wait = hit[FILTER_TYPE_WAIT];
    for (int i = 0; i < ourFilters.getSize(); i++) {
        const Filter* filter = ourFilters.get(i);
        bool& hitOfType = hit[filter->type];
        hitOfType = hitOfType || filter->accept(*record);
        if (wallTime && wait && (included || (excluded && !ourWithInclusiveFilters))) {
            break;
        }
    }
    // What is measured in wall time is no place to leave out.
    wait = wait && !wallTime;

    const int old = record->flags;
    int flags = old & ~(METHOD_FILTERED | METHOD_WALL_TIME | METHOD_WAIT);
    if (wallTime) {
        flags |= METHOD_WALL_TIME;
    } else if (excluded && !included && (old & METHOD_HAS_PROBE) == 0) {
        flags |= METHOD_FILTERED;
    }
    if (wait) {
        flags |= METHOD_WAIT;
    }
    FilteredMethods::set(method, (flags & METHOD_FILTERED) != 0);
    if (flags != old) {
        // Read by traced methods without the lock.
        __atomic_store_n(&record->flags, flags, __ATOMIC_RELAXED);
        record->stamp = ourDB->currentStamp;
    }
}

Filter* createFilter(const ZString& text, int type) {
    ZString line = text;
    if (!line.contains(":")) {
        line.append(":*(*)");
    }
    ZString className;
    ZString methodName;
    ZString parameters;
    ZString returnType;
    ZString classAnnotation;
    ZString methodAnnotation;
    const ZString error = SignatureUtil::parseMethodPattern(
        line, className, methodName, parameters, returnType, classAnnotation, methodAnnotation);
    if (!error.isEmpty()) {
        Logger::message(ZString("*** WARNING! *** Invalid filter specification '") + text +
                        "': " + error);
        return nullptr;
    }
    if (Options::isDebug("filters")) {
        Logger::message(ZString("filter: type=") + longToString(type) + " " + className + " " +
                        methodName + " " + parameters);
    }
    return new Filter(type, className.c_str(), methodName.c_str(), parameters.c_str());
}

void Filter::createGeneralFiltersImpl(const ZString& text, ZVector<Filter*>* vector) {
    Logger::assertNotNULL(vector, VDK_HERE);
    ZVectorSafe<ZString> lines;
    text.split("\n", lines);
    for (int i = 0; i < lines.getSize(); i++) {
        ZString line = lines.get(i);
        int type = FILTER_TYPE_EXCLUDE;
        if (line.startsWith("#")) {
            continue;
        }
        if (line.startsWith("+")) {
            type = FILTER_TYPE_INCLUDE;
            line = line.substring(1);
        }
        Filter* filter = line.isEmpty() ? nullptr : createFilter(line, type);
        if (filter != nullptr) {
            vector->push(filter);
        }
    }
}

void Filter::reloadFilters(const ZString& generalText, const ZString& wallTimeText) {
    deleteFilters(ourFilters);
    ourWithInclusiveFilters = false;
    createGeneralFiltersImpl(generalText, &ourFilters);
    ZVectorSafe<ZString> lines;
    wallTimeText.split("\n\r", lines);
    for (int i = 0; i < lines.getSize(); i++) {
        Filter* filter = lines.get(i).startsWith("#")
                             ? nullptr
                             : createFilter(lines.get(i), FILTER_TYPE_WALL_TIME);
        if (filter != nullptr) {
            ourFilters.push(filter);
        }
    }
    bool hasWallTime = false;
    for (int i = 0; i < ourFilters.getSize(); i++) {
        hasWallTime = hasWallTime || ourFilters.get(i)->type == FILTER_TYPE_WALL_TIME;
    }
    ourHasWallTime = hasWallTime;
    pushWaitFilters(ourWaitMethods, ourWaitMethodCount);
    pushWaitFilters(ourWaitMethodAdditions, ourWaitMethodAdditionCount);
    for (int i = 0; i < ourFilters.getSize() && !ourWithInclusiveFilters; i++) {
        ourWithInclusiveFilters = ourFilters.get(i)->type == FILTER_TYPE_INCLUDE;
    }
    ourDB->methodTable->eachRecord([](int method, MethodRecord& record) {
        if (record.stamp > 0) {
            applyFilters(method);
        }
    });
}

ZString getDefaultGeneralFilterText() {
    ZString text;
    for (int i = 0; i < ourDefaultGeneralFilterCount; i++) {
        if (i > 0) {
            text.append("\n");
        }
        text.append(ourDefaultGeneralFilters[i]);
    }
    return text;
}

ZString getDefaultWallTimeText() {
    return ZString(ourDefaultWallTimeText);
}

ZString Filter::readFilterSpecFromFile(const ZString& path) {
    return readConfigFromFile(path, ".filters", defaultFilterSpec().c_str());
}

bool Filter::isDefaultFilterSpec(const ZString& text) {
    return text == defaultFilterSpec();
}

ZString Filter::readWallTimeSpecFromFile(const ZString& path) {
    ZString fallback = getDefaultWallTimeText();
    addLines(fallback, ourWallTimeAdditions, ourWallTimeAdditionCount);
    return readConfigFromFile(path, ".walltime", fallback.c_str());
}

ClassNameFilter::ClassNameFilter(const ZString& text)
    : ZVector<Filter*>(CLASS_NAME_FILTER_CAPACITY) {
    Filter::createGeneralFiltersImpl(text, this);
}

ClassNameFilter::~ClassNameFilter() {
    deleteFilters(*this);
}

bool ClassNameFilter::isFilteredClassName(const ZString& name) const {
    bool excluded = false;
    for (int i = 0; i < getSize(); i++) {
        const Filter* filter = get(i);
        if (excluded && filter->getType() != FILTER_TYPE_INCLUDE) {
            continue;
        }
        if (wildcardMatch(filter->getClassPattern(), name.c_str())) {
            if (filter->getType() == FILTER_TYPE_INCLUDE) {
                return false;
            }
            excluded = true;
        }
    }
    return excluded;
}
