#include "DBTestSupport.h"
#include "TempDir.h"
#include "db/PieceWriter.h"
#include "db/Progress.h"
#include "db/SnapshotWriter.h"
#include "db/SocketWriter.h"

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {
struct SocketPair {
    SocketPair() { EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends)); }
    ~SocketPair() {
        close(ends[0]);
        close(ends[1]);
    }
    std::string readAll(int end) {
        std::string bytes;
        char buffer[4096];
        ssize_t count;
        while ((count = read(ends[end], buffer, sizeof(buffer))) > 0) {
            bytes.append(buffer, static_cast<size_t>(count));
        }
        return bytes;
    }
    int ends[2];
};

// The file holds the ints from 0; closes it.
void expectInts(int file, int count) {
    ASSERT_EQ(count * 4L, lseek(file, 0, SEEK_END));
    std::vector<int> read(static_cast<size_t>(count));
    ASSERT_EQ(count * 4L, pread(file, read.data(), static_cast<size_t>(count) * 4, 0));
    for (int i = 0; i < count; i++) {
        ASSERT_EQ(i, read[static_cast<size_t>(i)]);
    }
    close(file);
}

int anonymousFile() {
    TempDir dir;
    return open(dir.file("x").c_str(), O_RDWR | O_CREAT, 0600);
}
} // namespace

TEST(SocketWriter, aVanishedReaderStopsNothing) {
    SocketPair pair;
    shutdown(pair.ends[1], SHUT_RDWR);
    for (int descriptor : {pair.ends[0], -1}) {
        SocketWriter writer(descriptor);
        for (int i = 0; i < 100000; i++) {
            writer.writeInt(i);
        }
        writer.flush();
        EXPECT_EQ(0, writer.getUsed());
    }
}

TEST(SocketWriter, aReaderThatTakesAlmostNothingIsCutOff) {
    SocketPair pair;
    // Small, so that the writer never waits for long at once.
    const int bufferBytes = 8192;
    setsockopt(pair.ends[0], SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof(bufferBytes));
    std::string received;
    std::atomic<int> pauseMs{12};
    std::thread reader([&] {
        char buffer[512];
        ssize_t count;
        while ((count = read(pair.ends[1], buffer, sizeof(buffer))) > 0) {
            received.append(buffer, static_cast<size_t>(count));
            std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
        }
    });
    {
        SocketWriter writer(pair.ends[0], 600, 64);
        for (int i = 0; i < 50000; i++) {
            writer.writeInt(i);
        }
    }
    pauseMs = 0;
    shutdown(pair.ends[0], SHUT_WR);
    reader.join();
    // What was sent arrives without a hole.
    EXPECT_LT(received.size(), 200000u);
    for (size_t at = 0; at + 4 <= received.size(); at += 4) {
        ASSERT_EQ(intBytes(static_cast<int>(at / 4)), received.substr(at, 4));
    }
}

TEST(SnapshotWriter, firstErrorIsKeptAndWritingGoesOn) {
    const int full = open("/dev/full", O_WRONLY);
    if (full < 0) {
        GTEST_SKIP() << "no full device here";
    }
    SnapshotWriter writer(full);
    EXPECT_EQ(nullptr, writer.getErrorMessage());
    writer.writeInt(1);
    writer.flush();
    EXPECT_STREQ("No space left on device", writer.getErrorMessage());
    EXPECT_EQ(0, writer.getUsed());
    EXPECT_EQ(0, errno);
    close(full);
    writer.writeInt(2);
    writer.flush();
    EXPECT_STREQ("No space left on device", writer.getErrorMessage());
}

