#include "platform/logger.h"

#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

int last_priority = -1;
std::string last_line;

}  // namespace

// They take the place of the C library's functions whose names follow, so that the call can be looked at. A
// hardened build calls the second one.
extern "C" {
[[gnu::format(printf, 2, 0)]] void recorded_vsyslog(int priority, const char* format,
                                                    va_list arguments) __asm__("vsyslog");
[[gnu::format(printf, 3, 0)]] void recorded_checked_vsyslog(int priority, int flag, const char* format,
                                                            va_list arguments) __asm__("__vsyslog_chk");
}

void recorded_vsyslog(int priority, const char* format, va_list arguments) {
  std::array<char, 256> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  last_priority = priority;
  last_line = text.data();
}

void recorded_checked_vsyslog(int priority, int /*flag*/, const char* format, va_list arguments) {
  recorded_vsyslog(priority, format, arguments);
}

namespace {

constexpr int CODE = 0x06402711;

TEST(Logger, MapsEachSeverityToItsSyslogPriority) {
  struct Row {
    int severity, priority;
  };
  for (const Row& row : {Row{2, LOG_ERR}, Row{3, LOG_WARNING}, Row{4, LOG_NOTICE}, Row{5, LOG_INFO},
                         Row{6, LOG_DEBUG}, Row{7, LOG_DEBUG}}) {
    EXPECT_EQ(platform::slogf(CODE, row.severity, "%s", "line"), 0) << row.severity;
    EXPECT_EQ(last_priority, LOG_USER | row.priority) << row.severity;
  }
}

TEST(Logger, SendsTheWholeLineAsItIs) {
  platform::slogf(CODE, platform::SEVERITY_ERROR, "%s", "harbix[1]:100%s of %d\n");
  EXPECT_EQ(last_line, "harbix[1]:100%s of %d\n");
}

}  // namespace
}  // namespace harbix::test
