#include "profiling/cpu/CompiledCode.h"

#include "profiling/cpu/CallMemo.h"

#include <cstring>
#include <gtest/gtest.h>
#include <jvmticmlr.h>
#include <string>
#include <vector>

namespace {

jmethodID method(uintptr_t id) {
    return reinterpret_cast<jmethodID>(id);
}

const jmethodID OUTER = method(8);
const jmethodID MIDDLE = method(16);
const jmethodID INNER = method(24);

// A piece of code with two methods inlined, one in the other, as the JVM tells of it: each stack
// stands for the instructions that end at its address.
class CompiledCodeTest : public testing::Test {
protected:
    CompiledCodeTest() {
        const unsigned char entry[] = {0x55, 0x48, 0x83, 0xec, 0x10}; // push rbp; sub rsp, 16
        memcpy(code, entry, sizeof(entry));
        code[CALL_RETURN - 5] = '\xe8';
        const int32_t distance = static_cast<int32_t>(stub - (code + CALL_RETURN));
        memcpy(code + CALL_RETURN - 4, &distance, sizeof(distance));
        addStack(0x10, {OUTER});
        addStack(0x20, {INNER, MIDDLE, OUTER});
        addStack(0x30, {MIDDLE, OUTER});
        std::vector<PCStackInfo> infos;
        for (size_t i = 0; i < stacks.size(); i++) {
            PCStackInfo info = {};
            info.pc = code + ends[i];
            info.numstackframes = static_cast<jint>(stacks[i].size());
            info.methods = stacks[i].data();
            info.bcis = positions;
            infos.push_back(info);
        }
        jvmtiCompiledMethodLoadInlineRecord record = {};
        record.header.kind = JVMTI_CMLR_INLINE_INFO;
        record.numpcs = static_cast<jint>(infos.size());
        record.pcinfo = infos.data();
        CompiledCode::add(OUTER, false, code, sizeof(code), &record);
    }
    ~CompiledCodeTest() override { CompiledCode::clear(); }

    static const int CALL_RETURN = 0x20;

    void addStack(int end, const std::vector<jmethodID>& methods) {
        ends.push_back(end);
        stacks.push_back(methods);
    }

    uintptr_t at(int offset) const { return reinterpret_cast<uintptr_t>(code) + offset; }

    std::vector<jmethodID> methodsAt(int offset) const {
        jmethodID found[8];
        const int count = CompiledCode::methodsAt(at(offset), found, 8);
        return {found, found + count};
    }

    char code[0x40] = {};
    char stub[0x10] = {};

private:
    jint positions[3] = {3, 5, -1}; // in the bytecode, of the innermost method first
    std::vector<int> ends;
    std::vector<std::vector<jmethodID>> stacks;
};

TEST_F(CompiledCodeTest, tellsTheMethodsOfTheInstructionBeforeAnAddress) {
    using Methods = std::vector<jmethodID>;
    const struct {
        int offset;
        Methods methods;
    } cases[] = {
        {0, {OUTER}},
        {0x10, {OUTER}},
        {0x11, {INNER, MIDDLE, OUTER}},
        {0x20, {INNER, MIDDLE, OUTER}},
        {0x21, {MIDDLE, OUTER}},
        {0x30, {MIDDLE, OUTER}},
        {0x31, {OUTER}},
        {0x3f, {OUTER}},
        {0x40, {}},
        {-1, {}},
    };
    for (const auto& at : cases) {
        EXPECT_EQ(methodsAt(at.offset), at.methods) << at.offset;
    }
}

TEST_F(CompiledCodeTest, knowsWhereAnInstructionBeforeIsOfTheSameMethod) {
    const struct {
        int offset;
        bool isWithin;
    } cases[] = {{-1, false}, {0, false}, {1, true}, {0x3f, true}, {0x40, false}};
    for (const auto& at : cases) {
        EXPECT_EQ(CompiledCode::isWithinMethod(this->at(at.offset)), at.isWithin) << at.offset;
    }
    CompiledCode::remove(OUTER, reinterpret_cast<const void*>(at(0)));
    EXPECT_FALSE(CompiledCode::isWithinMethod(at(1)));
}

std::string textOf(const CompiledCode::Frame& frame, const CallFrame* frames) {
    std::string text = std::to_string(frame.kind) + " " + std::to_string(frame.words) + " words";
    for (int i = 0; i < frame.count; i++) {
        text += " " + std::to_string(reinterpret_cast<uintptr_t>(frames[i].method)) + ":" +
                std::to_string(frames[i].position);
    }
    return text;
}

TEST_F(CompiledCodeTest, tellsFramesAndPlacesOfCallsThatAreReturnedToAndOfInterruptedCode) {
    const struct {
        int offset;
        int most;
        const char* call;
        const char* interrupted;
    } cases[] = {
        {0x10, 8, "1 4 words", "1 4 words 8:3"}, // no call stands there
        {CALL_RETURN - 1, 8, "1 4 words", "1 4 words 24:3 16:5 8:-1"},
        {CALL_RETURN, 8, "1 4 words 24:3 16:5 8:-1", "1 4 words 24:3 16:5 8:-1"},
        {CALL_RETURN, 2, "1 4 words", "1 4 words"}, // no room
        {0x31, 8, "1 4 words", "1 4 words"},        // behind all that the JVM tells
        {0x40, 8, "0 0 words", "0 0 words"},
    };
    for (const auto& one : cases) {
        CallFrame frames[8];
        EXPECT_EQ(textOf(CompiledCode::callAt(at(one.offset), frames, one.most), frames), one.call)
            << one.offset;
        EXPECT_EQ(textOf(CallMemo::callAt(at(one.offset), frames, one.most), frames), one.call)
            << one.offset;
        EXPECT_EQ(textOf(CompiledCode::interruptedAt(at(one.offset), frames, one.most), frames),
                  one.interrupted)
            << one.offset;
    }
}

TEST_F(CompiledCodeTest, forgetsCallsOfCodeThatIsGone) {
    CallFrame frames[8];
    const auto call = [&] { return CallMemo::callAt(at(CALL_RETURN), frames, 8).count; };
    EXPECT_EQ(call(), 3);
    EXPECT_EQ(call(), 3);
    CompiledCode::remove(OUTER, code);
    EXPECT_EQ(call(), 0);
    CompiledCode::add(MIDDLE, true, code, sizeof(code), nullptr);
    EXPECT_EQ(call(), 1);
    EXPECT_EQ(frames[0].method, MIDDLE);
}

TEST_F(CompiledCodeTest, knowsACallOfAStubByItsTarget) {
    const uintptr_t inStub = reinterpret_cast<uintptr_t>(stub) + 4;
    EXPECT_FALSE(CompiledCode::isCallOfStub(at(CALL_RETURN), inStub)) << "not known as a stub";
    CompiledCode::addOther(stub, sizeof(stub));
    EXPECT_TRUE(CompiledCode::isCallOfStub(at(CALL_RETURN), inStub));
    EXPECT_FALSE(CompiledCode::isCallOfStub(at(CALL_RETURN + 1), inStub));
    EXPECT_FALSE(CompiledCode::isCallOfStub(at(3), inStub)) << "at the begin of the code";
    EXPECT_FALSE(CompiledCode::isCallOfStub(at(CALL_RETURN), at(0))) << "a method";
}

} // namespace
