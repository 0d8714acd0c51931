#include "heapfile/GzipInflater.h"

#include "heapfile/HeapReadError.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <vector>
#include <zlib.h>

namespace {

constexpr size_t OUTPUT_SIZE = 1 << 20;
constexpr uint64_t LARGEST_INPUT_STEP = 1 << 30;
constexpr int WINDOW_BITS_GZIP = 15 + 16; // the largest window; 16 asks for the gzip wrapper

void writeFully(int descriptor, const uint8_t* from, size_t count) {
    while (count > 0) {
        ssize_t written = write(descriptor, from, count);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            throw HeapTemporaryFileError(
                std::string("cannot write the inflated dump to a temporary file: ") +
                strerror(errno));
        }
        from += written;
        count -= static_cast<size_t>(written);
    }
}

// A zlib stream that is ended with the scope.
struct Inflater {
    z_stream stream;
    Inflater() {
        memset(&stream, 0, sizeof(stream));
        if (inflateInit2(&stream, WINDOW_BITS_GZIP) != Z_OK) {
            throw HeapReadError("cannot start inflating: out of memory");
        }
    }
    ~Inflater() { inflateEnd(&stream); }
};

} // namespace

bool GzipInflater::isGzip(const uint8_t* bytes, uint64_t length) {
    return length >= 3 && bytes[0] == 0x1f && bytes[1] == 0x8b && bytes[2] == 8;
}

uint64_t GzipInflater::inflateToFile(const uint8_t* bytes, uint64_t length, int descriptor,
                                     std::string& problem) {
    Inflater inflater;
    z_stream& stream = inflater.stream;
    std::vector<uint8_t> output(OUTPUT_SIZE);
    uint64_t consumed = 0;
    uint64_t produced = 0;
    bool memberOpen = true;
    while (true) {
        uint64_t left = length - consumed;
        uInt step = static_cast<uInt>(left < LARGEST_INPUT_STEP ? left : LARGEST_INPUT_STEP);
        stream.next_in = const_cast<uint8_t*>(bytes + consumed);
        stream.avail_in = step;
        stream.next_out = output.data();
        stream.avail_out = static_cast<uInt>(output.size());
        int result = inflate(&stream, Z_NO_FLUSH);
        consumed += step - stream.avail_in;
        size_t fresh = output.size() - stream.avail_out;
        writeFully(descriptor, output.data(), fresh);
        produced += fresh;
        if (result == Z_STREAM_END) {
            memberOpen = false;
            if (!isGzip(bytes + consumed, length - consumed)) {
                break;
            }
            inflateReset(&stream);
            memberOpen = true;
            continue;
        }
        if (result != Z_OK) {
            bool cut = result == Z_BUF_ERROR && consumed == length;
            problem = std::string("compressed data ") + (cut ? "ends early" : "is damaged") +
                      " at offset " + std::to_string(consumed);
            break;
        }
    }
    if (!memberOpen && consumed < length) {
        problem = "data that isn't gzip follows at offset " + std::to_string(consumed);
    }
    return produced;
}
