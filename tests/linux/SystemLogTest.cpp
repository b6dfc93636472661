#include "platform/linux/SystemLog.h"

#include <gtest/gtest.h>

#include <thread>

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
}

TEST(SystemLog, KeepsTheLastLinesOfAllThreads) {
    testing::internal::CaptureStderr();
    SystemLog log;
    auto write = [&] {
        for (int line = 0; line < 150; ++line)
            log.line("line " + std::to_string(line));
    };
    std::thread other(write);
    write();
    other.join();
    auto text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 300);
    EXPECT_EQ(log.recentLines().size(), SystemLog::linesKept);
    EXPECT_EQ(log.recentLines().back(), "line 149");
}
