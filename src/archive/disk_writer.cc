#include "archive/disk_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <optional>
#include <utility>

#include "base/log.h"
#include "fs/exception.h"

namespace harbix {
namespace {

constexpr mode_t PERMISSIONS = 0777;
constexpr mode_t ALL_BITS = 07777;

[[noreturn]] void fail(const std::string& what) {
  const int error = errno;
  throw fs::Exception(error, what);
}

/// A name that no archive's object has, for one that is not complete yet.
std::string temporary_name() {
  static unsigned count = 0;
  return ".harbix-" + std::to_string(::getpid()) + '-' + std::to_string(count++);
}

/// Takes what stands in an object's place away, if that has to go first: an empty folder.
/// @return whether the place is free now.
bool make_room(const fs::Place& place, const ArchiveReader& reader) {
  struct ::stat record {};
  if (fs::look_up(place, record) == -1) return errno == ENOENT;
  if (reader.is_input(fs::File(place.name, record)))
    throw fs::Exception("it is the archive that is being read");
  if (!S_ISDIR(record.st_mode)) return false;
  if (::unlinkat(place.folder, place.name, AT_REMOVEDIR) == -1) fail("replace the folder");
  return true;
}

/// An object that is being made: it is removed again at the end of the scope, unless it was completed.
class Unfinished {
 public:
  /// Makes the object with `make`, which takes a name in the folder of `place` and answers like a system
  /// call: under its own name, or where another object has that and does not stay, under a name for the time
  /// being. An empty folder makes room at once.
  template <typename Make>
  Unfinished(const fs::Place& place, const ArchiveReader& reader, Existing existing, const Make& make)
      : place_(place) {
    while (make(name()) == -1) {
      if (errno != EEXIST) fail("create");
      if (existing == Existing::STAYS) return;
      if (!temporary_.empty() || !make_room(place, reader)) temporary_ = temporary_name();
    }
    is_made_ = true;
  }
  ~Unfinished() {
    // What went wrong before is reported, and the next attempt would replace what is left.
    if (is_made_) ::unlinkat(place_.folder, name(), 0);
  }
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;
  Unfinished(Unfinished&&) = delete;
  Unfinished& operator=(Unfinished&&) = delete;

  /// Whether there is one: false when another one stays in its place.
  [[nodiscard]] bool is_made() const noexcept { return is_made_; }

  /// Gives the object its own name.
  void complete() {
    if (!temporary_.empty() && ::renameat(place_.folder, name(), place_.folder, place_.name) == -1)
      fail("rename");
    is_made_ = false;
  }

 private:
  [[nodiscard]] const char* name() const { return temporary_.empty() ? place_.name : temporary_.c_str(); }

  fs::Place place_;
  std::string temporary_;
  bool is_made_ = false;
};

void write_at(const base::FileDescriptor& file, const DataBlock& block) {
  for (std::size_t done = 0; done < block.size;) {
    const ssize_t count = ::pwrite(file.get(), block.data + done, block.size - done,
                                   static_cast<off_t>(block.offset) + static_cast<off_t>(done));
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      fail("write");
    }
  }
}

void fill(const base::FileDescriptor& file, off_t size, ArchiveReader& reader) {
  off_t end = 0;
  while (const std::optional<DataBlock> block = reader.read_block()) {
    write_at(file, *block);
    if (block->size > 0) end = static_cast<off_t>(block->offset) + static_cast<off_t>(block->size);
  }
  // A hole at the end has no data of its own.
  if (end < size && ::ftruncate(file.get(), size) == -1) fail("extend");
}

}  // namespace

void DiskWriter::settle() {
  // What is inside a folder comes after it, and is settled before: the folder may be closed then.
  for (auto folder = unsettled_.rbegin(); folder != unsettled_.rend(); ++folder) {
    try {
      settle(*folder);
    } catch (const fs::Exception& error) {
      report_(folder_.path() / folder->path, error.reason());
      completeness_.note_missing();
    }
  }
  unsettled_.clear();
}

