#include "profiling/cpu/CodeShape.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

CodeShape shapeOf(const Bytes& code) {
    return CodeShape::read(code.data(), code.size());
}

// As HotSpot's compilers of 17 and 25 make them: the room on the stack is tried first.
const Bytes PUSHING = {0x89, 0x84, 0x24, 0x00, 0xc0, 0xfe, 0xff, // mov [rsp-0x14000], eax
                       0x55,                                     // push rbp
                       0x48, 0x83, 0xec, 0x30,                   // sub rsp, 0x30
                       0x90, 0x90,                               // nop
                       0x48, 0x83, 0xc4, 0x30,                   // add rsp, 0x30
                       0x5d,                                     // pop rbp
                       0x49, 0x3b, 0xa7, 0x38, 0x03, 0,    0,    // cmp rsp, [r15+0x338]
                       0x0f, 0x87, 0x01, 0x00, 0x00, 0x00,       // ja
                       0xc3};                                    // ret
const Bytes STORING = {0x48, 0x81, 0xec, 0x18, 0,    0, 0,       // sub rsp, 0x18
                       0x48, 0x89, 0x6c, 0x24, 0x10,             // mov [rsp+0x10], rbp
                       0x48, 0x83, 0xc4, 0x10,                   // add rsp, 0x10
                       0x5d, 0xc3};
const Bytes WITH_FRAME_POINTER = {0x55, 0x48, 0x8b, 0xec, // push rbp; mov rbp, rsp
                                  0x48, 0x81, 0xec, 0x00, 0x01, 0x00, 0x00};

TEST(CodeShape, tellsTheWordsOfAFrameByTheInstructionsThatMakeIt) {
    const Bytes unaligned = {0x55, 0x48, 0x83, 0xec, 0x31, 0xc3};
    const Bytes withoutSaving = {0x48, 0x81, 0xec, 0x18, 0, 0, 0, 0xc3};
    const Bytes cut = {0x55, 0x48, 0x81, 0xec, 0x18};
    const struct {
        Bytes code;
        int words;
    } cases[] = {{PUSHING, 8}, {STORING, 4},       {WITH_FRAME_POINTER, 34}, {{}, 0},
                 {{0xc3}, 0},  {withoutSaving, 0}, {unaligned, 0},           {cut, 0}};
    for (const auto& one : cases) {
        EXPECT_EQ(shapeOf(one.code).words, one.words) << one.code.size() << " bytes";
    }
}

TEST(CodeShape, tellsWhatOfAFrameIsOnTheStackAtEachInstruction) {
    const CodeShape::State NONE = CodeShape::NOTHING;
    const CodeShape::State PART = CodeShape::FRAME_POINTER;
    const CodeShape::State ALL = CodeShape::ALL;
    const struct {
        const char* name;
        const Bytes& code;
        size_t offset;
        CodeShape::State state;
    } cases[] = {{"first", PUSHING, 0, NONE},
                 {"push", PUSHING, 7, NONE},
                 {"sub", PUSHING, 8, PART},
                 {"body", PUSHING, 12, ALL},
                 {"add", PUSHING, 14, ALL},
                 {"pop", PUSHING, 18, PART},
                 {"cmp", PUSHING, 19, NONE},
                 {"ja", PUSHING, 26, NONE},
                 {"ret", PUSHING, 32, NONE},
                 {"behind the end", PUSHING, 33, ALL},
                 {"sub of storing", STORING, 0, NONE},
                 {"mov of storing", STORING, 7, ALL},
                 {"pop of storing", STORING, 16, PART},
                 {"ret of storing", STORING, 17, NONE},
                 {"mov rbp, rsp", WITH_FRAME_POINTER, 1, PART},
                 {"sub behind it", WITH_FRAME_POINTER, 4, PART}};
    for (const auto& one : cases) {
        EXPECT_EQ(shapeOf(one.code).stateAt(one.code.data(), one.code.size(), one.offset),
                  one.state)
            << one.name;
    }
}

} // namespace
