#include "tests/support/recorded_log.h"

#include <array>
#include <cstdarg>
#include <cstdio>

#include "base/log.h"
#include "platform/logger.h"

namespace harbix::test {
namespace {

constexpr std::size_t LONGEST_LINE = 8192;

std::vector<LogLine>& recorded() {
  static std::vector<LogLine> lines;
  return lines;
}

}  // namespace
}  // namespace harbix::test

namespace platform {

// Stands in for the member of the platform library, which is then never pulled in.
int slogf(int code, int severity, const char* format, ...) noexcept {
  std::array<char, harbix::test::LONGEST_LINE> text{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  harbix::test::recorded().push_back({.code = code, .severity = severity, .text = text.data()});
  return 0;
}

}  // namespace platform

namespace harbix::test {

RecordedLog::RecordedLog(int level) {
  diagnostics::set_level(level);
  clear();
}

RecordedLog::~RecordedLog() {
  diagnostics::set_level(1);
  clear();
}

// NOLINTBEGIN(readability-convert-member-functions-to-static): without an object nothing is kept apart
const std::vector<LogLine>& RecordedLog::lines() const noexcept { return recorded(); }

void RecordedLog::clear() noexcept { recorded().clear(); }
// NOLINTEND(readability-convert-member-functions-to-static)

std::vector<std::string> RecordedLog::messages() const {
  std::vector<std::string> messages;
  for (const LogLine& line : lines())
    messages.push_back(std::to_string(line.severity) + " " + line.message());
  return messages;
}

}  // namespace harbix::test
