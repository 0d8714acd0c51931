// Raw deflate data that arrives in blocks, restored into a buffer of known size.
#pragma once

#include <cstddef>
#include <string>
#include <zlib.h>

namespace vdk {

class Inflater {
public:
    // The buffer stays the caller's and receives exactly `size` bytes.
    Inflater(char* output, size_t size);
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    // False if the block does not continue valid data, or would give more than the expected bytes.
    bool add(char* block, size_t size);

    // The end of the data was reached and gave exactly the expected bytes.
    bool isComplete() const { return ended && stream.avail_out == 0; }
    size_t produced() const { return stream.total_out; }
    const std::string& error() const { return message; }

private:
    z_stream stream = {};
    bool ended = false;
    std::string message;
};

} // namespace vdk
