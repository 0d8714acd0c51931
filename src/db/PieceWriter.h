#pragma once

#include "core/ground/ZVector.h"
#include "db/AbstractWriter.h"

// PieceWriter keeps what is written, in pieces that are never moved. For what must be encoded
// under a lock and goes out without it.
class PieceWriter : public AbstractWriter {
public:
    // Pieces grow from the first size to the second: most fetches are a few rows, some a database.
    static constexpr int FIRST_PIECE_BYTES = 16 * 1024;
    static constexpr int LAST_PIECE_BYTES = 1024 * 1024;

    PieceWriter();
    ~PieceWriter() override;
    void flush() override;

    // Hands everything over, in the order in which it was written, and frees it piece by piece.
    void moveTo(AbstractWriter& target);

private:
    struct Piece {
        unsigned char* bytes;
        int length;
    };

    ZVector<Piece> pieces; // full ones; the one being filled is the buffer
};
