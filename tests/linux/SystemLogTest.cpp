#include "platform/linux/base/SystemLog.h"

#include <gtest/gtest.h>

using zelvo::platform::SystemLog;

TEST(SystemLog, WritesOneLineForEachCall) {
    testing::internal::CaptureStderr();
    SystemLog log;
    log.line("plain \u00e9\n");
    log.line("two\nlines\r\t\x1b[2J \x7f \xc2\x9b \xc3(");
    log.line(std::string(10'000, 'a'));
    log.standardError("as\nit stands\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "plain \u00e9\n"
              "two\\nlines\\r\\t\\x1b[2J \\x7f \\xc2\\x9b \\xc3(\n" +
                  std::string(10'000, 'a') + "\nas\nit stands\n");
    auto lines = log.recentLines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "plain \u00e9");
    EXPECT_EQ(lines[2], std::string(SystemLog::lineLimit, 'a') + "...");

    testing::internal::CaptureStderr();
    for (int line = 0; line < 300; ++line)
        log.line("line " + std::to_string(line));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.recentLines().size(), SystemLog::linesKept);
    EXPECT_EQ(log.recentLines().back(), "line 299");
}
