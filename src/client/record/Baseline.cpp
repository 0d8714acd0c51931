#include "client/record/Baseline.h"

#include "client/profile/Profile.h"
#include "client/profile/UserRows.h"

#include <unordered_map>

namespace vdk {

namespace {

constexpr int OldestFinishedTrn = 1; // the thread that has the data of those ended long ago

struct RowBytes {
    void* row;
    size_t bytes;
};

template <typename T>
RowBytes bytesOf(T& record) {
    return {&record, sizeof(record)};
}

RowBytes bytesOf(const UserTable& table, int* row) {
    return {row, size_t(table.getRowLength()) * sizeof(int)};
}

template <typename T, typename Visitor>
void eachLive(DBTable<T>* table, Visitor visitor) {
    table->eachRecord([&](int index, T& record) {
        if (record.stamp > 0) {
            visitor(index, record);
        }
    });
}

std::unordered_map<int, int> numbersOfThreads(DB& db) {
    std::unordered_map<int, int> numbers;
    eachLive(db.threadTable, [&](int, const ThreadRecord& record) {
        if (record.tfiThreadIndex != 0) {
            numbers[record.tfiThreadIndex] = record.trn;
        }
    });
    return numbers;
}

} // namespace

// Calls visitor(row, stamp, key, first sum, second sum); it may change all but the key.
template <typename Visitor>
void Baseline::eachRow(DB& db, Visitor visitor) {
    const std::unordered_map<int, int> numbers = numbersOfThreads(db);
    const auto eachOfFrame = [&](auto visit) {
        eachLive(db.threadFrameTable, [&](int index, const ThreadFrameRecord& pair) {
            const auto thread = numbers.find(pair.tfiThreadIndex);
            visit(index, thread == numbers.end() ? -pair.tfiThreadIndex : thread->second,
                  pair.frame);
        });
    };
    eachOfFrame([&](int index, int thread, int frame) {
        CPUProfilingRecord* times = db.cpuProfilingTable->getRecord(index, false);
        if (times && times->stamp > 0) {
            visitor(bytesOf(*times), times->stamp, Key{SLOT_CPUProfiling, thread, frame, 0, 0},
                    times->timeNs, times->count);
        }
        AllocInfoRecord* objects = db.allocInfoTable->getRecord(index, false);
        if (objects && objects->stamp > 0) {
            visitor(bytesOf(*objects), objects->stamp, Key{SLOT_AllocInfo, thread, frame, 0, 0},
                    objects->objectBytes, objects->objectCount);
        }
    });
    eachLive(db.j2eeTable, [&](int, J2EERecord& row) {
        visitor(bytesOf(row), row.stamp,
                Key{SLOT_J2EE, row.trn, row.frame, row.nameStrID, row.typeID}, row.timeNs,
                row.count);
    });
    eachLive(db.monitorTable, [&](int, MonitorRecord& row) {
        visitor(bytesOf(row), row.stamp,
                Key{SLOT_Monitor, row.waiterTRN, row.frame, row.ownerTRN, row.classNameStrID},
                row.timeNs, row.count);
    });
    eachLive(db.exceptionTable, [&](int, ExceptionRecord& row) {
        long none = 0;
        visitor(bytesOf(row), row.stamp,
                Key{SLOT_Exception, row.trn, row.throwFrame, row.catchFrame, row.classNameStrID},
                row.count, none);
    });
    eachUserRow(db, SampledCpuTable, SampledCpuColumns,
                [&](const UserTable& table, int* row, const auto& columns) {
                    long used = table.getLongColumn(row, columns[1]);
                    long charged = table.getLongColumn(row, columns[2]);
                    visitor(bytesOf(table, row), row[0],
                            Key{FIRST_USER_TABLE, table.getColumn(row, columns[0]), 0, 0, 0}, used,
                            charged);
                    table.setLongColumn(row, columns[1], used);
                    table.setLongColumn(row, columns[2], charged);
                });
    eachUserRow(db, SampledLinesTable, SampledLinesColumns,
                [&](const UserTable& table, int* row, const auto& columns) {
                    long time = table.getLongColumn(row, columns[3]);
                    long none = 0;
                    visitor(bytesOf(table, row), row[0],
                            Key{FIRST_USER_TABLE, table.getColumn(row, columns[0]),
                                table.getColumn(row, columns[1]), table.getColumn(row, columns[2]),
                                1},
                            time, none);
                    table.setLongColumn(row, columns[3], time);
                });
}

Baseline::Baseline(DB& db) {
    eachRow(db, [&](RowBytes, int, const Key& key, long first, long second) {
        if (first != 0 || second != 0) {
            Sums& sum = sums[key];
            sum.first += first;
            sum.second += second;
        }
    });
}

RowsBefore::~RowsBefore() {
    for (const auto& [row, bytes] : rows) {
        memcpy(row, bytes.data(), bytes.size());
    }
}

void RowsBefore::keep(void* row, size_t bytes) {
    char* start = static_cast<char*>(row);
    rows.emplace_back(start, std::string(start, bytes));
}

void Baseline::takeOff(DB& db, RowsBefore* before) const {
    // Threads that have ended since may have given their rows to the one that collects these.
    std::map<Key, Sums> left = sums;
    const auto reduce = [](long& value, int64_t by) { value = value >= by ? value - by : value; };
    eachRow(db, [&](RowBytes row, int, const Key& key, long& first, long& second) {
        if (before) {
            before->keep(row.row, row.bytes);
        }
        const auto found = left.find(key);
        if (found != left.end()) {
            reduce(first, found->second.first);
            reduce(second, found->second.second);
            left.erase(found);
        }
    });
    std::map<Key, Sums> moved;
    for (const auto& [key, sum] : left) {
        Key collected = key;
        std::get<1>(collected) = OldestFinishedTrn;
        moved[collected].first += sum.first;
        moved[collected].second += sum.second;
    }
    eachRow(db, [&](RowBytes, int& stamp, const Key& key, long& first, long& second) {
        const auto found = moved.find(key);
        if (found != moved.end()) {
            reduce(first, found->second.first);
            reduce(second, found->second.second);
        }
        if (first == 0 && second == 0) {
            stamp = 0;
        }
    });
}

} // namespace vdk
