#include "db/ByteReader.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {
// Where the size of the input is unknown, a text's memory starts with this and doubles as its bytes
// arrive.
constexpr long FIRST_TEXT_BYTES = 65536;

// A malloc block that is freed unless it is handed on.
class TextBlock {
public:
    ~TextBlock() { free(text); }
    TextBlock() = default;
    TextBlock(const TextBlock&) = delete;
    TextBlock& operator=(const TextBlock&) = delete;
    void resize(long bytes) {
        char* grown = static_cast<char*>(realloc(text, static_cast<size_t>(bytes)));
        if (grown == nullptr) {
            throw std::bad_alloc();
        }
        text = grown;
    }
    char* handOn() {
        char* block = text;
        text = nullptr;
        return block;
    }
    char* text = nullptr;
};
} // namespace

ByteReader::ByteReader(ByteSource& input)
    : source(input), piece(nullptr), position(nullptr), end(nullptr), pieceOffset(0),
      total(input.getTotalSize()), tableName(nullptr), row(-1), fieldName(nullptr) {}

bool ByteReader::tryPiece() {
    const unsigned char* bytes = nullptr;
    long count = 0;
    const long offset = getOffset();
    if (!source.nextPiece(&bytes, &count)) {
        return false;
    }
    pieceOffset = offset;
    piece = bytes;
    position = bytes;
    end = bytes + count;
    return true;
}

void ByteReader::needPiece() {
    if (tryPiece()) {
        return;
    }
    const ZString& error = source.getErrorMessage();
    fail(error.isEmpty() ? ZString("the input ends too early")
                         : ZString("the input cannot be read: ") + error);
}

int ByteReader::peekByte() {
    if (position == end && !tryPiece()) {
        if (!source.getErrorMessage().isEmpty()) {
            fail(ZString("the input cannot be read: ") + source.getErrorMessage());
        }
        return -1;
    }
    return *position;
}

void ByteReader::readBytes(void* to, long count) {
    unsigned char* target = static_cast<unsigned char*>(to);
    while (count > 0) {
        if (position == end) {
            needPiece();
        }
        const long available = end - position;
        const long taken = count < available ? count : available;
        memcpy(target, position, static_cast<size_t>(taken));
        position += taken;
        target += taken;
        count -= taken;
    }
}

void ByteReader::skip(long count) {
    expect("bytes", count, 1);
    while (count > 0) {
        if (position == end) {
            needPiece();
        }
        const long available = end - position;
        const long taken = count < available ? count : available;
        position += taken;
        count -= taken;
    }
}

void ByteReader::expect(const char* what, long count, long size) {
    const long remaining = getRemaining();
    if (count >= 0 && (remaining < 0 || count <= remaining / (size < 1 ? 1 : size))) {
        return;
    }
    ZString message = longToString(count);
    message.append(" ");
    message.append(what);
    if (count >= 0) {
        message.append(", but only ");
        message.appendLong(remaining);
        message.append(" bytes are left");
    } else {
        message.append(" make no sense");
    }
    fail(message);
}

int ByteReader::readIntInRange(const char* what, int least, int most) {
    const int value = readInt();
    if (value < least || value > most) {
        ZString message(what);
        message.append(" ");
        message.appendLong(value);
        message.append(" is not from ");
        message.appendLong(least);
        message.append(" to ");
        message.appendLong(most);
        fail(message);
    }
    return value;
}

char* ByteReader::readString() {
    const long length = readInt();
    if (length == -1) {
        return nullptr;
    }
    if (length < 0) {
        fail(ZString("negative text length ") + longToString(length));
    }
    expect("bytes of text", length, 1);
    TextBlock block;
    long room = total < 0 && length > FIRST_TEXT_BYTES ? FIRST_TEXT_BYTES : length;
    block.resize(room + 1);
    long taken = 0;
    while (taken < length) {
        readBytes(block.text + taken, room - taken);
        taken = room;
        if (taken < length) {
            room = length - taken < taken ? length : 2 * taken;
            block.resize(room + 1);
        }
    }
    if (memchr(block.text, 0, static_cast<size_t>(length)) != nullptr) {
        fail("a text holds a zero byte");
    }
    block.text[length] = 0;
    return block.handOn();
}

ZString ByteReader::readText() {
    TextBlock block;
    block.text = readString();
    if (block.text == nullptr) {
        fail("a text is missing");
    }
    return ZString(block.text);
}

void ByteReader::fail(const ZString& what) {
    ZString message(what);
    if (tableName != nullptr) {
        message.append(", in ");
        message.append(tableName);
        if (row >= 0) {
            message.append(", row ");
            message.appendLong(row);
        }
        if (fieldName != nullptr) {
            message.append(", ");
            message.append(fieldName);
        }
    }
    message.append(", at offset ");
    message.appendLong(getOffset());
    throw BadInputException(message, getOffset());
}
