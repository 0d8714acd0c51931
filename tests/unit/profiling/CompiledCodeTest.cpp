#include "profiling/cpu/CompiledCode.h"

#include <gtest/gtest.h>
#include <jvmticmlr.h>
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
        addStack(0x10, {OUTER});
        addStack(0x20, {INNER, MIDDLE, OUTER});
        addStack(0x30, {MIDDLE, OUTER});
        std::vector<PCStackInfo> infos;
        for (size_t i = 0; i < stacks.size(); i++) {
            PCStackInfo info = {};
            info.pc = code + ends[i];
            info.numstackframes = static_cast<jint>(stacks[i].size());
            info.methods = stacks[i].data();
            infos.push_back(info);
        }
        jvmtiCompiledMethodLoadInlineRecord record = {};
        record.header.kind = JVMTI_CMLR_INLINE_INFO;
        record.numpcs = static_cast<jint>(infos.size());
        record.pcinfo = infos.data();
        CompiledCode::add(OUTER, code, sizeof(code), &record);
    }
    ~CompiledCodeTest() override { CompiledCode::clear(); }

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

private:
    char code[0x40] = {};
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

} // namespace
