// The shared archive file: reuse, replacement, and files that another user could change.
#include "runtime/RuntimeArchiveFile.h"

#include "DirectoryTest.h"
#include "agent/FakeJvm.h"
#include "core/ground/Logger.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using testing::HasSubstr;

const uid_t OTHER_USER = 12345;
// Not even root is, in a container without that user or those rights.
const char NOT_ALLOWED[] = "this user may not act for another one";

bool becomeOtherUser() {
    return setgid(OTHER_USER) == 0 && setuid(OTHER_USER) == 0;
}

bool mayBecomeOtherUser() {
    return runInChild([] { return becomeOtherUser() ? 0 : 1; }).exitCode == 0;
}

std::string& log() {
    static std::string text;
    return text;
}

void appendLine(const char* line) {
    log().append(line).append("\n");
}

class RuntimeArchiveFileTest : public DirectoryTest {
protected:
    RuntimeArchiveFileTest() : path(directory + "/archive.jar") {
        // The other users of these tests must get in.
        EXPECT_EQ(0, chmod(directory.c_str(), 0755));
        for (int i = 0; i < 30000; i++) {
            content.push(static_cast<unsigned char>(i * 7));
        }
        log().clear();
        Logger::setSink(appendLine);
    }
    ~RuntimeArchiveFileTest() override { Logger::setSink(nullptr); }
    std::string contentText() const {
        return std::string(reinterpret_cast<const char*>(content.data()),
                           static_cast<size_t>(content.getSize()));
    }
    std::string read(const std::string& file) const {
        std::ifstream stream(file, std::ios::binary);
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }
    void plant(const std::string& text, mode_t mode = 0644) {
        std::ofstream(path, std::ios::binary) << text;
        ASSERT_EQ(0, chmod(path.c_str(), mode));
    }
    bool giveToOtherUser() const { return chown(path.c_str(), OTHER_USER, OTHER_USER) == 0; }
    ino_t inode() const {
        struct stat status;
        EXPECT_EQ(0, lstat(path.c_str(), &status));
        return status.st_ino;
    }
    // Writes and expects the file to stand there, alone, with the right content.
    void expectWritten(const char* logged) {
        const RuntimeArchiveFile file = writeArchiveFile(content, path.c_str(), true);
        EXPECT_EQ(path, file.path.c_str());
        EXPECT_TRUE(file.isUsable);
        EXPECT_TRUE(contentText() == read(path));
        EXPECT_THAT(log(), HasSubstr(logged + path + "\n"));
        struct stat status;
        ASSERT_EQ(0, lstat(path.c_str(), &status));
        EXPECT_TRUE(S_ISREG(status.st_mode));
        EXPECT_EQ(1u, status.st_nlink);
    }
    // Plants what `prepare` does to a file of right content, which must then be replaced.
    void expectReplaced(const char* reason) {
        const ino_t before = inode();
        expectWritten("Jar file created: ");
        EXPECT_THAT(log(), HasSubstr(std::string("Jar file exists but ") + reason + ": " + path));
        EXPECT_NE(before, inode());
    }
    // As another user: 0 if the file is used, 1 if the classes must come from memory, 2 for a
    // refusal.
    ProcessOutcome writeAsOtherUser(bool isRequired) {
        return runInChild([&] {
            if (!becomeOtherUser()) {
                return 3;
            }
            const RuntimeArchiveFile file = writeArchiveFile(content, path.c_str(), isRequired);
            return file.path.isEmpty() ? 2 : file.isUsable ? 0 : 1;
        });
    }
    static constexpr const char* WRONG = "has wrong size or content";
    static constexpr const char* OTHERS = "another user may change it";
    std::string path;
    ZVector<unsigned char> content;
};

} // namespace

TEST_F(RuntimeArchiveFileTest, isCreatedReadableForAllWhateverTheMask) {
    const mode_t mask = umask(0077);
    expectWritten("Jar file created: ");
    umask(mask);
    struct stat status;
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0644u, status.st_mode & 07777);
    // No temporary file is left beside it.
    EXPECT_EQ(1, countOfFiles(directory));
}

TEST_F(RuntimeArchiveFileTest, equalFileIsReused) {
    for (mode_t mode : {0644, 0444, 0600}) {
        plant(contentText(), mode);
        const ino_t before = inode();
        expectWritten("Reusing existing jar file: ");
        EXPECT_EQ(before, inode());
        ASSERT_EQ(0, unlink(path.c_str()));
    }
}

