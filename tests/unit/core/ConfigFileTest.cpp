// Configuration files: named, default and missing ones.
#include "core/ground/ConfigFile.h"

#include "TempDir.h"

#include <gtest/gtest.h>

TEST(ConfigFile, namedFileGivesItsWholeContentAndAMissingOneTheFallback) {
    TempDir dir;
    const std::string content = std::string(100000, 'c') + "\nend";
    dir.write("file", content);
    dir.write("empty", "");
    const struct {
        std::string path;
        std::string expected;
    } cases[] = {
        {dir.file("file"), content}, {dir.file("empty"), ""}, {dir.file("missing"), "fallback"},
        {dir.path, "fallback"},      {"", "fallback"}, // the default file, in the user's home
    };
    for (const auto& c : cases) {
        const ZString found = readConfigFromFile(c.path.c_str(), ".no-such-vdk-config", "fallback");
        EXPECT_EQ(c.expected, found.c_str()) << c.path;
    }
}

TEST(ConfigFile, mkdirsMakesEveryPartAndIgnoresWhatIsThere) {
    TempDir dir;
    const ZString path(dir.file("a/b/c").c_str());
    mkdirs(path);
    mkdirs(path);
    EXPECT_TRUE(std::filesystem::is_directory(path.c_str()));
}
