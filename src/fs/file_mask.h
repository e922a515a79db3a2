#pragma once

#include <sys/types.h>

namespace fs {

/// Creates files under another file-creation mask until the end of the scope.
class FileMask {
 public:
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit FileMask(mode_t mask) noexcept;
  ~FileMask();
  FileMask(const FileMask&) = delete;
  FileMask& operator=(const FileMask&) = delete;
  FileMask(FileMask&&) = delete;
  FileMask& operator=(FileMask&&) = delete;

 private:
  mode_t saved_;
};

}  // namespace fs
