#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/file_descriptor.h"

namespace harbix::test {

/// Opens an object through the mount. @throws std::system_error with open(2)'s error.
[[nodiscard]] base::FileDescriptor open_object(const std::string& path, int flags, mode_t mode = 0666);

/// One write(2) of all of it. @throws std::system_error.
void write_text(const base::FileDescriptor& object, std::string_view text);

/// One read(2). @throws std::system_error.
[[nodiscard]] std::string read_text(const base::FileDescriptor& object, std::size_t size = 32768);

/// Another process of this program, killed at the end of its life when it is still there.
class Process {
 public:
  /// Runs `work` in a copy of this process, whose exit status is what it returns; 99 when it throws.
  explicit Process(const std::function<int()>& work);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  [[nodiscard]] pid_t id() const { return id_; }

  /// Waits until it sleeps in a system call.
  void wait_until_asleep() const;

  /// Sends SIGKILL and waits for the end.
  void kill() noexcept;

  /// Waits for the end. @return the exit status, or 128 and the signal; 99 when there is nothing to wait for.
  int wait() noexcept;

 private:
  pid_t id_ = -1;
};

/// A client that opens `path`, reads once and ends.
class WaitingReader {
 public:
  /// Comes back when the reader sleeps in its read.
  explicit WaitingReader(const std::string& path);

  /// What the read gave, or "(error N)". Waits for it.
  [[nodiscard]] std::string text();

  /// Kills the reader in its read.
  void kill() { process_->kill(); }

 private:
  base::FileDescriptor output_;
  std::optional<Process> process_;
};

}  // namespace harbix::test
