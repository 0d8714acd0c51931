// Configuration files: named, default and missing ones.
#include "core/ground/ConfigFile.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

namespace {

class ConfigFile : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/vdk-config-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        directory = pattern;
    }
    void TearDown() override { ASSERT_EQ(0, system(("rm -rf " + directory).c_str())); }
    std::string write(const std::string& content) {
        const std::string path = directory + "/file";
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    std::string directory;
};

} // namespace

TEST_F(ConfigFile, namedFileGivesItsWholeContent) {
    const std::string content(100000, 'c');
    const std::string path = write(content + "\nend");
    EXPECT_STREQ((content + "\nend").c_str(),
                 readConfigFromFile(path.c_str(), ".none", "fallback").c_str());
}

TEST_F(ConfigFile, emptyFileIsNotAMissingOne) {
    EXPECT_STREQ("", readConfigFromFile(write("").c_str(), ".none", "fallback").c_str());
}

TEST_F(ConfigFile, missingNamedFileGivesTheFallback) {
    const ZString path((directory + "/missing").c_str());
    EXPECT_STREQ("fallback", readConfigFromFile(path, ".none", "fallback").c_str());
}

TEST_F(ConfigFile, directoryInPlaceOfTheFileGivesTheFallback) {
    EXPECT_STREQ("fallback", readConfigFromFile(directory.c_str(), ".none", "fallback").c_str());
}

TEST_F(ConfigFile, withoutANameTheDefaultFileIsLookedForInTheHome) {
    EXPECT_STREQ("fallback", readConfigFromFile("", ".no-such-vdk-config", "fallback").c_str());
}

TEST_F(ConfigFile, mkdirsMakesEveryPartAndIgnoresWhatIsThere) {
    const ZString path((directory + "/a/b/c").c_str());
    mkdirs(path);
    mkdirs(path);
    struct stat status;
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_TRUE(S_ISDIR(status.st_mode));
}
