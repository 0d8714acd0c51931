// Thread dumps as the JVMs of both releases write them, and what follows from two of them.
#include "client/threads/ThreadsNow.h"

#include <gtest/gtest.h>

using namespace vdk;

namespace {

std::string head(const std::string& name, int nativeId, const std::string& cpu, bool isNew) {
    return "\"" + name + "\" #2" + (isNew ? " [" + std::to_string(nativeId) + "]" : "") +
           " daemon prio=5 os_prio=0 cpu=" + cpu +
           "ms elapsed=4.05s tid=0x00007f33 nid=" + (isNew ? std::to_string(nativeId) : "0x64") +
           " waiting on condition  [0x00007f3392dfe000]\n";
}

std::string none() {
    return "\n   Locked ownable synchronizers:\n\t- None\n\n";
}

// A deadlock of two, two more behind it, a lock that a thread holds, a wait that gave its lock
// back.
std::string dump(const std::string& cpuOfHolder) {
    return "2026-11-23 01:56:02\nFull thread dump OpenJDK 64-Bit Server VM (25.0.3):\n\n" +
           head("holder", 3, cpuOfHolder, true) +
           "   java.lang.Thread.State: RUNNABLE\n"
           "\tat A$$Lambda/0x0000000018040210.run(Unknown Source)\n\t- locked <0x01> (a "
           "java.lang.Object)\n\n"
           "   Locked ownable synchronizers:\n\t- <0x02> (a "
           "java.util.concurrent.locks.ReentrantLock$NonfairSync)\n\n" +
           head("pool-1-thread-1", 4, "0.20", true) +
           "   java.lang.Thread.State: BLOCKED (on object monitor)\n"
           "\tat A.b(A.java:4)\n\t- waiting to lock <0x01> (a java.lang.Object)\n" +
           none() + head("a \"quoted\" #3 cpu=9ms", 5, "0.30", true) +
           "   java.lang.Thread.State: WAITING (parking)\n"
           "\tat jdk.internal.misc.Unsafe.park(java.base@25.0.3/Native Method)\n"
           "\t- parking to wait for  <0x02> (a "
           "java.util.concurrent.locks.ReentrantLock$NonfairSync)\n" +
           none() + head("waiter", 6, "0.21", true) +
           "   java.lang.Thread.State: WAITING (on object monitor)\n"
           "\tat java.lang.Object.wait0(java.base@25.0.3/Native Method)\n\t- waiting on <0x03> (a "
           "X)\n"
           "\tat A.w(A.java:7)\n\t- locked <0x03> (a X)\n\t- locked <0x04> (a Y)\n" +
           none() + head("one", 7, "1.00", true) +
           "   java.lang.Thread.State: BLOCKED (on object monitor)\n"
           "\tat A.d(A.java:4)\n\t- waiting to lock <0x06> (a O)\n\t- locked <0x05> (a O)\n" +
           none() + head("two", 8, "1.00", true) +
           "   java.lang.Thread.State: BLOCKED (on object monitor)\n"
           "\tat A.d(A.java:4)\n\t- waiting to lock <0x05> (a O)\n\t- locked <0x06> (a O)\n" +
           none() + head("three", 9, "1.00", true) +
           "   java.lang.Thread.State: BLOCKED (on object monitor)\n"
           "\tat A.d(A.java:4)\n\t- waiting to lock <0x05> (a O)\n" +
           none() +
           "\"VM Thread\" os_prio=0 cpu=2.47ms elapsed=4.19s tid=0x00007f1e nid=10 runnable  \n\n"
           "JNI global refs: 4, weak refs: 0\n\n\nFound one Java-level deadlock:\n\"one\":\n"
           "\tat A.d(A.java:4)\n\t- waiting to lock <0x06> (a O)\n\t- locked <0x05> (a O)\n";
}

} // namespace

TEST(HotSpotDump, tellsWhoRunsAndWhoBlocksWhom) {
    const std::vector<ThreadNow> threads =
        threadsNow(parseHotSpotDump(dump("10.00")), parseHotSpotDump(dump("260.00")), 0.5);
    std::string told;
    for (const ThreadNow& each : threads) {
        const HotSpotThread& thread = each.thread;
        told += thread.name + "|" + each.pool + "|" + std::to_string(int(each.cpuPercent)) + "|" +
                thread.state + "|" + thread.topFrame + "|" + std::to_string(thread.held.size()) +
                "|" + (each.blocker < 0 ? "" : threads[size_t(each.blocker)].thread.name) + "|" +
                std::to_string(each.blocked) + (each.isDeadlocked ? "|dead\n" : "\n");
    }
    EXPECT_EQ(told, "holder|holder|50|RUNNABLE|A$$Lambda.run|2||2\n"
                    "pool-1-thread-1|pool-*-thread-*|0|BLOCKED|A.b|0|holder|0\n"
                    "a \"quoted\" #3 cpu=9ms|a \"quoted\" #* "
                    "cpu=*ms|0|WAITING|jdk.internal.misc.Unsafe.park|0|holder|0\n"
                    "waiter|waiter|0|WAITING|java.lang.Object.wait0|1||0\n"
                    "one|one|0|BLOCKED|A.d|1|two|2|dead\n"
                    "two|two|0|BLOCKED|A.d|1|one|2|dead\n"
                    "three|three|0|BLOCKED|A.d|0|one|0\n"
                    "VM Thread|VM Thread|0|||0||0\n");
    EXPECT_EQ(parseHotSpotDump(head("old", 0, "1.5", false))[0].nativeId, 0x64);
    // Cut anywhere, it tells of fewer threads.
    const std::string whole = dump("1.00");
    for (size_t end = 0; end < whole.size(); end++) {
        EXPECT_LE(parseHotSpotDump(whole.substr(0, end)).size(), 8u);
    }
}
