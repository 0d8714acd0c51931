// compare_heaps A B PREFIX: whether two files hold the same heap, as far as the classes whose names
// begin with PREFIX lead. Objects of the two are matched one by one, from the class objects along
// the names of fields and the indices of arrays; each pair must be of one class and hold the same
// values. Prints the number of pairs, and every difference on a line of its own.
#include "db/ByteReader.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/HprofReader.h"
#include "heapfile/SnapshotHeapReader.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace {

using Model = std::unique_ptr<HeapModel>;

Model readHeap(const char* path) {
    auto file = std::make_shared<MappedFile>(path, "");
    HeapReadOptions options;
    return SnapshotHeapReader::isSnapshot(file->data(), file->size())
               ? SnapshotHeapReader::read(file, options)
               : HprofReader::read(file, options);
}

class Comparison {
public:
    Comparison(Model first, Model second, std::string classPrefix)
        : a(std::move(first)), b(std::move(second)), prefix(std::move(classPrefix)) {}

    // Number of differences.
    int run() {
        std::map<std::string, std::vector<int>> bClasses;
        for (const HeapClass& type : b->classes) {
            bClasses[plainName(type.name)].push_back(type.row);
        }
        for (const HeapClass& type : a->classes) {
            const std::vector<int>& same = bClasses[plainName(type.name)];
            // Those of several loaders are met on the way.
            if (isOurs(type.name) && same.size() == 1) {
                match(type.row, same[0], type.name);
            }
        }
        while (!open.empty()) {
            const Pair pair = open.front();
            open.pop_front();
            compare(pair);
        }
        compareCounts();
        printf("%zu pairs, %d differences\n", partner.size(), differences);
        return differences;
    }

private:
    struct Pair {
        int a;
        int b;
        std::string path;
    };

