#include "profiling/threads/ZFrameStorage.h"

#include "ToyJvm.h"
#include "profiling/threads/MethodLookup.h"

#include <gtest/gtest.h>
#include <random>

namespace {

int frameOf(ToyJvm& jvm, const std::vector<jmethodID>& outermostFirst, StackMemory* memory) {
    std::vector<jvmtiFrameInfo> frames;
    for (size_t i = outermostFirst.size(); i > 0; i--) {
        frames.push_back({outermostFirst[i - 1], 0});
    }
    jvmtiStackInfo stack = {};
    stack.frame_buffer = frames.data();
    stack.frame_count = static_cast<jint>(frames.size());
    return ourFrameStorage.fillCurrentFrameJVMTIFromStackInfo(jvm.env(), stack, memory);
}

} // namespace

TEST(ZFrameStorage, newChildrenGoToTheEndAndKnownOnesAreFound) {
    ToyJvm jvm;
    const int a = ourFrameStorage.getChild(0, 10);
    const int b = ourFrameStorage.getChild(0, 11);
    const int c = ourFrameStorage.getChild(0, 12);
    EXPECT_EQ(b, ourFrameStorage.getChild(0, 11));
    EXPECT_EQ(a, ourFrameStorage.getFirstChild(0));
    EXPECT_EQ(b, ourFrameStorage.getNextSibling(a));
    EXPECT_EQ(c, ourFrameStorage.getNextSibling(b));
    EXPECT_EQ(-1, ourFrameStorage.getNextSibling(c));
    EXPECT_EQ(0, ourFrameStorage.getParent(b));
    EXPECT_EQ(11, ourFrameStorage.getMethodIndex(b));
    ourDB->currentStamp = 9;
    EXPECT_EQ(c, ourFrameStorage.getChild(0, 12));
    EXPECT_EQ(1, ourDB->frameTable->getRecordModificationStamp(c));
    const int d = ourFrameStorage.getChild(0, 13);
    for (const int changed : {0, c, d}) {
        EXPECT_EQ(9, ourDB->frameTable->getRecordModificationStamp(changed));
    }
    EXPECT_EQ(1, ourDB->frameTable->getRecordModificationStamp(a));
}

TEST(ZFrameStorage, anyNumberOfChildrenAreFoundAndStandInTheOrderOfTheirMaking) {
    ToyJvm jvm;
    const int parents[] = {0, ourFrameStorage.getChild(0, 1)};
    std::vector<int> children[2];
    for (int i = 0; i < 300; i++) {
        for (int p = 0; p < 2; p++) {
            children[p].push_back(ourFrameStorage.getChild(parents[p], 1000 + i));
            EXPECT_EQ(children[p][static_cast<size_t>(i / 2)],
                      ourFrameStorage.getChild(parents[p], 1000 + i / 2));
        }
    }
    for (int p = 0; p < 2; p++) {
        int child = p == 0 ? ourFrameStorage.getNextSibling(parents[1])
                           : ourFrameStorage.getFirstChild(parents[1]);
        for (int known : children[p]) {
            ASSERT_EQ(known, child);
            EXPECT_EQ(parents[p], ourFrameStorage.getParent(child));
            child = ourFrameStorage.getNextSibling(child);
        }
        EXPECT_EQ(-1, child);
    }
}

TEST(ZFrameStorage, rememberedStackGivesTheFramesOfAFreshWalk) {
    ToyJvm jvm;
    std::vector<jmethodID> methods;
    for (int i = 0; i < 4; i++) {
        methods.push_back(
            jvm.addMethod("LA;", std::string(1, static_cast<char>('a' + i)).c_str(), "()V"));
    }
    std::mt19937 random(1);
    StackMemory memory;
    std::vector<jmethodID> stack;
    for (int round = 0; round < 2000; round++) {
        const size_t keep = stack.empty() ? 0 : random() % (stack.size() + 1);
        stack.resize(keep);
        for (size_t more = random() % 5; more > 0; more--) {
            stack.push_back(methods[random() % methods.size()]);
        }
        const int expected = frameOf(jvm, stack, nullptr);
        ASSERT_EQ(expected, frameOf(jvm, stack, &memory)) << "round " << round;
        ASSERT_EQ(static_cast<int>(stack.size()), memory.frames.getSize());
    }
}

