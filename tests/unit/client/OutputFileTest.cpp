#include "client/console/OutputFile.h"

#include "Expect.h"
#include "TempDir.h"
#include "client/console/Signals.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vdk;

static long filesIn(const std::string& path) {
    return std::distance(std::filesystem::directory_iterator(path), {});
}

TEST(OutputFile, appearsWholeAndOnlyForTheUser) {
    TempDir dir;
    {
        OutputFile file(dir.file("out"));
        file.write("hello", 5);
        file.stream() << " world";
        EXPECT_FALSE(std::filesystem::exists(dir.file("out")));
        EXPECT_EQ(file.size(), 11);
        file.commit();
    }
    EXPECT_EQ(TempDir::read(dir.file("out")), "hello world");
    struct stat info;
    ASSERT_EQ(stat(dir.file("out").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(filesIn(dir.path), 1);
}

TEST(OutputFile, leavesTheOldFileWhenAbandoned) {
    TempDir dir;
    dir.write("out", "old");
    OutputFile(dir.file("out")).write("new", 3);
    EXPECT_EQ(TempDir::read(dir.file("out")), "old");
    EXPECT_EQ(filesIn(dir.path), 1);
}

TEST(OutputFile, writesIntoPipesAndLinksAndLeavesThemInPlace) {
    TempDir dir;
    ASSERT_EQ(mkfifo(dir.file("pipe").c_str(), 0600), 0);
    dir.write("target", "older and longer");
    std::filesystem::create_symlink("target", dir.file("link"));
    int reader = open(dir.file("pipe").c_str(), O_RDWR | O_CLOEXEC);
    for (const char* name : {"pipe", "link"}) {
        OutputFile file(dir.file(name));
        file.write("new", 3);
        file.commit();
    }
    char buffer[8] = {};
    EXPECT_EQ(read(reader, buffer, sizeof(buffer)), 3);
    close(reader);
    EXPECT_STREQ(buffer, "new");
    EXPECT_TRUE(std::filesystem::is_fifo(dir.file("pipe")));
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("link")));
    EXPECT_EQ(TempDir::read(dir.file("target")), "new");
}

TEST(OutputFile, reportsAFolderThatIsMissingOrInTheWay) {
    TempDir dir;
    EXPECT_EQ(wordOf([] { OutputFile file("/nonexistent/folder/out"); }), "output.open");
    EXPECT_EQ(wordOf([&] { OutputFile file(dir.path); }), "output.open");
}

TEST(OutputFile, reportsAWriteBeyondTheFileSizeLimit) {
    TempDir dir;
    rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = {100000, old.rlim_max};
    installSignalHandlers();
    setrlimit(RLIMIT_FSIZE, &small);
    std::string data(300000, 'x');
    std::string word = wordOf([&] {
        OutputFile file(dir.file("out"));
        file.write(data.data(), data.size());
        file.commit();
    });
    setrlimit(RLIMIT_FSIZE, &old);
    restoreSignalHandlers();
    EXPECT_EQ(word, "output.write");
    EXPECT_EQ(filesIn(dir.path), 0);
}
