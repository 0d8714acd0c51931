// A result file that appears whole or not at all: written under a temporary name in the target
// directory with mode 0600, synced, and renamed by commit(). Without commit() nothing stays. A
// device, a pipe and what a link leads to are written into as they are.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

namespace vdk {

class OutputFile {
public:
    // "-" is standard output. Throws ClientError (CannotWrite) if the file cannot be made.
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& stream() { return *out; }

    // Throws ClientError (CannotWrite) for the first failed write; the file is then removed.
    void write(const void* data, size_t size);
    void commit();

    // Throws ClientError (CannotWrite) if so many bytes will not fit into the file system.
    void expectSize(int64_t bytes);

    // Where the file stands until commit(), for a library that writes it itself; empty where it is
    // written into as it is.
    const std::string& temporaryPath() const { return temporary; }

    // Bytes written so far.
    long size() const;

private:
    class Buffer;
    [[noreturn]] void fail(const std::string& what, int error);

    std::string path;
    std::string temporary;
    int descriptor = -1;
    std::unique_ptr<Buffer> buffer;
    std::unique_ptr<std::ostream> out;
};

} // namespace vdk
