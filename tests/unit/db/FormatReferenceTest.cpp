// The reference of tables and fields in docs/format-tables.md is made from the record catalogue.

#include "SourceFolder.h"
#include "TempDir.h"
#include "db/Records.h"
#include "db/SnapshotCommon.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>

namespace {
const char* typeName(FieldType type) {
    return type == FIELD_LONG   ? "long"
           : type == FIELD_TEXT ? "string"
           : type == FIELD_TELE ? "17 ints"
                                : "int";
}

std::string meaningName(FieldMeaning meaning) {
    const std::map<FieldMeaning, const char*> names = {
        {STRING_ROW, "row of `string`, 0 for none: "},
        {STRING_OR_NUMBER, "row of `string`, or a plain number: "},
        {FRAME_ROW, "row of `frame`: "},
        {FRAME_LINK, "row of `frame`, -1 for none: "},
        {METHOD_ROW, "row of `method`: "},
        {THREAD_NUMBER, "thread number: "},
        {THREAD_INDEX, "thread key: "},
    };
    const auto found = names.find(meaning);
    return found == names.end() ? "" : found->second;
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
} // namespace

TEST(FormatReference, documentFollowsTheCatalogueAndNamesTheMagicAndTags) {
    const std::string path = sourceFolder() + "/docs/format-tables.md";
    std::string text = TempDir::read(path);
    const size_t start = text.find("-->\n", text.find("<!-- generated")) + 4;
    const size_t end = text.find("<!-- end -->");
    ASSERT_NE(std::string::npos, end) << path;
    if (getenv("VDK_UPDATE_DOCS") != nullptr) {
        text.replace(start, end - start, reference());
        std::ofstream(path) << text;
        return;
    }
    EXPECT_EQ(reference(), text.substr(start, end - start));
    const std::string magic(SNAPSHOT_MAGIC, SNAPSHOT_MAGIC_SIZE - 2);
    EXPECT_NE(std::string::npos, text.find('"' + magic + "\", byte 0A, byte 1A"));
    for (int tag : {SNAPSHOT_FORMAT_BYTE, SNAPSHOT_USER_TABLE_TAG, SNAPSHOT_HEAP_TAG,
                    SNAPSHOT_TABLE_TAG, SNAPSHOT_CLOSING_TAG}) {
        EXPECT_NE(std::string::npos, text.find("byte " + std::to_string(tag)));
    }
}
