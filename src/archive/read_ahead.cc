#include "archive/read_ahead.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "base/file_descriptor.h"
#include "fs/exception.h"

namespace harbix {
namespace {

// Enough for a disk to choose from. What is announced and not yet read has to stay in memory.
constexpr std::size_t MOST_FILES = 256;
constexpr std::int64_t MOST_BYTES = std::int64_t{16} << 20;
// The system itself reads ahead in a file that is being read.
constexpr std::int64_t MOST_OF_A_FILE = std::int64_t{1} << 20;
constexpr std::size_t ITEMS_BETWEEN_LOOKS = 64;

/// How much the process had read from disks so far, in blocks; what it announced counts. Nothing where the
/// system cannot tell.
long blocks_read() noexcept {
  struct ::rusage usage {};
  return ::getrusage(RUSAGE_SELF, &usage) == -1 ? 0 : usage.ru_inblock;
}

/// How much of an item is announced, at most.
std::int64_t bytes_of(const ItemList& items, std::size_t index) noexcept {
  return items.is_regular(index) ? std::clamp<std::int64_t>(items.bytes(index), 0, MOST_OF_A_FILE) : 0;
}

void announce_file(fs::Folder& folder, const fs::File& item, std::int64_t bytes) try {
  const fs::Path relative = folder.relative(item.path());
  const fs::Place place = folder.place_of(relative);
  // Not blocking: a fifo may have taken the place of what was listed.
  const base::FileDescriptor file(
      ::openat(place.folder, place.name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  struct ::stat record {};
  if (!file || ::fstat(file.get(), &record) == -1 || !item.is_same_object(record)) return;
  // Where that fails the file is read when it is asked for, as ever.
  static_cast<void>(::posix_fadvise(file.get(), 0, bytes, POSIX_FADV_WILLNEED));
} catch (const fs::Exception&) {
  return;  // its folder is gone, or another one: reported when the item's turn comes
}

}  // namespace

ReadAhead::ReadAhead(const fs::Folder& folder, const ItemList& items,
                     bool (*is_on_disk)(const fs::Path& path)) noexcept
    : folder_(folder), items_(items), is_on_disk_(is_on_disk), blocks_(blocks_read()) {}

void ReadAhead::look(std::size_t index) {
  const long before = std::exchange(blocks_, blocks_read());
  next_look_ = index + ITEMS_BETWEEN_LOOKS;
  if (blocks_ != before) announce(index + 1);
}

void ReadAhead::announce(std::size_t begin) {
  // A way of its own to the items: the one of the archiving stays open to where that is. And it is closed at
  // the end, so that no descriptor is missing when an item's turn comes.
  base::FileDescriptor folder(::fcntl(folder_.descriptor(), F_DUPFD_CLOEXEC, 0));
  if (!folder) return;
  fs::Folder ahead(folder_.path(), std::move(folder));
  const std::size_t end = std::min(begin + MOST_FILES, items_.size());
  std::int64_t bytes = 0;
  std::size_t index = begin;
  for (; index < end && bytes < MOST_BYTES; ++index) {
    const std::int64_t wanted = bytes_of(items_, index);
    bytes += wanted;
    if (wanted == 0 || index < announced_) continue;
    const fs::File item = items_[index];
    if (is_on_disk_(item.path())) announce_file(ahead, item, wanted);
  }
  announced_ = std::max(announced_, index);
  // So that the disk has work until then.
  next_look_ = begin + (index - begin) / 2;
}

}  // namespace harbix
