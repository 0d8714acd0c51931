// The log and the console, in a child whose user has no entry and whose home is a folder of the
// test.
#include "core/ground/Logger.h"

#include "TempDir.h"
#include "core/ground/ConfigFile.h"
#include "core/ground/Options.h"
#include "core/ground/Version.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const uid_t USER = 1234567;

class LoggerTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, chmod(home.path.c_str(), 0777)); }

    // Runs the body as that user; what it logs and prints is in the fields. False if this user may
    // not become another one.
    bool run(void (*body)()) {
        const int child = fork();
        if (child == 0) {
            const std::string file = home.file("errors");
            if (setgid(USER) != 0 || setuid(USER) != 0 ||
                freopen(file.c_str(), "w", stderr) == nullptr) {
                _exit(99);
            }
            Logger::setSink(nullptr);
            setenv("HOME", home.path.c_str(), 1);
            body();
            fflush(nullptr);
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        errors = TempDir::read(home.file("errors"));
        logFile = home.file(".vdk/log/" + std::to_string(child) + ".log");
        log = TempDir::read(logFile);
        return exitCode != 99;
    }
    TempDir home;
    std::string logFile;
    std::string log;
    std::string errors;
    int exitCode = 0;
};

} // namespace

TEST_F(LoggerTest, logAndConsoleHoldTheSameLineWithAnEncodedZeroShownAsADot) {
    if (!run([] { Logger::message("a\xC0\x80z", stderr); })) {
        GTEST_SKIP() << "this user may not act for another one";
    }
    const size_t zero = log.find("\xC0\x80");
    ASSERT_NE(std::string::npos, zero) << log;
    EXPECT_EQ("[" VDK_FULL_NAME "] Loaded. Log file: " + logFile + "\n" +
                  std::string(log).replace(zero, 2, "."),
              errors);
}

TEST_F(LoggerTest, anEmptyTextMakesNoLogAndARefusalIsToldOnceAlsoWhenQuiet) {
    if (!run([] {
            Logger::message("", stderr);
            _exit(access((std::string(getenv("HOME")) + "/.vdk").c_str(), F_OK) == 0 ? 1 : 0);
        })) {
        GTEST_SKIP() << "this user may not act for another one";
    }
    EXPECT_EQ(0, exitCode);
    EXPECT_EQ("", errors);
    ASSERT_TRUE(run([] {
        ourOptions->quiet = true;
        Logger::refusal("Cannot start: no reason");
    }));
    EXPECT_EQ("Cannot start: no reason\n", errors);
    EXPECT_NE(std::string::npos, log.find(": Cannot start: no reason\n")) << log;
}

TEST_F(LoggerTest, theFirstFaultEndsTheProcessWhereThatIsAsked) {
    if (!run([] {
            Logger::message("before");
            Logger::ourExitOnException = true;
            Logger::exceptionCaught("Place.cpp", 7);
        })) {
        GTEST_SKIP() << "this user may not act for another one";
    }
    EXPECT_EQ(255, exitCode);
    EXPECT_NE(std::string::npos, log.find("exception caught at Place:7\n")) << log;
    EXPECT_NE(std::string::npos, log.find("exiting (exitonexception mode)\n")) << log;
}

TEST_F(LoggerTest, aFullLogBeginsAnewBesideOneOlderAndThoseOfLongEndedProcessesGo) {
    if (!run([] {
            const std::string folder = std::string(getenv("HOME")) + "/.vdk/log/";
            mkdirs(folder.c_str());
            const timeval longAgo[2] = {};
            for (const char* name :
                 {"99999997.log", "99999998.log.1", "99999999.log", "1.log", "notes.log"}) {
                std::ofstream(folder + name) << "old";
                if (std::string(name) != "99999999.log") {
                    utimes((folder + name).c_str(), longAgo);
                }
            }
            ourOptions->logLimit = 1;
            for (int i = 0; i < 40000; i++) {
                Logger::message(ZString("line ") + longToString(i) + ZString(" 0123456789") +
                                " 0123456789 0123456789 0123456789 0123456789");
            }
        })) {
        GTEST_SKIP() << "this user may not act for another one";
    }
    const std::string older = TempDir::read(logFile + ".1");
    EXPECT_NEAR(1 << 20, static_cast<double>(older.size()), 200);
    EXPECT_LT(log.size(), (1u << 20) + 200);
    EXPECT_NE(std::string::npos, log.find(" line 39999 ")) << log.size();
    const std::string lastOfOlder = older.substr(older.rfind(" line ") + 6);
    EXPECT_NE(std::string::npos, log.find(" line " + std::to_string(stoi(lastOfOlder) + 1) + " "))
        << "nothing lost in between";
    const std::string folder = home.file(".vdk/log/");
    for (const char* name : {"99999999.log", "1.log", "notes.log"}) {
        EXPECT_EQ(0, access((folder + name).c_str(), F_OK)) << name;
    }
    for (const char* name : {"99999997.log", "99999998.log.1"}) {
        EXPECT_NE(0, access((folder + name).c_str(), F_OK)) << name;
    }
}
