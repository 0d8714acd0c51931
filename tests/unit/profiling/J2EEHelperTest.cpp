#include "profiling/cpu/J2EEHelper.h"

#include "ToyJvm.h"
#include "core/jvm/CallbackNatives.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ZFrameStorage.h"

#include <gtest/gtest.h>

namespace {

const int SQL = 1;
const int SERVLET = 4;

// A JVM under sampling, with the methods a, b and c. A Java string is a pointer to its characters.
class J2EEHelperTest : public testing::Test {
protected:
    J2EEHelperTest() : info("main", nullptr, 0, nullptr) {
        jvm.storedInfo = &info;
        ourJVMTI3 = &jvm.jvmti;
        ourVMInitCalled = true;
        ourStatus = CPU_SAMPLING | CPU_J2EE_BIT;
        for (int i = 0; i < 3; i++) {
            const char name[] = {static_cast<char>('a' + i), 0};
            ids[i] = jvm.addMethod("Lp/C;", name, "()V");
        }
        auto* const functions = const_cast<JNINativeInterface_*>(jvm.jni.functions);
        functions->FindClass = [](JNIEnv*, const char*) { return static_cast<jclass>(nullptr); };
        functions->NewGlobalRef = [](JNIEnv*, jobject object) { return object; };
        functions->IsInstanceOf = [](JNIEnv*, jobject, jclass) { return jboolean(JNI_TRUE); };
        functions->GetStringUTFChars = [](JNIEnv*, jstring text, jboolean*) {
            return reinterpret_cast<const char*>(text);
        };
        functions->ReleaseStringUTFChars = [](JNIEnv*, jstring, const char*) {};
    }
    ~J2EEHelperTest() override {
        ourVMInitCalled = false;
        ourJVMTI3 = nullptr;
    }

    static jobject text(const char* value) {
        return reinterpret_cast<jobject>(const_cast<char*>(value));
    }
    void stack(std::initializer_list<int> methods) {
        jvm.stack.clear();
        for (const int method : methods) {
            jvm.stack.push_back(ids[method]);
        }
    }
    int frameOf(std::initializer_list<int> methods) {
        int frame = 0;
        for (const int method : methods) {
            frame = ourFrameStorage.getChild(frame, getMethodByID(jvm.env(), ids[method]));
        }
        return frame;
    }
    // The stack's row and those above it have been charged by the sampler.
    void charge(long ns) {
        for (int frame = ourFrameStorage.fillCurrentFrameJVMTI(jvm.env(), nullptr); frame > 0;
             frame = ourFrameStorage.getParent(frame)) {
            info.getCPUProfilingRecord(frame, true)->timeNs += ns;
        }
    }
    void enter(const char* name, int type) {
        Java_com_vandrik_runtime_Callback_vdkJ2eeEntry1(jvm.env(), nullptr, text(name), type);
    }
    void enterNamedBy(jobject key) {
        Java_com_vandrik_runtime_Callback_vdkJ2eeEntry2(jvm.env(), nullptr, key, SQL);
    }
    void exit(jobject key = nullptr, const char* name = nullptr) {
        Java_com_vandrik_runtime_Callback_vdkJ2eeExit(jvm.env(), nullptr, key, text(name));
    }
    void leave() { Java_com_vandrik_runtime_Callback_vdkJ2eeLeave(jvm.env(), nullptr); }

    // "thread name type frame: count time" of each row, the frame by its number of methods.
    std::string rows() {
        std::string all;
        for (int i = 0; i < ourDB->j2eeTable->getCapacity(); i++) {
            const J2EERecord* const row = ourDB->j2eeTable->getRecord(i, false);
            if (row == nullptr || row->stamp <= 0) {
                continue;
            }
            int depth = 0;
            for (int frame = row->frame; frame > 0; frame = ourFrameStorage.getParent(frame)) {
                depth++;
            }
            all += std::to_string(row->trn - info.trn) + " " +
                   ourDB->stringPool->getText(row->nameStrID) + " " + std::to_string(row->typeID) +
                   " @" + std::to_string(depth) + ": " + std::to_string(row->count) + " " +
                   std::to_string(row->timeNs) + "\n";
        }
        return all;
    }
    long openEvents() const { return info.j2ee.j2eeRecords.getSize(); }

    ToyJvm jvm;
    ThreadInfo info;
    jmethodID ids[3];
};

TEST_F(J2EEHelperTest, ChargesNestedEventsWithWhatTheirStacksGrew) {
    stack({0});
    charge(1000);
    enter("/shop", SERVLET);
    stack({0, 1});
    charge(50);
    enter("select", SQL);
    enter("select", SQL); // a second probe of the same method
    charge(7);
    exit();
    charge(3);
    exit();
    stack({0});
    exit();
    enter("/shop", SERVLET);
    exit();
    EXPECT_EQ(rows(), "0 /shop 4 @1: 2 60\n0 select 1 @2: 2 17\n");
    exit(); // nobody entered
    ThreadInfo other("other", nullptr, 0, nullptr);
    jvm.storedInfo = &other;
    enter("/shop", SERVLET);
    EXPECT_EQ(rows(), "0 /shop 4 @1: 2 60\n0 select 1 @2: 2 17\n1 /shop 4 @1: 1 0\n");
}

TEST_F(J2EEHelperTest, NamesAnEventByItsObject) {
    jobject const statement = reinterpret_cast<jobject>(&jvm);
    stack({0});
    enterNamedBy(nullptr);
    exit();
    enterNamedBy(statement);
    exit();
    enter("select ?", SQL);
    exit(statement, "select ?");
    enterNamedBy(statement);
    exit();
    EXPECT_EQ(rows(), "0  1 @1: 2 0\n0 select ? 1 @1: 2 0\n");
}

TEST_F(J2EEHelperTest, ClosesWhatAnExceptionLeavesWithoutTime) {
    stack({0});
    enter("outer", SERVLET);
    stack({0, 1});
    enter("handled", SQL);
    charge(5);
    leave();
    EXPECT_EQ(openEvents(), 1);
    enter("left", SQL);
    stack({0, 1, 2});
    enter("left too", SQL);
    charge(10);
    stack({0, 1});
    J2EEHelper::unwind(jvm.env());
    EXPECT_EQ(openEvents(), 2) << "an event of the frame that catches goes on";
    stack({0, 2});
    enter("next", SQL); // nobody told of the handler in a
    EXPECT_EQ(openEvents(), 2);
    charge(1);
    exit();
    stack({0});
    exit();
    EXPECT_EQ(rows(), "0 outer 4 @1: 1 16\n0 handled 1 @2: 1 0\n0 left 1 @2: 1 0\n"
                      "0 left too 1 @3: 1 0\n0 next 1 @2: 1 1\n");
    EXPECT_EQ(openEvents(), 0);
}

TEST_F(J2EEHelperTest, RecordsNothingUnlessAskedTo) {
    ourStatus = CPU_SAMPLING;
    stack({0});
    enter("select", SQL);
    exit();
    EXPECT_EQ(rows(), "");
}

} // namespace
