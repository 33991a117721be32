// The log as Android builds have it, against the platform's own log library.
#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cutter/SkarLog.h"

namespace {

struct Written {
    int priority;
    std::string tag, text;
};
std::vector<Written> written;

void keep(const __android_logger_data* line, const char* text) {
    written.push_back({line->priority, line->tag, text});
}

TEST(AndroidLog, SendsPriorityTagAndText) {
    __android_log_set_logger(keep);
    __android_log_set_minimum_priority(ANDROID_LOG_UNKNOWN);
    const std::vector<std::pair<skarbo::logtype, int>> priorities = {
        {skarbo::info, ANDROID_LOG_INFO},
        {skarbo::debug, ANDROID_LOG_DEBUG},
        {skarbo::warning, ANDROID_LOG_WARN},
        {skarbo::error, ANDROID_LOG_ERROR},
        {static_cast<skarbo::logtype>(9), ANDROID_LOG_DEFAULT}};
    for (const auto& [type, priority] : priorities) {
        written.clear();
        {
            skarbo::SkarLog log(type);
            log << "100 %s %n of "
                << "it";
            EXPECT_TRUE(written.empty());
            log.showLog();
            log << ", again";
            log.showLog();
        }
        ASSERT_EQ(written.size(), 2U);
        EXPECT_EQ(written[0].priority, priority);
        EXPECT_EQ(written[0].tag, "__SKARBO__ ");
        EXPECT_EQ(written[0].text, "100 %s %n of it");
        EXPECT_EQ(written[1].text, "100 %s %n of it, again");
    }
}

TEST(AndroidLog, SendsNothingByItself) {
    __android_log_set_logger(keep);
    written.clear();
    {
        skarbo::SkarLog log;
        log << "dropped";
    }
    EXPECT_TRUE(written.empty());
}

}  // namespace
