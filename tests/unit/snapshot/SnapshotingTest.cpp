#include "snapshot/Snapshoting.h"

#include "DirectoryTest.h"
#include "db/SnapshotReader.h"
#include "profiling/ToyJvm.h"
#include "snapshot/SnapshotFile.h"

#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

class SnapshotingTest : public DirectoryTest {
protected:
    ZString pathOf(const char* name) { return ZString((directory + "/" + name).c_str()); }
    void writeFile(const ZString& path, const char* text) { std::ofstream(path.c_str()) << text; }
    std::string readFile(const ZString& path) {
        std::ostringstream text;
        text << std::ifstream(path.c_str()).rdbuf();
        return text.str();
    }

    ToyJvm jvm;
};

} // namespace

TEST_F(SnapshotingTest, snapshotReadsBackWithFlagsAndRows) {
    ThreadInfo info("worker", "group", 5, nullptr);
    ourDB->setProperty("name", ourDB->stringPool->getDBIndex("value", true));
    ourDB->createUserTableByDescription("T\n1\nuptime_ns\n1\n");
    {
        SnapshotFile file(pathOf("a.snapshot"));
        ASSERT_TRUE(file.isOpen());
        HeldSnapshotWriter writer(file.getDescriptor());
        captureTables(jvm.env(), writer, 0, "", SNAPSHOT_CAUSE_SHUTDOWN);
        writer.release();
        EXPECT_EQ(nullptr, writer.getErrorMessage());
        EXPECT_TRUE(file.close().isEmpty());
    }
    const std::string bytes = readFile(pathOf("a.snapshot"));
    MemorySource source(bytes.data(), static_cast<long>(bytes.size()));
    DB read(-1, -1);
    SnapshotReader reader(&read, source);
    reader.read();
    EXPECT_EQ(SNAPSHOT_CAUSE_SHUTDOWN | SNAPSHOT_OIDS_ARE_INDICES, reader.getHeader().flags);
    EXPECT_FALSE(reader.getHeader().hasHeap());
    const ThreadRecord* thread = read.threadTable->getRecord(info.threadRecordIndex, false);
    ASSERT_NE(nullptr, thread);
    EXPECT_STREQ("worker", read.stringPool->getText(thread->nameStrID));
    EXPECT_NE(nullptr, read.getUserTable(FIRST_USER_TABLE));
}

TEST_F(SnapshotingTest, unusedStringsGoWhenTheApplicationRunsAgain) {
    jvm.threads = {ToyJvm::threadOf(0), ToyJvm::threadOf(1)};
    jvm.currentThread = ToyJvm::threadOf(1);
    int whenResumed = -1;
    jvm.onResume = [&] { whenResumed = ourDB->stringPool->getDBIndex("unused", false); };
    const int unused = ourDB->stringPool->getDBIndex("unused", true);
    SnapshotFile file(pathOf("a.snapshot"));
    SnapshotWriter writer(file.getDescriptor());
    captureTables(jvm.env(), writer, 0, "", 0);
    EXPECT_EQ(unused, whenResumed);
    EXPECT_EQ(0, ourDB->stringPool->getDBIndex("unused", false));
}

TEST_F(SnapshotingTest, fileHasItsNameWhenItIsWholeAndIsForItsUserAlone) {
    const ZString stale = pathOf("old.snapshot.99999999.tmp");
    const ZString recent = pathOf("new.snapshot.99999999.tmp");
    writeFile(stale, "");
    writeFile(recent, "");
    const timeval longAgo[2] = {};
    ASSERT_EQ(0, utimes(stale.c_str(), longAgo));
    {
        const SnapshotFile dropped(pathOf("dropped.snapshot"));
        EXPECT_TRUE(dropped.isOpen());
    }
    SnapshotFile file(pathOf("a.snapshot"));
    const int scratch = file.openScratch();
    EXPECT_EQ(1, write(scratch, "x", 1));
    EXPECT_NE(0, fcntl(scratch, F_GETFD) & FD_CLOEXEC);
    EXPECT_NE(0, access(pathOf("a.snapshot").c_str(), F_OK));
    EXPECT_TRUE(file.close().isEmpty());
    struct stat status;
    ASSERT_EQ(0, stat(pathOf("a.snapshot").c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 07777);
    EXPECT_NE(0, access(stale.c_str(), F_OK));
    EXPECT_EQ(0, access(recent.c_str(), F_OK));
    EXPECT_EQ(2, countOfFiles(directory));
}

TEST_F(SnapshotingTest, fileIsNotReachedThroughALinkAndNotInherited) {
    writeFile(pathOf("victim"), "precious");
    ASSERT_EQ(0, symlink(pathOf("victim").c_str(), pathOf("link").c_str()));
    EXPECT_FALSE(SnapshotFile(pathOf("link")).isOpen());
    EXPECT_EQ("precious", readFile(pathOf("victim")));
    SnapshotFile file(pathOf("plain"));
    EXPECT_NE(0, fcntl(file.getDescriptor(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(SnapshotingTest, pipeWithoutReaderDoesNotBlock) {
    ASSERT_EQ(0, mkfifo(pathOf("pipe").c_str(), 0600));
    EXPECT_FALSE(SnapshotFile(pathOf("pipe")).isOpen());
}

TEST_F(SnapshotingTest, dumpIsSeenByItsChangedSize) {
    writeFile(pathOf("old.hprof"), "old");
    const DumpCandidates old(pathOf("old.hprof"), 42);
    EXPECT_TRUE(old.findChanged().isEmpty()) << "there before the watch began";
    writeFile(pathOf("old.hprof"), "longer");
    EXPECT_EQ(old.findChanged(), pathOf("old.hprof"));
}

TEST_F(SnapshotingTest, dumpInADirectoryHasTheProcessIdInItsName) {
    const DumpCandidates candidates(directory.c_str(), 42);
    writeFile(pathOf("java_pid43.hprof"), "other");
    EXPECT_TRUE(candidates.findChanged().isEmpty());
    writeFile(pathOf("java_pid42.hprof"), "mine");
    EXPECT_EQ(candidates.findChanged(), pathOf("java_pid42.hprof"));
}
