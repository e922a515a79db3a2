#pragma once

#include <chrono>
#include <cstdint>

#include "archive/reader.h"

namespace harbix::inspect {

/// How far the reading of an archive has come: a line on standard error that is written over, on a terminal
/// alone.
class ProgressLine {
 public:
  /// `may_show` is false where standard output is not for a person.
  explicit ProgressLine(bool may_show);
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ProgressLine(ProgressLine&&) = delete;
  ProgressLine& operator=(ProgressLine&&) = delete;

  /// Shows how far the reading of this archive is from now on. The reader must not outlive this object.
  void follow(ArchiveReader& reader);
  /// Makes room for other lines.
  void clear();

 private:
  using Clock = std::chrono::steady_clock;

  void update(const ArchiveReader& reader);
  void show(const ArchiveReader& reader);

  bool is_shown_;
  bool is_there_ = false;
  Clock::time_point begin_ = Clock::now();
  Clock::time_point last_ = begin_;
};

}  // namespace harbix::inspect
