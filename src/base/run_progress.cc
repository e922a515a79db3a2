#include "base/run_progress.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstddef>
#include <cstring>

namespace harbix::run_progress {
namespace {

constexpr std::size_t LONGEST_NAME = 200;

// Read by a signal handler, in the middle of anything.
std::atomic<const char*> keyword = "no keyword yet";
std::array<char, LONGEST_NAME> package{};
std::atomic<std::size_t> package_size = 0;
std::atomic<std::int64_t> items = 0;
std::atomic<std::int64_t> bytes = 0;
static_assert(std::atomic<std::int64_t>::is_always_lock_free &&
              std::atomic<const char*>::is_always_lock_free);

/// A line without memory of its own to ask for.
class Line {
 public:
  void add(std::string_view text) noexcept {
    const std::size_t count = std::min(text.size(), text_.size() - size_);
    std::memcpy(text_.data() + size_, text.data(), count);
    size_ += count;
  }
  void add(std::int64_t number) noexcept {
    size_ = static_cast<std::size_t>(
        std::to_chars(text_.data() + size_, text_.data() + text_.size(), number).ptr - text_.data());
  }
  void print() const noexcept {
    // There is nowhere to report that it could not be printed.
    static_cast<void>(!::write(STDERR_FILENO, text_.data(), size_));
  }

 private:
  std::array<char, 2 * LONGEST_NAME> text_{};
  std::size_t size_ = 0;
};

void print_progress(int /*signal*/) {
  const int saved = errno;
  Line line;
  line.add("Progress: ");
  line.add(keyword.load());
  line.add(": ");
  line.add(std::string_view(package.data(), package_size));
  line.add(package_size == 0 ? "" : ": ");
  line.add(items.load());
  line.add(" items, ");
  line.add(bytes.load());
  line.add(" bytes\n");
  line.print();
  errno = saved;
}

}  // namespace

void answer_signals() noexcept {
  struct ::sigaction action {};
  action.sa_handler = print_progress;
  action.sa_flags = SA_RESTART;
  // Fails only for signals that do not exist.
  static_cast<void>(::sigaction(SIGUSR1, &action, nullptr));
}

void begin_keyword(const char* name) noexcept {
  package_size = 0;
  keyword = name;
}

void begin_package(std::string_view name) noexcept {
  package_size = 0;
  const std::size_t size = std::min(name.size(), package.size());
  std::memcpy(package.data(), name.data(), size);
  package_size = size;
}

void add_item() noexcept { items.fetch_add(1, std::memory_order_relaxed); }

void add_bytes(std::int64_t count) noexcept { bytes.fetch_add(count, std::memory_order_relaxed); }

}  // namespace harbix::run_progress