bool DiskWriter::make_file(const fs::Path& path, const struct ::stat& record, Existing existing) {
  const fs::Place place = place_of(path);
  base::FileDescriptor file;
  Unfinished unfinished(place, reader_, existing, [&](const char* name) {
    file = base::FileDescriptor(::openat(place.folder, name,
                                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                         record.st_mode & PERMISSIONS));
    return file ? 0 : -1;
  });
  if (!unfinished.is_made()) return false;
  fill(file, record.st_size, reader_);
  if (permissions_ == Keep::YES && ::fchmod(file.get(), record.st_mode & PERMISSIONS) == -1)
    fail("set the mode");
  // Some file systems report a failed write only here.
  if ((errno = file.close()) != 0) fail("close");
  unfinished.complete();
  return true;
}

bool DiskWriter::make_folder(const fs::Path& path, const struct ::stat& record, Existing existing) {
  const fs::Place place = place_of(path);
  struct ::stat made {};
  const bool is_free = fs::look_up(place, made) == -1;
  if (existing == Existing::STAYS) {
    if (!is_free) return false;
    if (errno != ENOENT) fail("look at");
  }
  if (is_free || !S_ISDIR(made.st_mode)) {
    if (!make_room(place, reader_) && ::unlinkat(place.folder, place.name, 0) == -1) fail("replace");
    // Its owner fills it first, whatever he may do later.
    if (::mkdirat(place.folder, place.name, (record.st_mode & PERMISSIONS) | S_IRWXU) == -1) fail("create");
    if (fs::look_up(place, made) == -1) fail("create");
  } else if (permissions_ == Keep::NO) {
    return true;
  }
  mode_t mode = record.st_mode & PERMISSIONS;
  // The mask has been applied, and the folder above may have handed on its group.
  if (permissions_ == Keep::NO) mode = made.st_mode & (mode | (ALL_BITS & ~PERMISSIONS));
  if (mode != (made.st_mode & ALL_BITS)) unsettled_.push_back({path, mode});
  return true;
}

bool DiskWriter::make_link(const fs::Path& path, const std::string& target, Existing existing) {
  const fs::Place place = place_of(path);
  Unfinished unfinished(place, reader_, existing,
                        [&](const char* name) { return ::symlinkat(target.c_str(), place.folder, name); });
  if (!unfinished.is_made()) return false;
  unfinished.complete();
  return true;
}

fs::Place DiskWriter::place_of(const fs::Path& path) {
  const fs::Place place = place_below(path);
  reader_.written().note(place.folder, folder_.path() / path.dirname());
  return place;
}

fs::Place DiskWriter::place_below(const fs::Path& path) try {
  return folder_.place_of(path);
} catch (const fs::Exception& error) {
  if (error.error() != ENOENT) throw;
  make_folders_above(path);
  return folder_.place_of(path);
}

void DiskWriter::make_folders_above(const fs::Path& path) {
  const std::vector<fs::Path> names = path.dirname().components();
  if (std::ranges::find(names, fs::Path::parent()) != names.end()) throw fs::Exception(EXDEV, "leads out");
  fs::Path folder;
  for (const fs::Path& name : names) {
    folder = folder.empty() ? name : folder / name;
    const fs::Place place = folder_.place_of(folder);
    if (::mkdirat(place.folder, place.name, PERMISSIONS) == -1 && errno != EEXIST) fail("create the folder");
  }
}

void DiskWriter::settle(const Unsettled& folder) {
  const fs::Place place = folder_.place_of(folder.path);
  const base::FileDescriptor opened(
      ::openat(place.folder, place.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!opened || ::fchmod(opened.get(), folder.mode) == -1) fail("set the mode");
}

void report_unwritten(const fs::Path& path, const std::string& reason) {
  constexpr int STATUS = -20;  // that of a warning in the library, which readers of the log know
  diagnostics::line(1, "Archive status not OK (%d) ('%s: %s')", STATUS, path.c_str(), reason.c_str());
  std::cerr << "Warning: " << path << ": " << reason << '\n';
}

}  // namespace harbix
