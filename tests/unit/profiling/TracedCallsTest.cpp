#include "profiling/cpu/TracedCalls.h"

#include "ToyJvm.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/CallbackNatives.h"
#include "profiling/cpu/TracedStack.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/threads/CarrierThread.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ZFrameStorage.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

const long MS = 1000000;

// A JVM in the middle of tracing, with the methods a, b and c, and its one thread.
class TracedCallsTest : public testing::Test {
protected:
    TracedCallsTest() : info("main", nullptr, 0, nullptr) {
        jvm.storedInfo = &info;
        ourVMInitCalled = true;
        ourStatus = CPU_TRACING;
        for (int i = 0; i < 3; i++) {
            const char name[] = {static_cast<char>('a' + i), 0};
            ids[i] = jvm.addMethod("Lp/C;", name, "()V");
            rows[i] = getMethodByID(jvm.env(), ids[i]);
            setFlag(i, METHOD_INSTRUMENTED);
        }
        // The thread is known to be in no call.
        info.traced.currentFrame = 0;
    }
    ~TracedCallsTest() override {
        setNativeThreadInfo(nullptr);
        ourVMInitCalled = false;
        setCalibration(0);
    }

    void setFlag(int method, int flag) {
        ourDB->methodTable->getRecord(rows[method], true)->flags |= flag;
    }
    // The JVM's stack has the call from before its entry to behind its exit.
    void enter(int method) {
        jvm.stack.push_back(ids[method]);
        Java_com_vandrik_runtime_Callback_vdkMethodEntry0(jvm.env(), nullptr, low(method),
                                                          high(method));
    }
    void leave(int method) {
        Java_com_vandrik_runtime_Callback_vdkMethodExit0(jvm.env(), nullptr, low(method),
                                                         high(method));
        if (!jvm.stack.empty()) {
            jvm.stack.pop_back();
        }
    }
    void unwind(int calls) { jvm.stack.resize(jvm.stack.size() - static_cast<size_t>(calls)); }
    void handle(int method) {
        Java_com_vandrik_runtime_Callback_vdkMethodCatch0(jvm.env(), nullptr, low(method),
                                                          high(method));
    }
    jshort low(int method) const { return static_cast<jshort>(rows[method]); }
    jshort high(int method) const { return static_cast<jshort>(rows[method] >> 16); }

    int frameOf(std::initializer_list<int> methods) {
        int frame = 0;
        for (const int method : methods) {
            frame = ourFrameStorage.getChild(frame, rows[method]);
        }
        return frame;
    }
    long countOf(std::initializer_list<int> methods) {
        foldTracedTimes(&info);
        return info.getCPUProfilingRecord(frameOf(methods), true)->count;
    }
    long timeOf(std::initializer_list<int> methods) {
        foldTracedTimes(&info);
        return info.getCPUProfilingRecord(frameOf(methods), true)->timeNs;
    }
    static void burn(long ns) {
        const long end = getCurrentThreadCPUTimeNs() + ns;
        while (getCurrentThreadCPUTimeNs() < end) {
        }
    }

    // A call that takes its time after many that cost far less than the calibrated average.
    void callCheaplyAndOnceForLong(int method) {
        for (int i = 0; i < 1000; i++) {
            enter(method);
            leave(method);
        }
        enter(method);
        burn(5 * MS);
        leave(method);
    }

    ToyJvm jvm;
    ThreadInfo info;
    jmethodID ids[3];
    int rows[3];
};

const int A = 0;
const int B = 1;
const int C = 2;

} // namespace

// The JVM's stack tells which activation of a recursion goes on, and what nobody saw begin.
TEST_F(TracedCallsTest, recursionIsFoundOnTheStackOfTheJvm) {
    for (const int method : {A, B, B, B, C}) {
        enter(method);
    }
    unwind(2);
    handle(B);
    EXPECT_EQ(frameOf({A, B, B}), info.traced.currentFrame);
    unwind(1);
    handle(B);
    EXPECT_EQ(frameOf({A, B}), info.traced.currentFrame);
    EXPECT_EQ(1, countOf({A, B, B, B, C}));
    EXPECT_EQ(0, countOf({A, B, C}));
    jvm.stack = {ids[A], ids[B], ids[C], ids[B]};
    handle(C);
    EXPECT_EQ(frameOf({A, B, C, B}), info.traced.currentFrame);
    EXPECT_EQ(0, countOf({A, B, C}));
}

TEST_F(TracedCallsTest, stackTooDeepToBeReadIsReadAgainWhereItEnds) {
    jvm.stack.assign(1500, ids[A]);
    info.traced.currentFrame = TracedStack::NO_FRAME;
    enter(C);
    leave(C);
    for (int i = 0; i < 1400; i++) {
        leave(A);
    }
    EXPECT_EQ(100, info.traced.markers.getSize());
    enter(B);
    int depth = 0;
    for (int frame = info.traced.currentFrame; frame > 0;
         frame = ourFrameStorage.getParent(frame)) {
        depth++;
    }
    EXPECT_EQ(101, depth);
}

