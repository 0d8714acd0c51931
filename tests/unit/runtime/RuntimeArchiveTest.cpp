// The archive that the library carries, and its reader on damaged archives.
#include "runtime/RuntimeArchive.h"

#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

void append(Bytes* out, unsigned long value, int size) {
    for (int i = 0; i < size; i++) {
        out->push_back(static_cast<unsigned char>(value >> (8 * i)));
    }
}

// A stored entry, its sizes and name length as given.
void appendEntry(Bytes* out, const std::string& name, const std::string& content) {
    append(out, 0x04034b50, 4);
    append(out, 10, 2);
    append(out, 0, 2); // flags
    append(out, 0, 2); // method
    append(out, 0, 8); // time, date, crc
    append(out, static_cast<unsigned>(content.size()), 4);
    append(out, static_cast<unsigned>(content.size()), 4);
    append(out, static_cast<unsigned>(name.size()), 2);
    append(out, 0, 2); // extra field
    out->insert(out->end(), name.begin(), name.end());
    out->insert(out->end(), content.begin(), content.end());
}

Bytes makeArchive() {
    Bytes archive;
    appendEntry(&archive, "a/One.class", "first");
    appendEntry(&archive, "META-INF/MANIFEST.MF", "manifest");
    appendEntry(&archive, ".class", "no name");
    appendEntry(&archive, "b/Two.class", "");
    append(&archive, 0x02014b50, 4);
    return archive;
}

// Names and contents of the classes, and whether the walk ended as it should.
std::string walk(const Bytes& archive) {
    RuntimeArchiveIterator classes(archive.data(), static_cast<int>(archive.size()));
    std::string result;
    while (classes.next()) {
        result += std::string(classes.name()) + "=" +
                  std::string(reinterpret_cast<const char*>(classes.bytes()),
                              static_cast<size_t>(classes.length())) +
                  ";";
    }
    return result + (classes.isBroken() ? "broken" : "end");
}

} // namespace

TEST(RuntimeArchive, holdsCallbackFirstAndEveryClassOnce) {
    RuntimeArchiveIterator classes;
    std::set<std::string> names;
    ASSERT_TRUE(classes.next());
    EXPECT_STREQ("com/vandrik/runtime/Callback", classes.name());
    ASSERT_EQ(ourCallbackBytecodeSize, classes.length());
    EXPECT_EQ(0,
              memcmp(ourCallbackBytecode, classes.bytes(), static_cast<size_t>(classes.length())));
    EXPECT_EQ(0, ourCallbackBytecode[ourCallbackBytecodeSize]);
    do {
        EXPECT_TRUE(names.insert(classes.name()).second) << classes.name();
        EXPECT_EQ(0, memcmp("\xca\xfe\xba\xbe", classes.bytes(), 4)) << classes.name();
    } while (classes.next());
    EXPECT_FALSE(classes.isBroken());
    for (const char* name : {"com/vandrik/runtime/Core", "com/vandrik/runtime/ControlSocket",
                             "com/vandrik/probes/builtin/Messages"}) {
        EXPECT_EQ(1u, names.count(name)) << name;
    }
}

TEST(RuntimeArchiveIterator, givesClassesAndPassesOverTheRest) {
    EXPECT_EQ("a/One=first;b/Two=;end", walk(makeArchive()));
}

TEST(RuntimeArchiveIterator, saysWhereverAnArchiveIsCut) {
    const Bytes whole = makeArchive();
    for (size_t length = 0; length < whole.size(); length++) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<long>(length));
        const std::string seen = walk(cut);
        EXPECT_EQ("broken", seen.substr(seen.size() - 6)) << "cut at " << length;
    }
}

TEST(RuntimeArchiveIterator, refusesWhatTheBuildNeverWrites) {
    const struct {
        const char* what;
        size_t offset;
        unsigned char value;
    } cases[] = {
        {"compressed entry", 8, 8},         {"sizes behind the content", 6, 8},
        {"sizes that differ", 18, 4},       {"size above the archive", 25, 0x7f},
        {"negative size", 25, 0xff},        {"name above the archive", 27, 0xff},
        {"extra field above it", 29, 0xff}, {"another signature", 3, 0},
    };
    for (const auto& row : cases) {
        Bytes archive = makeArchive();
        archive[row.offset] = row.value;
        if (row.offset == 25) {
            archive[21] = row.value; // the compressed size alike
        }
        EXPECT_EQ("broken", walk(archive)) << row.what;
    }
}

TEST(RuntimeArchiveIterator, refusesNamesLongerThanItsBuffer) {
    Bytes archive;
    appendEntry(&archive, std::string(250, 'x') + ".class", "content");
    append(&archive, 0x02014b50, 4);
    EXPECT_EQ("broken", walk(archive));
}
