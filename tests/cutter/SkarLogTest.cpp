#include "cutter/SkarLog.h"

#include <gtest/gtest.h>

using skarbo::logtype;
using skarbo::SkarLog;

TEST(SkarLog, MapsTypesToAndroidPriorities) {
    const int expected[] = {1, 4, 3, 5, 6, 1};
    for (int type = 0; type < 6; ++type) {
        EXPECT_EQ(getLogLevel(static_cast<logtype>(type)), expected[type]) << type;
    }
    EXPECT_EQ(getLogLevel(static_cast<logtype>(-1)), 1);
    EXPECT_EQ(getLogLevel(static_cast<logtype>(INT32_MIN)), 1);
}

TEST(SkarLog, ShowsWhatWasCollectedSoFarAndNothingWhenDestroyed) {
    testing::internal::CaptureStderr();
    {
        SkarLog log(skarbo::warning);
        log << "ab"
            << "c";
        log.showLog();
        log << " 100% %s %n";
        log.showLog();
    }
    {
        SkarLog silent;
        silent << "never seen";
    }
    SkarLog().showLog();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "5 __SKARBO__ abc\n5 __SKARBO__ abc 100% %s %n\n3 __SKARBO__ \n");
}
