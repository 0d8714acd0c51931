#include "offline/StoredColumns.h"

namespace {

// Small for small numbers of either sign.
unsigned long folded(unsigned long difference) {
    return difference << 1 ^ static_cast<unsigned long>(static_cast<long>(difference) >> 63);
}

unsigned long unfolded(unsigned long kept) {
    return kept >> 1 ^ (0 - (kept & 1));
}

} // namespace

// The first byte has a flag in bit 0 and six bits, each other one seven, the lowest first; bit 7 is
// set in all but the last. Most addresses are multiples of 8: without the flag an eighth is kept.
int DeltaColumn::encode(unsigned long before, unsigned long value, unsigned char* bytes) {
    const auto difference = static_cast<long>(value - before);
    const bool isEighth = (difference & 7) == 0;
    const unsigned long kept =
        folded(static_cast<unsigned long>(isEighth ? difference / 8 : difference));
    unsigned low = static_cast<unsigned>(kept & 0x3f) << 1 | (isEighth ? 0 : 1);
    int length = 0;
    for (unsigned long rest = kept >> 6; rest != 0; rest >>= 7) {
        bytes[length++] = static_cast<unsigned char>(0x80 | low);
        low = static_cast<unsigned>(rest & 0x7f);
    }
    bytes[length++] = static_cast<unsigned char>(low);
    return length;
}

unsigned long DeltaColumn::get(int row) const {
    if (places->size() == 0) {
        return 0;
    }
    const Place place =
        places->at<Place>(static_cast<unsigned long>(row) / static_cast<unsigned>(ROWS_PER_PLACE));
    const int steps = row % ROWS_PER_PLACE;
    if (steps == 0) {
        return place.value;
    }
    const unsigned long most = static_cast<unsigned long>(steps) * LONGEST_DELTA;
    if (place.at > deltas->size()) {
        deltas->fail("ends ahead of a row");
    }
    const unsigned long left = deltas->size() - place.at;
    const unsigned long bytes = left < most ? left : most;
    const unsigned char* at = deltas->stretch(place.at, place.at + bytes);
    const unsigned char* const end = at + bytes;
    unsigned long value = place.value;
    for (int i = 0; i < steps && at < end; i++) {
        const unsigned char first = *at;
        unsigned long kept = (first & 0x7f) >> 1;
        for (unsigned shift = 6; (*at & 0x80) != 0 && at + 1 < end && shift < 64; shift += 7) {
            kept |= static_cast<unsigned long>(*++at & 0x7f) << shift;
        }
        at++;
        const unsigned long difference = unfolded(kept);
        value += (first & 1) != 0 ? difference : difference << 3;
    }
    return value;
}
