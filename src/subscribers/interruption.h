#pragma once

#include <array>
#include <csignal>
#include <string>
#include <vector>

namespace subscribers {

/// While it lives, SIGTERM, SIGINT and SIGHUP run shell commands before they end the process: programs that
/// heard of the beginning of some work hear of its end. Signals that the caller ignores stay ignored. One at
/// a time.
class Interruption {
 public:
  /// The commands must come back soon: a '&' at their end sees to that.
  [[nodiscard("name it, or it ends at the semicolon")]] explicit Interruption(
      std::vector<std::string> commands);
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  Interruption(Interruption&&) = delete;
  Interruption& operator=(Interruption&&) = delete;

  /// From here on this object's owner runs the commands; a signal ends the process when this object ends.
  void take_over() noexcept;

 private:
  static constexpr std::array<int, 3> SIGNALS{SIGTERM, SIGINT, SIGHUP};
  static void handle(int signal);
  void run_commands() const noexcept;

  std::vector<std::string> commands_;
  std::array<struct ::sigaction, SIGNALS.size()> saved_{};
  volatile std::sig_atomic_t is_taken_over_ = 0;
  volatile std::sig_atomic_t pending_ = 0;  ///< the signal that waits for the end of this object
};

}  // namespace subscribers
