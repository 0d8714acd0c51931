#include "profiling/cpu/Tracing.h"

#include "ToyJvm.h"

#include <gtest/gtest.h>

TEST(Tracing, costOfCallsIsTakenOffAndNothingIsNegative) {
    const struct {
        long calibration;
        long end;
        long start;
        long calls;
        long expected;
    } rows[] = {
        {0, 100, 300, 0, 0},     {100, 1000, 0, 3, 700}, {-1, 1000, 0, 3, 1000},
        {100, 1000, 0, 0, 1000}, {100, 1000, 0, 11, 0},
    };
    for (const auto& row : rows) {
        setCalibration(row.calibration);
        EXPECT_EQ(row.expected, getTimeDeltaNs(row.end, row.start, row.calls, 1))
            << row.calibration << " " << row.calls;
    }
    setCalibration(0);
}

TEST(Tracing, modesThatWereSwitchedOffAtStartAreRefused) {
    ToyJvm jvm;
    EXPECT_TRUE(refuseCPUProfiling(CPU_SAMPLING).isEmpty());
    EXPECT_TRUE(refuseCPUProfiling(CPU_SAMPLING | CPU_J2EE_BIT).isEmpty());
    ourCapabilities = 0;
    EXPECT_STREQ("Tracing was explicitly disabled for this application on its startup",
                 refuseCPUProfiling(CPU_TRACING).c_str());
    EXPECT_STREQ("J2EE profiling was explicitly disabled for this application on its startup",
                 refuseCPUProfiling(CPU_SAMPLING | CPU_J2EE_BIT).c_str());
    EXPECT_TRUE(refuseCPUProfiling(CPU_SAMPLING).isEmpty());
}
