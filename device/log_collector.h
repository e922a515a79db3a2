#pragma once

#include <string>
#include <vector>

#include "base/file_descriptor.h"

namespace device {

/// The device's system log: takes what is sent to a datagram socket and appends it to a file, one line a
/// message.
class LogCollector {
 public:
  /// Opens `path` for appending, emptied first when `emptied`.
  /// @throws Failure quoting the path.
  [[nodiscard]] static base::FileDescriptor open_file(const std::string& path, bool emptied);

  /// Makes the socket at `path`, where everybody may send to.
  /// @throws Failure quoting the path.
  LogCollector(const std::string& path, base::FileDescriptor file);

  /// Readable when there are messages.
  [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }

  /// Writes out all messages that have arrived; does not wait for more. A file that cannot be written is
  /// reported once on standard error, and messages are lost from then on.
  void collect();

 private:
  void write_line(const std::string& line);

  base::FileDescriptor socket_;
  base::FileDescriptor file_;
  std::vector<char> message_;
  bool broken_ = false;
};

}  // namespace device
