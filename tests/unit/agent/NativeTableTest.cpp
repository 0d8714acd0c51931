// The table of natives as RegisterNatives gets it.
#include "core/entry/NativeTable.h"

#include "core/jvm/CallbackNatives.h"

#include <cctype>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <strings.h>

namespace {

// The instrumentation's own entry points stand behind the alphabet.
bool isOwnEntry(const std::string& name) {
    return name.compare(0, 3, "vdk") == 0;
}

} // namespace

TEST(NativeTable, holdsDifferentNativesInOrder) {
    ASSERT_EQ(90, ourAgentNativeMethodCount);
    std::set<void*> functions;
    for (int i = 0; i < ourAgentNativeMethodCount; i++) {
        const JNINativeMethod& row = ourAgentNativeMethods[i];
        functions.insert(row.fnPtr);
        if (i > 0 && !isOwnEntry(row.name)) {
            EXPECT_LT(strcasecmp(ourAgentNativeMethods[i - 1].name, row.name), 0) << row.name;
        }
    }
    EXPECT_EQ(90u, functions.size());
}

TEST(NativeTable, signaturesAreWellFormed) {
    for (int i = 0; i < ourAgentNativeMethodCount; i++) {
        const std::string signature(ourAgentNativeMethods[i].signature);
        EXPECT_EQ('(', signature[0]) << signature;
        EXPECT_NE(std::string::npos, signature.find(')')) << signature;
        EXPECT_EQ(std::string::npos, signature.find('.')) << signature;
    }
}

// Inserted code must not meet an exception here, whatever is switched on or off meanwhile.
TEST(NativeTable, anAllocationCallGivesItsHintBackWhileRecordingIsOff) {
    EXPECT_EQ(-1, Java_com_vandrik_runtime_Callback_vdkInit0(nullptr, nullptr, nullptr, -1));
    EXPECT_EQ(77, Java_com_vandrik_runtime_Callback_vdkInit0(nullptr, nullptr, nullptr, 77));
}
