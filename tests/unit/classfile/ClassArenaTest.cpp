#include "classfile/ClassArena.h"

#include <gtest/gtest.h>

TEST(ClassArena, trimmedBytesAreHandedOutAgain) {
    ClassArena arena;
    auto* const first = arena.allocateArray<unsigned char>(100);
    arena.trim(first + 13);
    EXPECT_EQ(arena.allocateArray<unsigned char>(8), first + 16);
    auto* const whole = arena.allocateArray<unsigned char>(24);
    arena.trim(whole + 24);
    EXPECT_EQ(arena.allocateArray<unsigned char>(8), whole + 24);
}

TEST(ClassArena, resetReusesTheNewestBlockAlone) {
    ClassArena arena;
    arena.allocate(8);
    void* const large = arena.allocate(1 << 20);
    const size_t committed = arena.getCommitted();
    for (int i = 0; i < 100; i++) {
        arena.reset();
        EXPECT_EQ(arena.allocate(1 << 20), large);
    }
    EXPECT_EQ(arena.getCommitted(), committed);
}

TEST(ClassArena, arenasAliveTogetherShareNoMemory) {
    for (int round = 0; round < 3; round++) {
        ClassArena arenas[5];
        unsigned char* places[5];
        for (int i = 0; i < 5; i++) {
            places[i] = arenas[i].allocateArray<unsigned char>(1000);
            for (int k = 0; k < 1000; k++) {
                places[i][k] = static_cast<unsigned char>(i);
            }
        }
        for (int i = 0; i < 5; i++) {
            for (int k = 0; k < 1000; k++) {
                ASSERT_EQ(places[i][k], i);
            }
        }
    }
}
