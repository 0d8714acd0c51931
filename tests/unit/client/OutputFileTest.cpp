#include "client/OutputFile.h"

#include "Expect.h"
#include "TempDir.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vdk;

static size_t filesIn(const std::string& path) {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path))
        count += entry.exists();
    return count;
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
    EXPECT_EQ(filesIn(dir.path), 1u);
}

TEST(OutputFile, leavesTheOldFileWhenAbandoned) {
    TempDir dir;
    dir.write("out", "old");
    {
        OutputFile file(dir.file("out"));
        file.write("new", 3);
    }
    EXPECT_EQ(TempDir::read(dir.file("out")), "old");
    EXPECT_EQ(filesIn(dir.path), 1u);
}

TEST(OutputFile, reportsAFolderThatIsMissing) {
    EXPECT_EQ(wordOf([] { OutputFile file("/nonexistent/folder/out"); }), "output.open");
}

TEST(OutputFile, reportsAWriteThatFails) {
    TempDir dir;
    rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = {100000, old.rlim_max};
    auto oldHandler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    std::string data(300000, 'x');
    std::string word = wordOf([&] {
        OutputFile file(dir.file("out"));
        file.write(data.data(), data.size());
        file.commit();
    });
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, oldHandler);
    EXPECT_EQ(word, "output.write");
    EXPECT_EQ(filesIn(dir.path), 0u);
}
