// Maps from Java objects to ints, with tags kept by a fake JVM.
#include "core/entry/JavaObjectMap.h"

#include "agent/FakeJvm.h"
#include "core/jvm/JvmGlobals.h"

#include <gtest/gtest.h>

namespace {

jobject object(long id) {
    return reinterpret_cast<jobject>(id);
}

class JavaObjectMapTest : public testing::Test {
protected:
    void SetUp() override {
        jvm.vm()->functions->GetEnv(jvm.vm(), reinterpret_cast<void**>(&ourJVMTI9), 0x30010000);
        map = JavaObjectMap::create();
    }
    void TearDown() override {
        JavaObjectMap::destroy(map);
        ourJVMTI9 = nullptr;
    }
    FakeJvm jvm;
    long map = 0;
};

} // namespace

TEST_F(JavaObjectMapTest, putValuesAreGotAndRemoved) {
    EXPECT_EQ(7, JavaObjectMap::get(map, object(3), 7));
    EXPECT_FALSE(JavaObjectMap::contains(map, object(3)));
    EXPECT_EQ(7, JavaObjectMap::remove(map, object(3), 7));
    EXPECT_TRUE(jvm.tags.empty()) << "asking assigns no tag";
    JavaObjectMap::put(map, object(1), 10);
    JavaObjectMap::put(map, object(2), 20);
    JavaObjectMap::put(map, object(1), 11);
    EXPECT_EQ(11, JavaObjectMap::get(map, object(1), -1));
    EXPECT_TRUE(JavaObjectMap::contains(map, object(2)));
    EXPECT_EQ(20, JavaObjectMap::remove(map, object(2), -1));
    EXPECT_FALSE(JavaObjectMap::contains(map, object(2)));
    EXPECT_EQ(-1, JavaObjectMap::remove(map, object(2), -1));
}

TEST_F(JavaObjectMapTest, mapsShareTheTagAndACollectedObjectLeavesThemAll) {
    const long other = JavaObjectMap::create();
    JavaObjectMap::put(map, object(1), 10);
    JavaObjectMap::put(other, object(1), 20);
    EXPECT_EQ(1, jvm.countCalls("SetTag"));
    EXPECT_EQ(10, JavaObjectMap::get(map, object(1), -1));
    EXPECT_EQ(20, JavaObjectMap::get(other, object(1), -1));
    JavaObjectMap::onObjectFree(jvm.tags[1]);
    EXPECT_EQ(-1, JavaObjectMap::get(map, object(1), -1));
    EXPECT_EQ(-1, JavaObjectMap::get(other, object(1), -1));
    JavaObjectMap::destroy(other);
}

TEST_F(JavaObjectMapTest, handlesOfNoMapAndNoObjectAreHarmless) {
    const long gone = JavaObjectMap::create();
    JavaObjectMap::put(gone, object(1), 10);
    JavaObjectMap::destroy(gone);
    for (long handle : {0L, gone, 12345L}) {
        JavaObjectMap::put(handle, object(1), 1);
        EXPECT_EQ(-1, JavaObjectMap::get(handle, object(1), -1));
        EXPECT_FALSE(JavaObjectMap::contains(handle, object(1)));
        EXPECT_EQ(-1, JavaObjectMap::remove(handle, object(1), -1));
        JavaObjectMap::destroy(handle);
    }
    JavaObjectMap::put(map, nullptr, 1);
    EXPECT_EQ(-1, JavaObjectMap::get(map, nullptr, -1));
}

TEST_F(JavaObjectMapTest, nothingIsRememberedWhileTheJvmEnds) {
    JavaObjectMap::put(map, object(1), 10);
    jvm.failure = JVMTI_ERROR_WRONG_PHASE;
    for (const char* function : {"GetTag", "SetTag"}) {
        jvm.failingFunction = function;
        JavaObjectMap::put(map, object(2), 20);
    }
    jvm.failingFunction = "GetTag";
    EXPECT_EQ(-1, JavaObjectMap::get(map, object(1), -1));
    EXPECT_EQ(-1, JavaObjectMap::remove(map, object(1), -1));
    EXPECT_FALSE(JavaObjectMap::contains(map, object(1)));
}
