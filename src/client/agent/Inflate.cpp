#include "client/agent/Inflate.h"

#include <new>

namespace vdk {

Inflater::Inflater(char* output, size_t size) {
    // Negative window bits: no zlib header around the data.
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
        throw std::bad_alloc();
    }
    stream.next_out = reinterpret_cast<Bytef*>(output);
    stream.avail_out = static_cast<uInt>(size);
}

Inflater::~Inflater() {
    inflateEnd(&stream);
}

bool Inflater::add(char* block, size_t size) {
    stream.next_in = reinterpret_cast<Bytef*>(block);
    stream.avail_in = static_cast<uInt>(size);
    if (ended) {
        message = "data behind the end";
        return false;
    }
    int result = inflate(&stream, Z_NO_FLUSH);
    ended = result == Z_STREAM_END;
    if (result != Z_OK && !ended && !(result == Z_BUF_ERROR && stream.avail_in == 0)) {
        message = stream.msg ? stream.msg : "zlib error " + std::to_string(result);
        return false;
    }
    if (stream.avail_in != 0) {
        message = ended ? "data behind the end" : "more data than announced";
        return false;
    }
    return true;
}

} // namespace vdk
