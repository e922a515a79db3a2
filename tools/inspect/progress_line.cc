#include "inspect/progress_line.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace harbix::inspect {
namespace {

void write(const std::string& text) {
  // A line that is not seen costs nothing.
  static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
}

}  // namespace

ProgressLine::ProgressLine(bool may_show) : is_shown_(may_show && ::isatty(STDERR_FILENO) == 1) {}

void ProgressLine::follow(ArchiveReader& reader) {
  if (is_shown_) reader.watch_input([this, &reader] { update(reader); });
}

void ProgressLine::update(const ArchiveReader& reader) {
  constexpr std::chrono::milliseconds PAUSE{200};
  const Clock::time_point now = Clock::now();
  if (now - last_ < PAUSE) return;
  last_ = now;
  show(reader);
}

void ProgressLine::show(const ArchiveReader& reader) {
  constexpr double MEGA = 1e6;
  const double seconds = std::chrono::duration<double>(last_ - begin_).count();
  const auto done = static_cast<double>(reader.input().position());
  const double rate = std::max(done / seconds, 1.0);
  std::string text = fmt::format("\r\033[K{:.0f} MB, {:.0f} MB/s", done / MEGA, rate / MEGA);
  const auto all = static_cast<double>(reader.input().record().st_size);
  if (reader.input().is_regular() && all > 0)
    text += fmt::format(", {:.0f} %, {:.0f} s left", std::min(done / all, 1.0) * 100,
                        std::max(all - done, 0.0) / rate);
  write(text);
  is_there_ = true;
}

void ProgressLine::clear() {
  if (is_there_) write("\r\033[K");
  is_there_ = false;
}

}  // namespace harbix::inspect
