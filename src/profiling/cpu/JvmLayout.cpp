#include "profiling/cpu/JvmLayout.h"

#include "core/jvm/JvmGlobals.h"

#include <cstring>
#include <dlfcn.h>

namespace {

const uint64_t MOST_BYTES = 1 << 16;

// A number that the JVM exports; 0 without it.
uint64_t exportedNumber(const char* name) {
    const void* const place = JvmLayout::findExported(name);
    uint64_t number = 0;
    if (place != nullptr) {
        memcpy(&number, place, sizeof(number));
    }
    return number;
}

// One of the JVM's tables: entries of texts and numbers, ended by one without a type.
class Table {
public:
    Table(const char* name, const char* typeOffset, const char* strideName)
        : first(reinterpret_cast<const char*>(exportedNumber(name))),
          typeAt(exportedNumber(typeOffset)), stride(exportedNumber(strideName)) {}

    // The first entry of the type for which isWanted(entry) is true; null without one.
    template <typename Predicate>
    const char* find(const char* type, Predicate&& isWanted) const {
        for (const char* entry = first; entry != nullptr && stride != 0; entry += stride) {
            const char* const typeName = textAt(entry + typeAt);
            if (typeName == nullptr) {
                break;
            }
            if (strcmp(typeName, type) == 0 && isWanted(entry)) {
                return entry;
            }
        }
        return nullptr;
    }

    static const char* textAt(const char* place) {
        const char* text = nullptr;
        memcpy(&text, place, sizeof(text));
        return text;
    }

    static uint64_t numberAt(const char* place) {
        uint64_t number = 0;
        memcpy(&number, place, sizeof(number));
        return number;
    }

private:
    const char* first;
    uint64_t typeAt;
    uint64_t stride;
};

const char* findField(const char* type, const char* field) {
    const uint64_t fieldAt = exportedNumber("gHotSpotVMStructEntryFieldNameOffset");
    const Table fields("gHotSpotVMStructs", "gHotSpotVMStructEntryTypeNameOffset",
                       "gHotSpotVMStructEntryArrayStride");
    return fields.find(type, [&](const char* entry) {
        const char* const name = Table::textAt(entry + fieldAt);
        return name != nullptr && strcmp(name, field) == 0;
    });
}

ptrdiff_t checked(const char* entry, const char* offsetName) {
    const uint64_t bytes =
        entry == nullptr ? MOST_BYTES : Table::numberAt(entry + exportedNumber(offsetName));
    return bytes < MOST_BYTES ? static_cast<ptrdiff_t>(bytes) : JvmLayout::UNKNOWN;
}

} // namespace

void* JvmLayout::findExported(const char* name) {
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(ourVM->functions->GetEnv), &info) == 0) {
        return nullptr;
    }
    // It stays loaded: the handle is never closed.
    void* const library = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    return library == nullptr ? nullptr : dlsym(library, name);
}

ptrdiff_t JvmLayout::offsetOf(const char* type, const char* field) {
    return checked(findField(type, field), "gHotSpotVMStructEntryOffsetOffset");
}

const void* JvmLayout::addressOf(const char* type, const char* field) {
    const char* const entry = findField(type, field);
    return entry == nullptr
               ? nullptr
               : Table::textAt(entry + exportedNumber("gHotSpotVMStructEntryAddressOffset"));
}

ptrdiff_t JvmLayout::sizeOf(const char* type) {
    const Table types("gHotSpotVMTypes", "gHotSpotVMTypeEntryTypeNameOffset",
                      "gHotSpotVMTypeEntryArrayStride");
    return checked(types.find(type, [](const char*) { return true; }),
                   "gHotSpotVMTypeEntrySizeOffset");
}
