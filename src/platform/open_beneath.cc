#include "platform/open_beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <string_view>

namespace platform {
namespace {

constexpr int ON_THE_WAY = O_PATH | O_DIRECTORY;
constexpr char SEPARATOR = '/';
constexpr std::size_t LONGEST_PIECE = PATH_MAX - 1;

/// The folder that has been reached. The first one is the caller's.
class Position {
 public:
  explicit Position(int folder) noexcept : folder_(folder) {}
  ~Position() { close_own(); }
  Position(const Position&) = delete;
  Position& operator=(const Position&) = delete;
  Position(Position&&) = delete;
  Position& operator=(Position&&) = delete;

  [[nodiscard]] int get() const noexcept { return folder_; }

  void move_to(int folder) noexcept {
    close_own();
    folder_ = folder;
    is_own_ = true;
  }

 private:
  void close_own() const noexcept {
    const int error = errno;
    // A folder that was only passed has nothing to report.
    if (is_own_) ::close(folder_);
    errno = error;
  }

  int folder_;
  bool is_own_ = false;
};

bool leads_out(std::string_view path) noexcept {
  if (path.starts_with(SEPARATOR)) return true;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find(SEPARATOR), path.size());
    if (path.substr(0, end) == "..") return true;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return false;
}

/// What comes before the first or, with `as_much_as_fits`, before the last separator that leaves a piece that
/// one call takes; everything where all of it does.
std::string_view next_piece(std::string_view path, bool as_much_as_fits) noexcept {
  if (as_much_as_fits && path.size() <= LONGEST_PIECE) return path;
  const std::size_t end = as_much_as_fits ? path.rfind(SEPARATOR, LONGEST_PIECE) : path.find(SEPARATOR);
  return path.substr(0, end);
}

std::string_view without_separators_around(std::string_view path) noexcept {
  path.remove_prefix(std::min(path.find_first_not_of(SEPARATOR), path.size()));
  return path.substr(0, path.find_last_not_of(SEPARATOR) + 1);
}

/// The kernel's own way: all of the piece in one call.
int open_at_once(int folder, const char* piece, int flags, mode_t mode) noexcept {
  ::open_how how = {};
  how.flags = static_cast<unsigned>(flags);
  // The call refuses a mode where nothing can be created.
  how.mode = (flags & O_CREAT) != 0 ? mode : 0;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  return static_cast<int>(::syscall(SYS_openat2, folder, piece, &how, sizeof how));
}

int open_piece(int folder, std::string_view piece, int flags, mode_t mode, bool at_once) noexcept {
  if (piece.size() > LONGEST_PIECE) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::array<char, PATH_MAX> text;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
  text[piece.copy(text.data(), piece.size())] = '\0';
  const char* const name = piece.empty() ? "." : text.data();
  return at_once ? open_at_once(folder, name, flags, mode) : ::openat(folder, name, flags, mode);
}

}  // namespace

int open_beneath(int folder, const char* path, int flags, mode_t mode) noexcept {
  static bool has_one_call = true;  // until the kernel says that it has not
  if (leads_out(path)) {
    errno = EXDEV;
    return -1;
  }
  Position position(folder);
  for (std::string_view rest = without_separators_around(path);;) {
    const std::string_view piece = next_piece(rest, has_one_call);
    const bool is_last = piece.size() == rest.size();
    const int wanted = (is_last ? flags : ON_THE_WAY) | O_NOFOLLOW | O_CLOEXEC;
    const int opened = open_piece(position.get(), piece, wanted, mode, has_one_call);
    if (opened == -1 && errno == ENOSYS && has_one_call) {
      has_one_call = false;
      continue;
    }
    if (opened == -1 || is_last) return opened;
    position.move_to(opened);
    rest = without_separators_around(rest.substr(piece.size()));
  }
}

}  // namespace platform
