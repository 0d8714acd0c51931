// A folder of a test's own, removed with all that is in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

class TempDir {
public:
    explicit TempDir(const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
        std::string pattern = (base / "vdk-test-XXXXXX").string();
        path = mkdtemp(pattern.data());
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string file(const std::string& name) const { return path + "/" + name; }

    void write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories(std::filesystem::path(file(name)).parent_path());
        std::ofstream(file(name), std::ios::binary) << content;
    }

    void append(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories(std::filesystem::path(file(name)).parent_path());
        std::ofstream(file(name), std::ios::binary | std::ios::app) << content;
    }

    static std::string read(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    std::string path;
};
