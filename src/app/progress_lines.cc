#include "app/progress_lines.h"

#include <iostream>

namespace harbix {
namespace {

constexpr std::size_t CAPACITY = 4096;

}  // namespace

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

}  // namespace harbix