namespace {

// Left open at first, to be patched: also two ints on both sides of a buffer's end.
const int PATCHED_EACH = 100003;
const int BUFFER_INTS = SnapshotWriter::BUFFER_SIZE / 4;
bool isPatched(int i) {
    return i % PATCHED_EACH == 0 || i == BUFFER_INTS - 1 || i == BUFFER_INTS;
}

// Writes so many ints, patches some of them and compares what is in the file then.
template <typename Writer>
void expectWritten(int count, long bytesBeforeTheEnd) {
    const int file = anonymousFile();
    {
        Writer writer(file);
        for (int i = 0; i < count; i++) {
            writer.writeInt(isPatched(i) ? -1 : i);
        }
        EXPECT_EQ(count * 4L, writer.getPosition());
        for (int i = 0; i < count; i += PATCHED_EACH) {
            writer.patchInt(i * 4L, i);
        }
        writer.patchLong((BUFFER_INTS - 1) * 4L,
                         static_cast<long>(BUFFER_INTS) << 32 | (BUFFER_INTS - 1));
        EXPECT_EQ(bytesBeforeTheEnd, lseek(file, 0, SEEK_END));
        EXPECT_EQ(nullptr, writer.getErrorMessage());
    }
    expectInts(file, count);
}

} // namespace

TEST(SnapshotWriter, largeContentReachesTheFileAndWhatIsHeldReachesItAtTheEnd) {
    const int bufferInts = BUFFER_INTS;
    const int heldInts = HeldSnapshotWriter::MAX_PIECES * bufferInts;
    expectWritten<SnapshotWriter>(700000, 2L * SnapshotWriter::BUFFER_SIZE);
    expectWritten<HeldSnapshotWriter>(heldInts + bufferInts, 0);
    expectWritten<HeldSnapshotWriter>(heldInts + bufferInts + 1, (heldInts + bufferInts) * 4L);
}

TEST(SnapshotWriter, whatIsHeldMovesToAnotherWithItsError) {
    for (const int count :
         {BUFFER_INTS + 7, (HeldSnapshotWriter::MAX_PIECES + 1) * BUFFER_INTS + 7}) {
        const int file = anonymousFile();
        const int scratch = anonymousFile();
        {
            SnapshotWriter writer(file);
            HeldSnapshotWriter held(scratch);
            for (int i = 0; i < count; i++) {
                held.writeInt(i == 5 ? -1 : i);
            }
            held.patchInt(5 * 4L, 5);
            held.moveTo(writer);
            EXPECT_EQ(count * 4L, writer.getPosition());
            EXPECT_EQ(nullptr, writer.getErrorMessage());
        }
        expectInts(file, count);
        // On a disk that has no room for what no longer fits into memory.
        HeldSnapshotWriter held(open("/dev/full", O_WRONLY));
        for (int i = 0; i < count; i++) {
            held.writeInt(i);
        }
        SnapshotWriter other(scratch);
        held.moveTo(other);
        EXPECT_EQ(count <= BUFFER_INTS + 7, other.getErrorMessage() == nullptr);
        close(held.getFileDescriptor());
    }
}

TEST(PieceWriter, handsOverWhatItKeptInItsOrder) {
    const int file = anonymousFile();
    const int count = PieceWriter::LAST_PIECE_BYTES;
    PieceWriter kept;
    for (int i = 0; i < count; i++) {
        kept.writeInt(i);
    }
    SnapshotWriter writer(file);
    kept.moveTo(writer);
    writer.flush();
    expectInts(file, count);
}

TEST(Progress, packetIsBigEndianMagicIdAndPercent) {
    SocketPair pair;
    Progress progress(pair.ends[0]);
    progress.updateProgress(7);
    progress.updateProgress(7);
    progress.updateProgress(3);
    shutdown(pair.ends[0], SHUT_WR);
    EXPECT_EQ("00 00 00 00 07 5B CD 15 00 01 88 F8 00 00 00 07", hex(pair.readAll(1)));
    EXPECT_THROW(progress.updateProgressImpl(100), VDKRuntimeException);
    EXPECT_THROW(progress.updateProgressImpl(-1), VDKRuntimeException);
}
