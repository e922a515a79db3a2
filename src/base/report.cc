#include "base/report.h"

#include <algorithm>

#include "base/log.h"

namespace harbix::report {
namespace {

constexpr std::size_t CAPACITY = 4096;

}  // namespace

void error(std::string_view text, std::string_view prefix) {
  // Without memory of its own: there may be none left.
  constexpr std::size_t LONGEST = diagnostics::LINE_CAPACITY;
  diagnostics::line(0, "ERROR: %.*s", static_cast<int>(std::min(text.size(), LONGEST)), text.data());
  std::cerr << prefix << text << '\n';
}

ProgressLines::~ProgressLines() { flush(); }

void ProgressLines::add(std::string_view label, std::string_view text) {
  lines_ += label;
  lines_ += text;
  lines_ += '\n';
  if (lines_.size() >= CAPACITY) flush();
}

void ProgressLines::flush() {
  std::cerr << lines_;
  lines_.clear();
}

}  // namespace harbix::report
