// Objects grouped by what their class belongs to: its loader, or its package.
#pragma once

#include "client/heap/HeapSession.h"

#include <functional>
#include <string>
#include <vector>

namespace vdk {

// Group 0 is the JVM's own loader. A class object belongs to the loader of the class that it is.
class LoaderGroups {
public:
    explicit LoaderGroups(const HeapModel& model);

    size_t count() const { return rows.size(); }
    int rowOf(size_t group) const { return rows[group]; } // of the loader, 0 for the JVM's own
    int64_t classesOf(size_t group) const { return classes[group]; }
    std::function<int(int row)> functionOf() const;

private:
    const HeapModel& model;
    std::vector<int> rows;
    std::vector<int64_t> classes;
    std::vector<int> groupOfClass;
};

// Group 0 has no package: primitive arrays and classes without one.
class PackageGroups {
public:
    explicit PackageGroups(const HeapModel& model);

    size_t count() const { return names.size(); }
    const std::string& nameOf(size_t group) const { return names[group]; }
    std::function<int(int row)> functionOf() const;

private:
    const HeapModel& model;
    std::vector<std::string> names;
    std::vector<int> groupOfClass;
};

} // namespace vdk