TEST_F(RuntimeArchiveFileTest, whatIsWrongOrOthersMayChangeIsReplaced) {
    std::string changed = contentText();
    changed[29999] ^= 1;
    const std::vector<std::string> wrong = {changed, contentText().substr(0, 29999),
                                            contentText() + "x", ""};
    for (const std::string& text : wrong) {
        plant(text);
        expectReplaced(WRONG);
    }
    for (mode_t mode : {0666, 0664}) {
        plant(contentText(), mode);
        expectReplaced(OTHERS);
    }
    const std::string second = directory + "/second";
    ASSERT_EQ(0, link(path.c_str(), second.c_str()));
    expectReplaced(OTHERS);
    EXPECT_TRUE(contentText() == read(second));
    ASSERT_EQ(0, unlink(path.c_str()));
    ASSERT_EQ(0, symlink(second.c_str(), path.c_str()));
    expectReplaced(WRONG);
    EXPECT_TRUE(contentText() == read(second)) << "the target of a link is left alone";
    ASSERT_EQ(0, unlink(path.c_str()));
    ASSERT_EQ(0, mkfifo(path.c_str(), 0644)); // which must not block
    expectReplaced(WRONG);
    if (!giveToOtherUser()) {
        GTEST_SKIP() << NOT_ALLOWED;
    }
    expectReplaced(OTHERS);
}

TEST_F(RuntimeArchiveFileTest, directoryInItsPlaceIsARefusal) {
    ASSERT_EQ(0, mkdir(path.c_str(), 0755));
    const ProcessOutcome outcome = runInChild(
        [&] { return writeArchiveFile(content, path.c_str(), true).path.isEmpty() ? 0 : 1; });
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("Cannot start: failed to create jar file: " + path +
                  "; to set alternate location for the file, use startup option "
                  "'tmpdir=<directory>'. To learn how to specify a startup option, read "
                  "docs/options.md\n",
              outcome.errors);
}

// A child is the user who finds a file of root's in a sticky directory, or one he may not write to.
TEST_F(RuntimeArchiveFileTest, whatCannotBeReplacedIsARefusalOnlyWhereTheDirectoryWasNamed) {
    if (!mayBecomeOtherUser()) {
        GTEST_SKIP() << NOT_ALLOWED;
    }
    struct Row {
        const char* what;
        std::string planted; // empty for none
        mode_t directoryMode;
        int asked; // exit code of a child whose user named the directory
    };
    const Row rows[] = {
        {"wrong content", "planted", 01777, 2},
        {"equal content", contentText(), 01777, 1},
        {"read-only directory", "", 0555, 2},
    };
    ASSERT_EQ(0, chown(directory.c_str(), OTHER_USER + 1, OTHER_USER + 1));
    for (const Row& row : rows) {
        unlink(path.c_str());
        if (!row.planted.empty()) {
            plant(row.planted);
            ASSERT_EQ(0, chown(path.c_str(), OTHER_USER + 1, OTHER_USER + 1));
        }
        ASSERT_EQ(0, chmod(directory.c_str(), row.directoryMode));
        const ProcessOutcome free = writeAsOtherUser(false);
        EXPECT_EQ(1, free.exitCode) << row.what;
        EXPECT_EQ("", free.errors) << row.what;
        const ProcessOutcome required = writeAsOtherUser(true);
        EXPECT_EQ(row.asked, required.exitCode) << row.what;
        EXPECT_EQ(row.asked == 2, required.errors.find("'tmpdir=<directory>'") != std::string::npos)
            << row.what;
        EXPECT_EQ(row.planted, read(path)) << row.what;
    }
}

TEST_F(RuntimeArchiveFileTest, ownFileInADirectoryThatTakesNoNewOnesIsOverwritten) {
    plant("outdated");
    if (!mayBecomeOtherUser() || !giveToOtherUser()) {
        GTEST_SKIP() << NOT_ALLOWED;
    }
    const ProcessOutcome outcome = runInChild([&] {
        if (!becomeOtherUser()) {
            return 2;
        }
        return writeArchiveFile(content, path.c_str(), true).isUsable ? 0 : 1;
    });
    EXPECT_EQ(0, outcome.exitCode) << outcome.errors;
    EXPECT_TRUE(contentText() == read(path));
}

TEST_F(RuntimeArchiveFileTest, fullDiskLeavesNoFileAndLetsTheStartGoOn) {
    const std::string disk = directory + "/disk";
    ASSERT_EQ(0, mkdir(disk.c_str(), 0755));
    const std::string mounted = "mount -t tmpfs -o size=16k tmpfs " + disk + " 2>/dev/null";
    if (system(mounted.c_str()) != 0) {
        GTEST_SKIP() << "no file system of a fixed size can be mounted here";
    }
    path = disk + "/archive.jar";
    const RuntimeArchiveFile file = writeArchiveFile(content, path.c_str(), true);
    const int left = countOfFiles(disk);
    EXPECT_EQ(0, system(("umount " + disk).c_str()));
    EXPECT_EQ(0, left);
    EXPECT_EQ(path, file.path.c_str());
    EXPECT_FALSE(file.isUsable);
    EXPECT_THAT(log(), HasSubstr("Jar file is not used, No space left on device: " + path));
}
