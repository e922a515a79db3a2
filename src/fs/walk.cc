#include "fs/walk.h"

#include <fcntl.h>

#include <cerrno>
#include <iterator>
#include <utility>

#include "platform/directory.h"

namespace fs {
namespace {

bool is_dot_name(std::string_view name) { return name == "." || name == ".."; }

/// `rest` behind `base`, either of which may be empty: then the other one as it is.
Path join(const Path& base, const Path& rest) {
  if (base.empty()) return rest;
  return rest.empty() ? base : base / rest;
}

}  // namespace

bool WalkItem::has_vanished() const noexcept {
  if (!failure) return false;
  const int error = failure->error();
  // A file, or a link, where the folder was.
  return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

Walk::Walk(Folder& folder, Path start, Path shown)
    : folder_(folder), start_(std::move(start)), shown_(std::move(shown)), pending_{Pending{}} {}

Place Walk::place() const noexcept {
  const std::optional<std::size_t> separator = relative_.last_separator();
  return {::dirfd(directory_.get()), relative_.c_str() + (separator ? *separator + 1 : 0)};
}

const WalkItem* Walk::next() {
  if (std::exchange(is_entering_, false)) {
    const struct ::stat& record = item_.file.record();
    found_.push_back({relative_, Identity{record.st_dev, record.st_ino}});
  }
  for (;;) {
    if (directory_ != nullptr) {
      if (const WalkItem* item = next_entry()) return item;
    }
    if (pending_.empty()) return nullptr;
    const Pending folder = std::move(pending_.back());
    pending_.pop_back();
    if (const WalkItem* failed = enter(folder)) return failed;
  }
}

/// @return the failure, if there is one.
const WalkItem* Walk::enter(const Pending& folder) {
  int error = 0;
  try {
    const Path path = join(start_, folder.relative);
    const Place place = path.empty() ? Place{folder_.descriptor(), "."} : folder_.place_of(path);
    base::FileDescriptor opened(
        ::openat(place.folder, place.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct ::stat record {};
    if (!opened || ::fstat(opened.get(), &record) == -1) {
      error = errno;
    } else if (folder.met && (folder.met->device != record.st_dev || folder.met->inode != record.st_ino)) {
      error = ENOENT;  // another object stands in its place
    } else {
      directory_.reset(::fdopendir(opened.get()));
      if (directory_ == nullptr) error = errno;
    }
    if (directory_ != nullptr) static_cast<void>(opened.release());  // it is the directory's now
  } catch (const Exception& failure) {
    error = failure.error();
  }
  if (directory_ == nullptr) return fail(folder.relative, "Directory", "could not be opened.", error);
  // Only saves status calls where the platform can; what it answers changes nothing here.
  platform::dircntl(directory_.get(), platform::D_SETFLAG, platform::D_FLAG_STAT);
  current_ = folder.relative;
  return nullptr;
}

void Walk::leave() {
  directory_.reset();
  pending_.insert(pending_.end(), std::make_move_iterator(found_.rbegin()),
                  std::make_move_iterator(found_.rend()));
  found_.clear();
}

/// @return nothing at the end of the folder.
const WalkItem* Walk::next_entry() {
  for (;;) {
    errno = 0;
    const ::dirent* entry = ::readdir(directory_.get());
    if (entry == nullptr) {
      const int error = errno;
      leave();
      return error == 0 ? nullptr : fail(current_, "Directory", "could not be read.", error);
    }
    if (is_dot_name(entry->d_name)) continue;
    relative_ = join(current_, Path(entry->d_name));
    struct ::stat record {};
    if (look_up(place(), record) == 0) {
      item_ = {File(join(shown_, relative_), record), std::nullopt};
      is_entering_ = item_.file.is_directory();
      return &item_;
    }
    if (const int error = errno; error != ENOENT) return fail(relative_, "Path", "stat failed.", error);
  }
}

const WalkItem* Walk::fail(const Path& relative, const char* kind, const char* what, int error) {
  const Path path = join(shown_, relative);
  item_ = {File(path, {}), Exception(error, std::string(kind) + " '" + path.text() + "' " + what)};
  return &item_;
}

}  // namespace fs
