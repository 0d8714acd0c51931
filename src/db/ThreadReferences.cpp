#include "db/ThreadReferences.h"

#include "db/DB.h"

#include <climits>

namespace {

// The numbers in question, with their bounds ahead of the look-up: most rows name other threads.
class Candidates {
public:
    explicit Candidates(ZSet<int>* numbers) : trns(numbers), first(INT_MAX), last(0) {
        for (int slot = 0; slot < trns->getCapacity(); slot++) {
            if (trns->isFull(slot)) {
                const int trn = trns->keyAt(slot);
                first = trn < first ? trn : first;
                last = trn > last ? trn : last;
            }
        }
    }
    void isNamed(int trn) {
        if (trn >= first && trn <= last && trn != 0) {
            trns->remove(trn);
        }
    }

private:
    ZSet<int>* trns;
    int first;
    int last;
};

template <typename T>
constexpr bool namesThreads() {
    for (const TableField& field : RecordTraits<T>::fields) {
        if (field.meaning == THREAD_NUMBER && RecordTraits<T>::slot != SLOT_Thread) {
            return true;
        }
    }
    return false;
}

template <typename T>
long visitTable(Candidates& candidates, DBTable<T>* table) {
    if constexpr (namesThreads<T>()) {
        return table->eachSlot([&](const T& record) {
            // A deleted row may keep what it was about.
            if (record.stamp <= 0) {
                return;
            }
            RecordTraits<T>::eachField(record, [&](int number, const auto& value) {
                if constexpr (std::is_same<decltype(value), const int&>::value) {
                    if (RecordTraits<T>::fields[number].meaning == THREAD_NUMBER) {
                        candidates.isNamed(value);
                    }
                }
            });
        });
    }
    return 0;
}

long visitUserTable(Candidates& candidates, UserTable* table) {
    const int columns[] = {table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_THREAD),
                           table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_THREAD_END)};
    if (columns[0] < 0 && columns[1] < 0) {
        return 0;
    }
    long visited = 0;
    // Open rows, with a negative stamp until they are long enough to be shown, count too.
    table->getRows().eachRow([&](int, const int* row) {
        for (int column : columns) {
            if (column >= 0) {
                candidates.isNamed(table->getIntColumn(row, column));
            }
        }
        visited++;
    });
    return visited;
}

} // namespace

long removeNamedThreads(DB* db, ZSet<int>* trns) {
    Candidates candidates(trns);
    long visited = 0;
#define VDK_VISIT_TABLE(slot, base, member, tableName, firstIndex, capacity, size)                 \
    visited += visitTable(candidates, db->member);
    VDK_TABLES(VDK_VISIT_TABLE)
#undef VDK_VISIT_TABLE
    for (int slot = FIRST_USER_TABLE; slot < MAX_TABLE_COUNT; slot++) {
        UserTable* table = db->getUserTable(slot);
        visited += table == nullptr ? 0 : visitUserTable(candidates, table);
    }
    return visited;
}
