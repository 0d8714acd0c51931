#include "client/heap/reports/LoaderGroups.h"

#include <map>
#include <unordered_map>

namespace vdk {

namespace {

int ownClass(const HeapModel& model, int row) {
    const int asClass = model.classByRow(row);
    return asClass >= 0 ? asClass : model.classOf(row);
}

} // namespace

LoaderGroups::LoaderGroups(const HeapModel& model) : model(model), rows(1, 0), classes(1, 0) {
    std::unordered_map<int, int> known = {{0, 0}};
    for (size_t i = 0; i < model.classes.size(); i++) {
        const int loader = model.loaderOf(int(i));
        const auto added = known.try_emplace(loader, int(rows.size()));
        if (added.second) {
            rows.push_back(loader);
            classes.push_back(0);
        }
        groupOfClass.push_back(added.first->second);
        classes[size_t(added.first->second)] += model.classes[i].row <= model.lastRowWithId;
    }
}

std::function<int(int row)> LoaderGroups::functionOf() const {
    return [this](int row) {
        const int type = ownClass(model, row);
        return type < 0 ? 0 : groupOfClass[size_t(type)];
    };
}

PackageGroups::PackageGroups(const HeapModel& model) : model(model), names(1, "(none)") {
    std::map<std::string, int> known;
    for (const HeapClass& type : model.classes) {
        const size_t end = type.name.find_last_of('.');
        const auto added = end == std::string::npos
                               ? std::make_pair(known.end(), false)
                               : known.try_emplace(type.name.substr(0, end), int(names.size()));
        if (added.second) {
            names.push_back(added.first->first);
        }
        groupOfClass.push_back(added.first == known.end() ? 0 : added.first->second);
    }
}

std::function<int(int row)> PackageGroups::functionOf() const {
    return [this](int row) {
        const int type = ownClass(model, row);
        return type < 0 ? 0 : groupOfClass[size_t(type)];
    };
}

} // namespace vdk
