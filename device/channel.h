#pragma once

#include <optional>
#include <utility>

#include "base/file_descriptor.h"

namespace device {

/// What the program on the host and the device's first process tell each other.
struct Notice {
  enum class Kind : char {
    // From the device:
    command_stopped,
    command_went_on,
    command_ended,
    // The end of what runs COMMAND on a device that was entered, and the exit status.
    finished,
    // From the host:
    go_on,
    go_on_in_foreground,
    hang_up,
  };

  Kind kind;
  /// The signal that stopped COMMAND, or the exit status; 0 for the other kinds.
  int value = 0;
};

/// One end of the connection between the program on the host and the device's first process.
class Channel {
 public:
  /// Both ends. @throws Failure when the system refuses.
  [[nodiscard]] static std::pair<Channel, Channel> make();

  /// Another holder of this end. @throws Failure when the system refuses.
  [[nodiscard]] Channel copy() const;

  /// Readable when a notice has arrived or the other end is gone.
  [[nodiscard]] int descriptor() const noexcept { return socket_.get(); }

  /// Does nothing when the other end is closed.
  void send(Notice notice) const noexcept;

  /// The next notice that has arrived; nothing when there is none. Closes this end when the other end is
  /// gone.
  [[nodiscard]] std::optional<Notice> receive() noexcept;

  [[nodiscard]] bool is_open() const noexcept { return socket_.is_open(); }

 private:
  explicit Channel(int socket) : socket_(socket) {}

  base::FileDescriptor socket_;
};

}  // namespace device
