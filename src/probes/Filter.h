#pragma once

#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

#include <atomic>

struct MethodRecord;

enum FilterType {
    FILTER_TYPE_WALL_TIME = 1, // the method is measured in wall time
    FILTER_TYPE_EXCLUDE = 2,   // the method is filtered out
    FILTER_TYPE_INCLUDE = 3,   // the method is kept although an exclude filter matches
    FILTER_TYPE_WAIT = 4       // the method is a place where a thread waits
};

// Filter: one line of the filter texts, in the notation of method patterns. The global list decides
// over the flag bits of method records, when a record is made and whenever the list is reloaded, so
// that hot paths test a bit and never match a pattern. A filter's return type and annotations are
// ignored.
class Filter {
public:
    // The three patterns as C strings; className must not be null. "*" and "**" become null, which
    // matches anything.
    Filter(int type, const char* className, const char* methodName, const char* parameters);
    ~Filter();
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;

    // True when the three patterns match the record, whose strings are those of ourDB.
    bool accept(const MethodRecord& record) const;

    // Computes METHOD_FILTERED, METHOD_WALL_TIME and METHOD_WAIT of a row of ourDB; stores and
    // stamps it only if they change. Caller holds ourLock.
    static void applyFilters(int method);
    // Replaces the list and recomputes the flags of every method record. Caller holds ourLock.
    static void reloadFilters(const ZString& generalText, const ZString& wallTimeText);
    // Adds the filters of a general text, in its order, to the vector, whose owner deletes them. A
    // bad line is logged and left out.
    static void createGeneralFiltersImpl(const ZString& text, ZVector<Filter*>* vector);
    // The text of a file; of the file ".filters" or ".walltime" in the configuration directory if
    // path is empty; the default text if the file can't be opened.
    static ZString readFilterSpecFromFile(const ZString& path);
    static ZString readWallTimeSpecFromFile(const ZString& path);
    // Whether a general text is the default one, which nobody wrote.
    static bool isDefaultFilterSpec(const ZString& text);

    const char* getClassPattern() const { return classPattern; }
    const char* getMethodPattern() const { return methodPattern; }
    const char* getParametersPattern() const { return parametersPattern; }
    int getType() const { return type; }

    // General lines, then wall-time lines, then the fixed wait filters.
    static ZVector<Filter*>& ourFilters;
    // The list holds an include filter.
    static bool ourWithInclusiveFilters;
    // Whether any method is measured in wall time. Needs no lock.
    static std::atomic<bool> ourHasWallTime;

private:
    char* classPattern; // null for any
    char* methodPattern;
    char* parametersPattern;
    int type;
};

// A filter of one line, or null after a warning in the log.
Filter* createFilter(const ZString& text, int type);

// ClassNameFilter: the filters of a general text, asked about whole classes only.
class ClassNameFilter : public ZVector<Filter*> {
public:
    explicit ClassNameFilter(const ZString& text);
    ~ClassNameFilter() override;
    // An exclude filter's class pattern matches the dotted name, and no include filter's does.
    bool isFilteredClassName(const ZString& name) const;
};

// The texts that hold where no file says otherwise.
ZString getDefaultGeneralFilterText();
ZString getDefaultWallTimeText();