TEST(ZFrameStorage, hiddenTopIsSkippedAndAllHiddenGivesTheRoot) {
    ToyJvm jvm;
    const jmethodID hidden = jvm.addMethod("Lcom/vandrik/runtime/Callback;", "vdkInit", "()V");
    const jmethodID visible = jvm.addMethod("LA;", "run", "()V");
    const int visibleFrame = frameOf(jvm, {visible}, nullptr);
    EXPECT_EQ(visibleFrame,
              ourFrameStorage.skipHidden(frameOf(jvm, {visible, hidden, hidden}, nullptr)));
    EXPECT_EQ(0, ourFrameStorage.skipHidden(frameOf(jvm, {hidden, hidden}, nullptr)));
}

TEST(ZFrameStorage, theMethodThatACallbackServesIsTheFirstAboveAllCallbacks) {
    ToyJvm jvm;
    const jmethodID plain = jvm.addMethod("LA;", "run", "()V");
    const jmethodID callback = jvm.addMethod("LProbe;", "onEnter", "()V");
    const jmethodID inner = jvm.addMethod("LProbe;", "onEnterImpl", "()V");
    const struct {
        std::vector<jmethodID> stack;
        size_t depth; // of the frame that is found
    } rows[] = {
        {{plain, plain, callback}, 2},
        {{plain, callback, inner}, 1},
        {{plain, callback, inner, plain, plain}, 1},
        {{plain, callback, plain, inner}, 3},
        {{callback, inner}, 0},
        {{plain, plain, plain}, 2},
        {{plain}, 0},
        {{}, 0},
    };
    for (const auto& row : rows) {
        const std::vector<jmethodID> expected(row.stack.begin(),
                                              row.stack.begin() + static_cast<long>(row.depth));
        EXPECT_EQ(frameOf(jvm, expected, nullptr),
                  findInstrumentedMethod(frameOf(jvm, row.stack, nullptr)))
            << &row - rows;
    }
    EXPECT_EQ(0, findInstrumentedMethod(-1));
}

TEST(MethodLookup, handleIsNamedOnceAndNamesMakeOneRow) {
    ToyJvm jvm;
    const jmethodID first = jvm.addMethod("La/B;", "run", "([BI)V");
    const jmethodID again = jvm.addMethod("La/B;", "run", "([BI)I");
    const int row = getMethodByID(jvm.env(), first);
    EXPECT_EQ(row, getMethodByID(jvm.env(), first));
    EXPECT_EQ(1, jvm.nameLookups);
    EXPECT_EQ(row, getMethodByID(jvm.env(), again)) << "parameters tell rows apart, results do not";
    const MethodRecord* record = ourDB->methodTable->getRecord(row, false);
    EXPECT_STREQ("a.B", ourDB->stringPool->getText(record->classNameStrID));
    EXPECT_STREQ("run", ourDB->stringPool->getText(record->methodNameStrID));
    EXPECT_STREQ("(byte[], int)", ourDB->stringPool->getText(record->parametersStrID));
}

TEST(MethodLookup, handlesOfUnloadedClassesShareARow) {
    ToyJvm jvm;
    const jmethodID gone = jvm.addMethod("LGone;", "run", "()V");
    jvm.method(gone).unloaded = true;
    const int row = getMethodByID(jvm.env(), gone);
    EXPECT_EQ(row, getMethodByID(jvm.env(), nullptr));
    const MethodRecord* record = ourDB->methodTable->getRecord(row, false);
    EXPECT_STREQ("<unloaded>", ourDB->stringPool->getText(record->classNameStrID));
}

TEST(MethodLookup, flagsFollowFromNames) {
    ToyJvm jvm;
    const struct {
        const char* className;
        const char* methodName;
        int flags;
    } rows[] = {
        {"a.B", "run", 0},
        {"com.vandrik.runtime.Callback", "vdkInit", METHOD_HIDDEN},
        {"com.vandrik.runtime.Callback2", "vdkInit", 0},
        {"com.vandrik.probes.builtin.J2EESupport$X", "go", METHOD_HIDDEN},
        {"a.B", "$$VDK$$read", METHOD_HIDDEN},
        {"a.B", "onEnter", METHOD_PROBE_CALLBACK},
        {"a.B", "onUncaughtExceptionExt", METHOD_PROBE_CALLBACK},
        {"a.B", "onEnterX", 0},
    };
    for (const auto& row : rows) {
        const int method = ZMethod::getByName(row.className, row.methodName, "()");
        EXPECT_EQ(row.flags, getMethodFlags(method)) << row.className << "." << row.methodName;
    }
}
