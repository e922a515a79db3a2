#pragma once

#include <sys/types.h>

#include "base/file_descriptor.h"

namespace device {

/// The terminal that controls this process, if there is one: decides which process group reads from it and
/// gets the signals of its keys. Callers hold back SIGTTOU. Every operation does nothing without a terminal.
class Terminal {
 public:
  Terminal();

  [[nodiscard]] bool exists() const noexcept { return terminal_.is_open(); }

  /// Whether this process's group is in the foreground.
  [[nodiscard]] bool is_ours() const noexcept;

  /// Whether it was when this object was made. The only way to know in another process namespace, where the
  /// group that the program was started in has no number.
  [[nodiscard]] bool was_ours() const noexcept { return was_ours_; }

  /// Puts a process group of this session into the foreground. A group that has just ended is no error.
  void give_to(pid_t group) const noexcept;

 private:
  base::FileDescriptor terminal_;
  bool was_ours_;
};

}  // namespace device
