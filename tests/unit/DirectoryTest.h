#pragma once

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

// Tests with a directory of their own, which is gone afterwards.
class DirectoryTest : public testing::Test {
protected:
    DirectoryTest() {
        char pattern[] = "/tmp/vdk-test-XXXXXX";
        directory = mkdtemp(pattern);
    }
    ~DirectoryTest() override { EXPECT_EQ(0, system(("rm -rf " + directory).c_str())); }
    // How many files and folders are in it.
    int countOfFiles(const std::string& in) const {
        const std::string test = "exit $(ls -A " + in + " | wc -l)";
        return system(test.c_str()) >> 8;
    }
    std::string directory;
};
