#include "support/ClassBundle.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// The programs of the tests are written for it.
const int OLDEST_RELEASE = 17;

unsigned readNumber(const unsigned char* at, int bytes) {
    unsigned value = 0;
    for (int i = 0; i < bytes; i++) {
        value = value << 8 | at[i];
    }
    return value;
}

// The directories made by this process.
struct TemporaryDirectories {
    std::vector<std::string> paths;
    ~TemporaryDirectories() {
        for (const std::string& path : paths) {
            std::error_code ignored;
            fs::remove_all(path, ignored);
        }
    }
};

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

// The release of a JDK as its own file tells, such as "17.0.15"; empty if there is none.
std::string releaseOf(const fs::path& home) {
    std::ifstream file(home / "release");
    const std::string key = "JAVA_VERSION=\"";
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, key.size(), key) == 0) {
            return line.substr(key.size(), line.find('"', key.size()) - key.size());
        }
    }
    return "";
}

} // namespace

ClassBundle::ClassBundle(const std::string& path) : mapped(nullptr), size(0) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    if (fd < 0 || fstat(fd, &info) != 0) {
        throw std::runtime_error("cannot open " + path);
    }
    size = static_cast<size_t>(info.st_size);
    mapped = static_cast<unsigned char*>(mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0));
    close(fd);
    if (mapped == MAP_FAILED) {
        throw std::runtime_error("cannot map " + path);
    }
    for (size_t at = 0; at + 6 <= size;) {
        const unsigned nameLength = readNumber(mapped + at, 2);
        const char* name = reinterpret_cast<const char*>(mapped + at + 2);
        at += 2 + nameLength;
        const unsigned length = readNumber(mapped + at, 4);
        entries.push_back(
            {std::string(name, nameLength), mapped + at + 4, static_cast<int>(length)});
        at += 4 + length;
    }
}

ClassBundle::~ClassBundle() {
    munmap(mapped, size);
}

std::vector<std::string> findJdks() {
    std::vector<std::string> homes;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator("/usr/lib/jvm", ignored)) {
        if (!entry.is_symlink() && fs::exists(entry.path() / "bin/javac") &&
            atoi(releaseOf(entry.path()).c_str()) >= OLDEST_RELEASE) {
            homes.push_back(entry.path().string());
        }
    }
    return homes;
}

std::string findJdk(const std::string& release) {
    for (const std::string& home : findJdks()) {
        if (releaseOf(home).compare(0, release.size(), release) == 0) {
            return home;
        }
    }
    return "";
}

std::vector<std::string> findSystemJars() {
    std::vector<std::string> jars;
    const char* const named = getenv("VDK_LINK_JARS");
    if (named != nullptr) {
        std::stringstream list(named);
        for (std::string jar; std::getline(list, jar, ':');) {
            jars.push_back(jar);
        }
        return jars;
    }
    std::error_code ignored;
    for (const auto& entry : fs::recursive_directory_iterator("/usr/share/java", ignored)) {
        if (entry.path().extension() == ".jar" && entry.is_regular_file() && !entry.is_symlink()) {
            jars.push_back(entry.path().string());
        }
    }
    return jars;
}

int runCommand(const std::string& command, std::string* output) {
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run " + command);
    }
    char buffer[4096];
    for (size_t count; (count = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) {
        if (output != nullptr) {
            output->append(buffer, count);
        }
    }
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string makeTemporaryDirectory() {
    static TemporaryDirectories directories;
    std::string path = (fs::temp_directory_path() / "vdk-test-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error("cannot make a temporary directory");
    }
    directories.paths.push_back(path);
    return path;
}

std::string extractClasses(const std::string& jdk, const std::vector<std::string>& sources) {
    const std::string bundle = makeTemporaryDirectory() + "/classes.bundle";
    std::string command = quoted(jdk + "/bin/java") + " " +
                          quoted(VDK_TEST_SOURCES "/ExtractClasses.java") + " " + quoted(bundle);
    for (const std::string& source : sources) {
        command += " " + quoted(source);
    }
    std::string output;
    if (runCommand(command, &output) != 0) {
        throw std::runtime_error(command + ": " + output);
    }
    return bundle;
}

std::string compileJava(const std::string& jdk, const std::string& className,
                        const std::string& source, const std::string& options) {
    const std::string directory = makeTemporaryDirectory();
    const std::string file = directory + "/" + className + ".java";
    writeBinaryFile(file, source);
    std::string output;
    const std::string command = quoted(jdk + "/bin/javac") + " -nowarn " + options + " -d " +
                                quoted(directory) + " " + quoted(file);
    if (runCommand(command, &output) != 0) {
        throw std::runtime_error(command + ": " + output);
    }
    return directory;
}

std::string readBinaryFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

void writeBinaryFile(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}
