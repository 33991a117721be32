// The log as Android builds have it, against the platform's own log library.
#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "cutter/SkarLog.h"

namespace {

using Written = std::tuple<int, std::string, std::string>;  // priority, tag, text
std::vector<Written> written;

void keep(const __android_logger_data* line, const char* text) {
    written.emplace_back(line->priority, line->tag, text);
}

TEST(AndroidLog, SendsPriorityTagAndText) {
    __android_log_set_logger(keep);
    __android_log_set_minimum_priority(ANDROID_LOG_UNKNOWN);
    const std::pair<skarbo::logtype, int> priorities[] = {
        {skarbo::info, ANDROID_LOG_INFO},
        {skarbo::debug, ANDROID_LOG_DEBUG},
        {skarbo::warning, ANDROID_LOG_WARN},
        {skarbo::error, ANDROID_LOG_ERROR},
        {static_cast<skarbo::logtype>(9), ANDROID_LOG_DEFAULT}};
    for (const auto& [type, priority] : priorities) {
        written.clear();
        {
            skarbo::SkarLog unseen(type);
            unseen << "dropped";
            skarbo::SkarLog log(type);
            log << "100 %s %n of "
                << "it";
            EXPECT_TRUE(written.empty());
            log.showLog();
            log << ", again";
            log.showLog();
        }
        ASSERT_EQ(written.size(), 2U);
        EXPECT_EQ(written[0], Written(priority, "__SKARBO__ ", "100 %s %n of it"));
        EXPECT_EQ(written[1], Written(priority, "__SKARBO__ ", "100 %s %n of it, again"));
    }
}

}  // namespace