// The calibrated cost is an average. Where calls are cheaper than that, a caller loses more of its
// time than its callees kept.
TEST_F(TracedCallsTest, callerLeftWithLessThanItsCalleesIsCorrected) {
    setCalibration(2 * MS);
    enter(A);
    callCheaplyAndOnceForLong(B);
    leave(A);
    EXPECT_GT(timeOf({A, B}), timeOf({A}));
    EXPECT_TRUE(info.needsWallTimeCorrection);
}

TEST_F(TracedCallsTest, callsOpenAtAFetchAreChargedOnceAndCheckedAsWell) {
    enter(A);
    enter(B);
    burn(MS);
    resetStackTrace(&info, true);
    restoreStackTrace(&info, true);
    const long soFar = timeOf({A, B});
    EXPECT_LE(MS, soFar);
    setCalibration(2 * MS);
    callCheaplyAndOnceForLong(C);
    resetStackTrace(&info, true);
    EXPECT_TRUE(info.needsWallTimeCorrection);
    restoreStackTrace(&info, true);
    leave(B);
    leave(A);
    EXPECT_EQ(1, countOf({A, B}));
    EXPECT_EQ(0, info.traced.currentFrame);
}

// Readers take ourLock, and the thread does not; they also forget what it stands in.
TEST_F(TracedCallsTest, nothingIsLostOrCountedTwiceWhileOthersReadAndForget) {
    const int rounds = 50000;
    std::atomic<bool> done{false};
    std::thread thread([&] {
        setNativeThreadInfo(&info);
        for (int i = 0; i < rounds; i++) {
            enter(A);
            enter(i % 1000 == 0 ? C : B);
            enter(B);
            leave(B);
            leave(i % 1000 == 0 ? C : B);
            leave(A);
        }
        setNativeThreadInfo(nullptr);
        done = true;
    });
    const std::vector<std::vector<int>> paths = {{A}, {A, B}, {A, C}, {A, B, B}, {A, C, B}};
    std::vector<long> counts(paths.size());
    const auto readAndForget = [&] {
        for (size_t i = 0; i < paths.size(); i++) {
            int frame = 0;
            for (const int method : paths[i]) {
                frame = ourFrameStorage.getChild(frame, rows[method]);
            }
            CPUProfilingRecord* const row = info.getCPUProfilingRecord(frame, true);
            counts[i] += row->count;
            row->count = 0;
        }
        info.clearCPUAndJ2EEInfo();
    };
    for (int turn = 0; !done; turn++) {
        {
            LockHolder lock(ourLock);
            resetStackTrace(&info, false);
            if (turn % 8 == 0) {
                readAndForget();
            }
            restoreStackTrace(&info, false);
        }
        std::this_thread::yield(); // the thread may be waiting for the lock
    }
    thread.join();
    resetStackTrace(&info, false);
    readAndForget();
    EXPECT_EQ((std::vector<long>{rounds, rounds - 50, 50, rounds - 50, 50}), counts);
}

// What Java code has kept is open as soon as the thread comes in, and gone with what is forgotten.
TEST_F(TracedCallsTest, callsThatJavaCodeKeepsEndAsTheOthersDo) {
    for (const int method : {B, C}) {
        setFlag(method, METHOD_FILTERED);
    }
    KeptCalls::Run run = {};
    info.traced.kept = &run;
    const auto keep = [&](int method) {
        run.methods[run.count++] = rows[method];
        run.open();
    };
    enter(A);
    enter(B);
    keep(C);
    keep(B);
    jvm.stack.push_back(ids[C]);
    jvm.stack.push_back(ids[B]);
    enter(A); // from the kept ones
    EXPECT_EQ(0, run.count);
    EXPECT_EQ(0, run.isOpen);
    EXPECT_EQ(frameOf({A, B, A}), info.traced.currentFrame);
    leave(A);
    EXPECT_EQ(4, info.traced.markers.getSize());
    leave(B);
    keep(B);
    jvm.stack.push_back(ids[B]);
    unwind(1);
    handle(C); // it called the last one
    EXPECT_EQ(3, info.traced.markers.getSize());
    EXPECT_EQ(frameOf({A, B}), info.traced.currentFrame);
    leave(C);
    leave(B);
    EXPECT_EQ(frameOf({A}), info.traced.currentFrame);
    EXPECT_EQ(1, countOf({A, B}));
    EXPECT_EQ(1, countOf({A, B, A}));
    enter(B);
    keep(C);
    info.traced.forget();
    EXPECT_EQ(0, run.isOpen);
    info.traced.currentFrame = 0;
    enter(A);
    EXPECT_EQ(1, info.traced.markers.getSize());
    EXPECT_EQ(0, run.count);
}

TEST_F(TracedCallsTest, onlyTheCalibratingThreadIsTracedDuringCalibration) {
    setCalibration(-1);
    enter(A);
    leave(A);
    EXPECT_EQ(0, countOf({A}));
    ThreadInfo calibrating("VDKAgent-Calibration", nullptr, 0, nullptr);
    calibrating.traced.currentFrame = 0;
    setNativeThreadInfo(&calibrating);
    enter(A);
    leave(A);
    foldTracedTimes(&calibrating);
    EXPECT_EQ(1, calibrating.getCPUProfilingRecord(frameOf({A}), true)->count);
}
