// A stream whose bytes go into another one as gzip, so that a large file need not be in memory.
#pragma once

#include <memory>
#include <ostream>

namespace vdk {

class GzipStream {
public:
    // Throws ClientError (CannotWrite) without memory.
    explicit GzipStream(std::ostream& out);
    ~GzipStream();
    GzipStream(const GzipStream&) = delete;
    GzipStream& operator=(const GzipStream&) = delete;

    std::ostream& stream() { return *packed; }
    // Writes the rest; nothing may follow.
    void finish();

private:
    class Buffer;
    std::unique_ptr<Buffer> buffer;
    std::unique_ptr<std::ostream> packed;
};

} // namespace vdk
