#include "client/console/GzipStream.h"

#include "client/console/Errors.h"

#include <streambuf>
#include <vector>
#include <zlib.h>

namespace vdk {

class GzipStream::Buffer : public std::streambuf {
public:
    explicit Buffer(std::ostream& out) : out(out), plain(Size), packed(Size) {
        constexpr int GzipFormat = 15 + 16;
        if (deflateInit2(&state, Z_DEFAULT_COMPRESSION, Z_DEFLATED, GzipFormat, 8,
                         Z_DEFAULT_STRATEGY) != Z_OK) {
            throw ClientError(ExitCode::CannotWrite, "memory", "no memory to compress the file");
        }
        setp(plain.data(), plain.data() + plain.size());
    }
    ~Buffer() override { deflateEnd(&state); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    void pack(int flush) {
        state.next_in = reinterpret_cast<Bytef*>(pbase());
        state.avail_in = uInt(pptr() - pbase());
        do {
            state.next_out = reinterpret_cast<Bytef*>(packed.data());
            state.avail_out = uInt(packed.size());
            deflate(&state, flush); // cannot fail with room for its output
            out.write(packed.data(), std::streamsize(packed.size() - state.avail_out));
        } while (state.avail_out == 0);
        setp(plain.data(), plain.data() + plain.size());
    }

protected:
    int_type overflow(int_type character) override {
        pack(Z_NO_FLUSH);
        if (!traits_type::eq_int_type(character, traits_type::eof())) {
            sputc(traits_type::to_char_type(character));
        }
        return traits_type::not_eof(character);
    }

private:
    static constexpr size_t Size = 1 << 16;
    std::ostream& out;
    std::vector<char> plain, packed;
    z_stream state = {};
};

GzipStream::GzipStream(std::ostream& out)
    : buffer(std::make_unique<Buffer>(out)), packed(std::make_unique<std::ostream>(buffer.get())) {}

GzipStream::~GzipStream() = default;

void GzipStream::finish() {
    buffer->pack(Z_FINISH);
}

} // namespace vdk
