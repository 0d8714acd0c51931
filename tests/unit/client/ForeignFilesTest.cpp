// Files of other profilers, and what is no such file.
#include "client/foreign/ForeignFiles.h"

#include "DbBuilder.h"
#include "TempDir.h"
#include "client/console/Errors.h"
#include "client/console/GzipStream.h"
#include "client/picture/Pprof.h"
#include "client/profile/Profile.h"

#include <gtest/gtest.h>
#include <zlib.h>

using namespace vdk;

namespace {

// "thread: frame;frame own", sorted, of the measure.
std::string textOf(DB& db) {
    const Profile profile = makeProfile(db);
    std::vector<std::string> lines;
    for (const Charge& charge : profile.charges) {
        std::string stack;
        for (int at = charge.frame; at > 0; at = profile.frames[size_t(at)].parent) {
            const ProfileMethod& method =
                profile.methods[size_t(profile.frames[size_t(at)].method)];
            stack = method.fullName(true) + (stack.empty() ? "" : ";") + stack;
        }
        if (charge.own > 0) {
            lines.push_back(profile.threads[size_t(charge.thread)].name + ": " + stack + " " +
                            std::to_string(charge.own) + "\n");
        }
    }
    std::sort(lines.begin(), lines.end());
    std::string all = profile.measure == &SampleCounts  ? "samples\n"
                      : profile.measure == &ElapsedTime ? "elapsed\n"
                                                        : "cpu\n";
    for (const std::string& line : lines) {
        all += line;
    }
    return all;
}

std::string fileOf(const TempDir& dir, const std::string& name, const std::string& content) {
    dir.write(name, content);
    return dir.file(name);
}

std::string packed(const std::string& content) {
    std::ostringstream out;
    GzipStream stream(out);
    stream.stream() << content;
    stream.finish();
    return out.str();
}

std::string inflate(const std::string& bytes) {
    std::string all(1 << 20, 0);
    z_stream stream = {};
    inflateInit2(&stream, 15 + 16);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = uInt(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(all.data());
    stream.avail_out = uInt(all.size());
    inflate(&stream, Z_FINISH);
    all.resize(stream.total_out);
    inflateEnd(&stream);
    return all;
}

std::string pprofOf(DB& db) {
    Picture picture({false, true});
    addAll(picture, db, Side::Now, false, Selection());
    picture.finish();
    std::ostringstream out;
    writePprof(out, picture, 0);
    return out.str();
}

} // namespace

TEST(ForeignFiles, collapsedStacksAreSamplesOfThreads) {
    const struct {
        const char* content;
        const char* expected; // or the message
    } cases[] = {
        {"a.B.c 3\n", "samples\n[no thread]: a.B.c 3\n"},
        {"# remark\n\na.B.c;a.B.c 3\r\na.B.c 1\na.B.c;a.B.c 1.5",
         "samples\n[no thread]: a.B.c 1\n[no thread]: a.B.c;a.B.c 4\n"},
        {"[http 1 tid=12];java/lang/Thread.run_[j];libjvm.so 7\n[http 1 trn=3];x 1\n",
         "samples\nhttp 1: java.lang.Thread.run;libjvm.so 7\nhttp 1: x 1\n"},
        {" 5\n;;a.b();; 2\n", "samples\n[no thread]: [no frames] 5\n[no thread]: a.b() 2\n"},
        {"a.B.c 0\n", "has no stacks"},
        {"a 1\na.B.c\n", "line 2: no frames"},
        {"a.B.c 1x\n", "line 1: no frames"},
        {"a.B.c nan\n", "line 1: no frames"},
        {"a.B.c 1e300\n", "line 1: no frames"},
        {"a.B.c -4\n", "negative"},
    };
    TempDir dir;
    for (const auto& each : cases) {
        for (const bool isPacked : {false, true}) {
            const std::string path = isPacked ? fileOf(dir, "x.collapsed.gz", packed(each.content))
                                              : fileOf(dir, "x.collapsed", each.content);
            try {
                EXPECT_EQ(textOf(*readForeignFile(path)), each.expected) << each.content;
            } catch (const ClientError& e) {
                EXPECT_EQ(e.word, "foreign.data");
                EXPECT_NE(std::string(e.what()).find(each.expected), std::string::npos)
                    << each.content << ": " << e.what();
            }
        }
    }
}

TEST(ForeignFiles, pprofHasTheTimesThatWereWritten) {
    DbBuilder b;
    b.sample("main", "com.a.Main.run", 90000000);
    b.sample("main", "com.a.Main.run;com.a.Main.run", 60000000);
    b.sample("other", "com.a.Main.run;java.util.Map.get", 10000000);
    const std::string packed = pprofOf(b.db), message = inflate(packed);
    TempDir dir;
    const std::string expected = textOf(b.db);
    EXPECT_EQ(textOf(*readForeignFile(fileOf(dir, "x.pb.gz", packed))), expected);
    EXPECT_EQ(textOf(*readForeignFile(fileOf(dir, "anything", packed))), expected);
    EXPECT_EQ(textOf(*readForeignFile(fileOf(dir, "x.pprof", message))), expected);
    EXPECT_EQ(readForeignFile(fileOf(dir, "x.hprof.gz", "JAVA PROFILE 1.0.2")), nullptr);
    // Cut or damaged at any place it is refused, or a profile of something else.
    for (size_t at = 0; at < message.size(); at++) {
        for (const bool isCut : {true, false}) {
            std::string damaged = message.substr(0, isCut ? at : message.size());
            if (!isCut) {
                damaged[at] = char(damaged[at] ^ 0x85);
            }
            try {
                textOf(*readPprof("x", damaged));
            } catch (const ClientError& e) {
                EXPECT_EQ(e.word, "foreign.data");
            }
        }
    }
}
