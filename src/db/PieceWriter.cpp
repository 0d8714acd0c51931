#include "db/PieceWriter.h"

PieceWriter::PieceWriter() : AbstractWriter(FIRST_PIECE_BYTES, true, -1) {}

PieceWriter::~PieceWriter() {
    for (int i = 0; i < pieces.getSize(); i++) {
        delete[] pieces[i].bytes;
    }
}

void PieceWriter::flush() {
    const int capacity =
        bufferCapacity < LAST_PIECE_BYTES ? 2 * bufferCapacity : static_cast<int>(LAST_PIECE_BYTES);
    // Either allocation may fail; an empty piece does no harm.
    Piece* const last = pieces.extend(1);
    *last = Piece{nullptr, 0};
    unsigned char* const next = new unsigned char[static_cast<size_t>(capacity)];
    *last = Piece{buffer, used};
    buffer = next;
    bufferCapacity = capacity;
    used = 0;
}

void PieceWriter::moveTo(AbstractWriter& target) {
    for (int i = 0; i < pieces.getSize(); i++) {
        target.writeBytes(pieces[i].bytes, pieces[i].length);
        delete[] pieces[i].bytes;
        pieces[i].bytes = nullptr;
    }
    pieces.clear();
    target.writeBytes(buffer, used);
    used = 0;
}
