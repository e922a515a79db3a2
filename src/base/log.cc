#include "base/log.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "platform/logger.h"

namespace diagnostics {
namespace {

constexpr int MESSAGE_CODE = 0x06402711;
constexpr std::size_t TAG_CAPACITY = 40;

int current_level = 1;

bool is_level(int number) { return number >= 0 && number <= HIGHEST_LEVEL; }

[[gnu::format(printf, 2, 0)]] void send(int severity, const char* format, va_list arguments) noexcept {
  std::array<char, LINE_CAPACITY> text{};
  const int wanted =
      std::snprintf(text.data(), TAG_CAPACITY, "%s[%d]", program_invocation_short_name, getpid());
  const std::size_t tag =
      std::clamp<std::size_t>(wanted < 0 ? 0 : static_cast<std::size_t>(wanted), 0, TAG_CAPACITY - 1);
  text[tag] = ':';
  // A message that cannot be formatted leaves the tag alone to tell that something was said.
  std::vsnprintf(text.data() + tag + 1, LINE_CAPACITY - 1 - tag, format, arguments);
  // A failure of the system log itself cannot be reported anywhere.
  platform::slogf(MESSAGE_CODE, severity, "%s", text.data());
}

template <int SEVERITY>
[[gnu::format(printf, 1, 2)]] void send_at(const char* format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  send(SEVERITY, format, arguments);
  va_end(arguments);
}

constexpr std::array<int, HIGHEST_LEVEL + 1> SEVERITIES{platform::SEVERITY_ERROR,  platform::SEVERITY_WARNING,
                                                        platform::SEVERITY_NOTICE, platform::SEVERITY_INFO,
                                                        platform::SEVERITY_DEBUG1, platform::SEVERITY_DEBUG2};

constexpr std::array<LevelFunction, HIGHEST_LEVEL + 1> LEVEL_FUNCTIONS{
    send_at<SEVERITIES[0]>, send_at<SEVERITIES[1]>, send_at<SEVERITIES[2]>,
    send_at<SEVERITIES[3]>, send_at<SEVERITIES[4]>, send_at<SEVERITIES[5]>};

}  // namespace

void set_level(int level) noexcept {
  current_level = level;
  if (level > HIGHEST_LEVEL) return;
  level_function(level)("Debug level %d enabled\n", level);
}

int level() noexcept { return is_level(current_level) ? current_level : 0; }

LevelFunction level_function(int level) noexcept {
  return LEVEL_FUNCTIONS[is_level(level) ? static_cast<std::size_t>(level) : 0];
}

void line(int level, const char* format, ...) noexcept {
  if (diagnostics::level() < level) return;
  va_list arguments;
  va_start(arguments, format);
  send(SEVERITIES[is_level(level) ? static_cast<std::size_t>(level) : 0], format, arguments);
  va_end(arguments);
}

}  // namespace diagnostics
