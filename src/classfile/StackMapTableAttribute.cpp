#include "classfile/StackMapTableAttribute.h"

namespace {

// Most types that the frames of one method may list in all: each frame repeats its locals, so a
// table of n bytes could ask for memory in the order of n squared.
constexpr long MAX_TYPES = 1L << 22;

// Copies the frames of one table to their new places.
class FrameMover {
public:
    FrameMover(DataInput& from, unsigned char* to, const CodeOffsets& codeOffsets)
        : input(from), at(to), offsets(codeOffsets) {}

    void moveFrame() {
        const int type = input.readUnsignedByte();
        Logger::assertTrue(type < 128 || type > 246, VDK_HERE);
        const int delta = type < 64 ? type : type < 128 ? type - 64 : input.readUnsignedShort();
        oldOffset += 1 + delta;
        const int moved = offsets.at(oldOffset);
        const int newDelta = moved - newOffset - 1;
        newOffset = moved;
        Logger::assertTrue(newDelta >= 0, VDK_HERE);
        if (type < 64 || type == 251) {
            writeHead(newDelta, 0, 251);
        } else if (type < 128 || type == 247) {
            writeHead(newDelta, 64, 247);
            moveTypes(1);
        } else {
            writeByte(type);
            writeShort(newDelta);
            moveLists(type);
        }
    }
    const unsigned char* getEnd() const { return at; }

private:
    void writeByte(int value) { *at++ = static_cast<unsigned char>(value); }
    void writeShort(int value) {
        DataOutput::storeShort(at, value);
        at += 2;
    }
    // The short form when the delta fits, else the long one.
    void writeHead(int delta, int shortBase, int longType) {
        if (delta < 64) {
            writeByte(shortBase + delta);
            return;
        }
        writeByte(longType);
        writeShort(delta);
    }
    // Copies verification_type_infos, moving the positions that they hold.
    void moveTypes(int count) {
        for (int i = 0; i < count; i++) {
            const int tag = input.readUnsignedByte();
            Logger::assertTrue(tag <= VERIFICATION_UNINITIALIZED, VDK_HERE);
            writeByte(tag);
            if (tag == VERIFICATION_OBJECT) {
                writeShort(input.readUnsignedShort());
            } else if (tag == VERIFICATION_UNINITIALIZED) {
                writeShort(offsets.instruction(input.readUnsignedShort()));
            }
        }
    }
    void moveLists(int type) {
        if (type >= 252 && type < 255) {
            moveTypes(type - 251);
        } else if (type == 255) {
            for (int list = 0; list < 2; list++) {
                const int count = input.readUnsignedShort();
                writeShort(count);
                moveTypes(count);
            }
        }
    }

    DataInput& input;
    unsigned char* at;
    const CodeOffsets& offsets;
    int oldOffset = -1;
    int newOffset = -1;
};

} // namespace

void StackMapTableAttribute::parse(ArenaVector<StackMapFrame*>& frames, int thisClass) const {
    Logger::assertEquals(frames.getSize(), 1, VDK_HERE);
    DataInput input = openBody();
    const int count = input.readUnsignedShort();
    Logger::assertTrue(count <= input.getRemaining(), VDK_HERE);
    frames.reserve(count + 1);
    ClassArena& arena = frames.getArena();
    const StackMapFrame* previous = frames[0];
    long types = 0;
    for (int i = 0; i < count; i++) {
        StackMapFrame* const frame = arena.make<StackMapFrame>(previous, input, thisClass);
        types += frame->getLocals().getSize() + frame->getStack().getSize();
        Logger::assertTrue(types <= MAX_TYPES, VDK_HERE);
        frames.push(frame);
        previous = frame;
    }
    // The JVM refuses a table of another size, so it must not leave us with the right one.
    Logger::assertEquals(input.getRemaining(), 0, VDK_HERE);
}

void StackMapTableAttribute::shift(const CodeOffsets& offsets, ClassArena& arena) {
    DataInput input = openBody();
    // A frame grows by the two bytes of its delta at most.
    const int count = input.readUnsignedShort();
    unsigned char* const bytes =
        arena.allocateArray<unsigned char>(getAttributeLength() + 2 * count);
    DataOutput::storeShort(bytes, count);
    FrameMover mover(input, bytes + 2, offsets);
    for (int i = 0; i < count; i++) {
        mover.moveFrame();
    }
    Logger::assertEquals(input.getRemaining(), 0, VDK_HERE);
    arena.trim(mover.getEnd());
    replaceBody(bytes, static_cast<int>(mover.getEnd() - bytes));
}
