// The reference of tables and fields in docs/format-tables.md is made from the record catalogue.

#include "SourceFolder.h"
#include "db/Records.h"
#include "db/SnapshotCommon.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace {
const char* typeName(FieldType type) {
    switch (type) {
    case FIELD_LONG:
        return "long";
    case FIELD_TEXT:
        return "string";
    case FIELD_TELE:
        return "17 ints";
    default:
        return "int";
    }
}

const char* meaningName(FieldMeaning meaning) {
    switch (meaning) {
    case STRING_ROW:
        return "row of `string`, 0 for none: ";
    case STRING_OR_NUMBER:
        return "row of `string`, or a plain number: ";
    case FRAME_ROW:
        return "row of `frame`: ";
    case FRAME_LINK:
        return "row of `frame`, -1 for none: ";
    case METHOD_ROW:
        return "row of `method`: ";
    case THREAD_NUMBER:
        return "thread number: ";
    case THREAD_INDEX:
        return "thread key: ";
    default:
        return "";
    }
}

template <typename T>
void describe(std::ostream& out, int& number) {
    typedef RecordTraits<T> Traits;
    out << "### " << Traits::slot << " `" << Traits::tableName << "`\n\n";
    if (Traits::slot == SLOT_Allocator) {
        out << "In memory only: never part of a stream.\n\n";
    }
    out << "First index " << Traits::firstIndex << ".";
    if (Traits::fieldCount == 0) {
        out << " No field but the stamp.\n\n";
        return;
    }
    out << "\n\n| Field | Type | Number | Meaning |\n|---|---|---|---|\n";
    for (int i = 0; i < Traits::fieldCount; i++) {
        const TableField& field = Traits::fields[i];
        out << "| `" << field.name << "` | " << typeName(field.type) << " | ";
        if (field.type != FIELD_TELE) {
            out << number++;
        }
        out << " | " << meaningName(field.meaning) << field.text << " |\n";
    }
    out << "\n";
}

std::string reference() {
    std::ostringstream out;
    out << "\nThe number of a field is that of `DB::getIntField` and its kin.\n\n";
    int number = 0;
#define VDK_DESCRIBE(slot, base, member, tableName, firstIndex, capacity, size)                    \
    describe<base##Record>(out, number);
    VDK_TABLES(VDK_DESCRIBE)
#undef VDK_DESCRIBE
    out << "### Values of `tele`\n\n| Index | Name | Meaning |\n|---|---|---|\n";
#define VDK_DESCRIBE_VALUE(index, name, text)                                                      \
    out << "| " << index << " | `" << #name << "` | " << text << " |\n";
    VDK_TELEMETRY_VALUES(VDK_DESCRIBE_VALUE)
#undef VDK_DESCRIBE_VALUE
    out << "\n### Flags of `method`\n\n| Bit | Name | Meaning |\n|---|---|---|\n";
#define VDK_DESCRIBE_FLAG(value, name, text)                                                       \
    out << "| " << value << " | `" << #name << "` | " << text << " |\n";
    VDK_METHOD_FLAGS(VDK_DESCRIBE_FLAG)
#undef VDK_DESCRIBE_FLAG
    return out.str();
}

std::string documentPath() {
    return sourceFolder() + "/docs/format-tables.md";
}
} // namespace

TEST(FormatReference, documentFollowsTheCatalogue) {
    std::ifstream file(documentPath());
    ASSERT_TRUE(file.is_open()) << documentPath();
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const size_t start = text.find("-->\n", text.find("<!-- generated")) + 4;
    const size_t end = text.find("<!-- end -->");
    ASSERT_NE(std::string::npos, end);
    if (getenv("VDK_UPDATE_DOCS") != nullptr) {
        text.replace(start, end - start, reference());
        std::ofstream(documentPath()) << text;
        return;
    }
    EXPECT_EQ(reference(), text.substr(start, end - start));
}

TEST(FormatReference, documentNamesTheMagicAndTags) {
    std::ifstream file(documentPath());
    const std::string text((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    const std::string magic(SNAPSHOT_MAGIC, SNAPSHOT_MAGIC_SIZE - 2);
    EXPECT_NE(std::string::npos, text.find('"' + magic + "\", byte 0A, byte 1A"));
    for (int tag : {SNAPSHOT_FORMAT_BYTE, SNAPSHOT_USER_TABLE_TAG, SNAPSHOT_HEAP_TAG,
                    SNAPSHOT_TABLE_TAG, SNAPSHOT_CLOSING_TAG}) {
        EXPECT_NE(std::string::npos, text.find("byte " + std::to_string(tag)));
    }
}