    bool isOurs(const std::string& name) const {
        return name.compare(0, prefix.size(), prefix) == 0;
    }
    void differ(const std::string& path, const std::string& what) {
        if (differences++ < 40) {
            printf("%s: %s\n", path.c_str(), what.c_str());
        }
    }
    // The JVM's tools write the number of a hidden class behind a dot or behind a slash.
    static std::string plainName(std::string name) {
        std::replace(name.begin(), name.end(), '/', '.');
        return name;
    }
    static std::string nameOfClassObject(const HeapModel& model, int row) {
        const int index = model.classByRow(row);
        return index < 0 ? "" : plainName(model.classes[static_cast<size_t>(index)].name);
    }
    // Where the rest of the JVM begins, which does not stand still.
    bool isBorder(int row) const {
        const std::string& name = a->classNameOf(row);
        return (a->isClass(row) && !isOurs(nameOfClassObject(*a, row))) ||
               name.find("ClassLoader") != std::string::npos ||
               name.find("java.lang.Thread") == 0 || name.find("java.lang.ref.") == 0 ||
               name.find("java.lang.invoke.") == 0 || name.find("java.security.") == 0;
    }
    void match(int aRow, int bRow, const std::string& path) {
        if ((aRow == 0) != (bRow == 0)) {
            differ(path, aRow == 0 ? "null in the first only" : "null in the second only");
            return;
        }
        if (aRow == 0) {
            return;
        }
        const auto known = partner.find(aRow);
        if (known != partner.end()) {
            if (known->second != bRow) {
                differ(path, "matched with another object before");
            }
            return;
        }
        // The JVM's own dump does not tell the class objects of primitive types apart.
        const bool bothClassObjects =
            a->classNameOf(aRow) == "java.lang.Class" && b->classNameOf(bRow) == "java.lang.Class";
        if (bothClassObjects && nameOfClassObject(*a, aRow).empty()) {
            partner[aRow] = bRow;
            return;
        }
        if (plainName(a->classNameOf(aRow)) != plainName(b->classNameOf(bRow)) ||
            nameOfClassObject(*a, aRow) != nameOfClassObject(*b, bRow)) {
            differ(path, a->classNameOf(aRow) + " " + nameOfClassObject(*a, aRow) + " and " +
                             b->classNameOf(bRow) + " " + nameOfClassObject(*b, bRow));
            return;
        }
        partner[aRow] = bRow;
        if (!isBorder(aRow)) {
            open.push_back({aRow, bRow, path});
        }
    }
    void compare(const Pair& pair) {
        if (a->isClass(pair.a)) {
            compareStatics(pair);
        } else if (a->storage->getArrayLength(pair.a) >= 0) {
            compareArrays(pair);
        } else {
            compareFields(pair);
        }
    }
    // References of a row by name; fields of one name of several classes get a number.
    static std::map<std::string, int> references(const HeapModel& model, int row) {
        std::map<std::string, int> result;
        for (int i = 0; i < model.storage->getRefCount(row); i++) {
            std::string name = model.referenceName(row, i);
            const int to = model.storage->getRef(row, i);
            if (name[0] == '<' && name != "<class>") {
                continue; // loaders, constants and what has no name
            }
            result[name] = to;
        }
        return result;
    }
    void compareStatics(const Pair& pair) {
        const auto& first = a->classes[static_cast<size_t>(a->classByRow(pair.a))];
        const auto& second = b->classes[static_cast<size_t>(b->classByRow(pair.b))];
        std::map<std::string, std::pair<char, uint64_t>> values;
        for (const HeapStaticField& field : second.statics) {
            values[field.name] = {field.type, field.bits};
        }
        size_t declared = 0;
        for (const HeapStaticField& field : first.statics) {
            if (field.name[0] == '<') {
                continue; // what a JVM's dump shows beyond the fields
            }
            declared++;
            const auto found = values.find(field.name);
            if (found == values.end()) {
                differ(pair.path + "." + field.name, "no such static field in the second");
            } else if (field.type != 'L' &&
                       (field.type != found->second.first || field.bits != found->second.second)) {
                differ(pair.path + "." + field.name, "static values " + std::to_string(field.bits) +
                                                         " and " +
                                                         std::to_string(found->second.second));
            }
        }
        if (declared != second.statics.size()) {
            differ(pair.path, "numbers of static fields");
        }
        const auto inSecond = references(*b, pair.b);
        for (const auto& entry : references(*a, pair.a)) {
            const auto found = inSecond.find(entry.first);
            // One that is null, or whose class has a null one, has no name in a snapshot.
            if (found != inSecond.end()) {
                match(entry.second, found->second, pair.path + "." + entry.first);
            }
        }
    }
    void compareArrays(const Pair& pair) {
        const int length = a->storage->getArrayLength(pair.a);
        if (length != b->storage->getArrayLength(pair.b)) {
            differ(pair.path, "lengths");
            return;
        }
        const uint8_t* first = nullptr;
        const uint8_t* second = nullptr;
        uint32_t count = 0;
        char type = 0;
        if (!a->primitiveArray(pair.a, first, count, type)) {
            for (int i = 0; i <= length; i++) {
                match(a->storage->getRef(pair.a, i), b->storage->getRef(pair.b, i),
                      pair.path + (i == 0 ? ".<class>" : "[" + std::to_string(i - 1) + "]"));
            }
            return;
        }
        if (count != 0 && !b->primitiveArray(pair.b, second, count, type)) {
            differ(pair.path, "no elements in the second");
            return;
        }
        for (uint32_t i = 0; i < count; i++) {
            if (a->element(first, i, type) != b->element(second, i, type)) {
                differ(pair.path + "[" + std::to_string(i) + "]", "elements");
                return;
            }
        }
    }
    void compareFields(const Pair& pair) {
        for (int c = a->classOf(pair.a); c >= 0;
             c = a->classes[static_cast<size_t>(c)].superClass) {
            for (const HeapField& field : a->classes[static_cast<size_t>(c)].fields) {
                uint64_t first = 0;
                uint64_t second = 0;
                if (field.type != 'L' &&
                    (!a->primitiveField(pair.a, field.name, first) ||
                     !b->primitiveField(pair.b, field.name, second) || first != second)) {
                    differ(pair.path + "." + field.name,
                           "values " + std::to_string(first) + " and " + std::to_string(second));
                }
            }
        }
        const auto inSecond = references(*b, pair.b);
        const auto inFirst = references(*a, pair.a);
        if (inFirst.size() != inSecond.size()) {
            differ(pair.path, "numbers of references");
        }
        for (const auto& entry : inFirst) {
            const auto found = inSecond.find(entry.first);
            if (found == inSecond.end()) {
                differ(pair.path + "." + entry.first, "no such reference in the second");
            } else {
                match(entry.second, found->second, pair.path + "." + entry.first);
            }
        }
    }
    // Every instance of our classes was met, and sizes agree.
    void compareCounts() {
        std::map<std::string, std::pair<int, int>> unmatched;
        std::map<int, int> back;
        for (const auto& pair : partner) {
            back[pair.second] = pair.first;
        }
        for (int row = 1; row <= a->rowCount(); row++) {
            if (isOurs(a->classNameOf(row)) && partner.count(row) == 0) {
                unmatched[plainName(a->classNameOf(row))].first++;
            }
        }
        for (int row = 1; row <= b->rowCount(); row++) {
            if (isOurs(b->classNameOf(row)) && back.count(row) == 0) {
                unmatched[plainName(b->classNameOf(row))].second++;
            }
        }
        for (const auto& entry : unmatched) {
            if (entry.second.first == entry.second.second) {
                continue; // beyond the border
            }
            differ(entry.first, std::to_string(entry.second.first) + " and " +
                                    std::to_string(entry.second.second) + " instances not met");
        }
        for (const auto& pair : partner) {
            const bool isClassObject = a->classNameOf(pair.first) == "java.lang.Class";
            if (!isClassObject && a->sizeOf(pair.first) != b->sizeOf(pair.second)) {
                differ(a->classNameOf(pair.first),
                       "sizes " + std::to_string(a->sizeOf(pair.first)) + " and " +
                           std::to_string(b->sizeOf(pair.second)));
            }
        }
    }

    Model a;
    Model b;
    std::string prefix;
    std::map<int, int> partner; // rows of the first to rows of the second
    std::deque<Pair> open;
    int differences = 0;
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: compare_heaps A B PREFIX\n");
        return 2;
    }
    try {
        return Comparison(readHeap(argv[1]), readHeap(argv[2]), argv[3]).run() == 0 ? 0 : 1;
    } catch (const HeapReadError& e) {
        fprintf(stderr, "compare_heaps: %s\n", e.what());
    } catch (const BadInputException& e) {
        fprintf(stderr, "compare_heaps: %s\n", e.message.c_str());
    }
    return 2;
}
