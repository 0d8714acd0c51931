#pragma once

#include "core/ground/ZVector.h"

class CodeAttribute;

// ByteCodeGenerator: assembles an instruction sequence with forward branches that nest.
class ByteCodeGenerator {
public:
    ByteCodeGenerator() : code(30), openJumps(2), jumpTargets(2) {}

    void push(int byte) { code.push(static_cast<unsigned char>(byte)); }
    // High byte, then low byte.
    void pushShortValue(int value);
    void aload(int slot);
    // For parameters of methods that the agent writes itself: no forms for slots 2 and 3 alone, and
    // none above 255.
    void iload(int slot);
    // Any of the load families: base is the opcode of its slot-0 form, general the one with an
    // operand. Slots above 255 take the wide form.
    void load(int base, int general, int slot);
    // Appends a branch whose target is not known yet.
    void openJump(int opcode);
    // The innermost open branch arrives here.
    void closeJump();

    int getSize() const { return code.getSize(); }
    // Positions at which resolved branches arrive, in order of resolution.
    const ZVector<int>& getJumpTargets() const { return jumpTargets; }
    // Copies the sequence to `position` of a code array; the caller has made room. No jump may be
    // open.
    void copyTo(unsigned char* to, int position) const;
    // Makes the sequence the whole body of the method.
    void installInto(CodeAttribute* attribute) const;
    const unsigned char* getCode() const { return code.data(); }

private:
    ZVector<unsigned char> code;
    ZVector<int> openJumps;
    ZVector<int> jumpTargets;
};
