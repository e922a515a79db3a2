#include "fs/tree.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "base/log.h"
#include "platform/directory.h"

namespace fs {
namespace {

struct DirectoryCloser {
  // A directory that was only read has nothing left to report.
  void operator()(::DIR* directory) const noexcept { ::closedir(directory); }
};
using DirectoryHandle = std::unique_ptr<::DIR, DirectoryCloser>;

DirectoryHandle open_directory(const Path& path) {
  DirectoryHandle directory(::opendir(path.c_str()));
  // Only saves status calls where the platform can; what it answers changes nothing here.
  if (directory != nullptr) platform::dircntl(directory.get(), platform::D_SETFLAG, platform::D_FLAG_STAT);
  return directory;
}

bool is_dot_name(std::string_view name) { return name == "." || name == ".."; }

class Walk {
 public:
  Walk(Descent descent, TreeVisitor& visitor) : descent_(descent), visitor_(visitor) {}

  void visit_below(const Path& path) {
    std::vector<Path> deferred;
    if (const DirectoryHandle directory = open_directory(path)) {
      while (const std::optional<File> item = next_entry(directory.get(), path)) visit(*item, deferred);
    } else {
      const int error = errno;
      visitor_.unreachable(path, Exception(error, "Directory '" + path.text() + "' could not be opened."));
    }
    // The directory is closed by now: a deferred descent into a deep tree needs no more descriptors than a
    // flat one.
    for (const Path& next : deferred) visit_below(next);
  }

 private:
  void visit(const File& item, std::vector<Path>& deferred) {
    visitor_(item);
    if (!item.is_directory() || !visitor_.enters(item)) return;
    if (descent_ == Descent::DEFERRED) {
      deferred.push_back(item.path());
    } else {
      visit_below(item.path());
    }
  }

  /// The next entry whose status can be taken, or nothing at the end of the directory.
  std::optional<File> next_entry(::DIR* directory, const Path& path) {
    for (;;) {
      errno = 0;
      const ::dirent* entry = ::readdir(directory);
      if (entry == nullptr) {
        if (const int error = errno; error != 0) {
          visitor_.unreachable(path, Exception(error, "Directory '" + path.text() + "' could not be read."));
        }
        return std::nullopt;
      }
      if (is_dot_name(entry->d_name)) continue;
      Path item = path / std::string_view(entry->d_name);
      struct ::stat record {};
      if (::fstatat(::dirfd(directory), entry->d_name, &record, AT_SYMLINK_NOFOLLOW) == 0) {
        return File(std::move(item), record);
      }
      const int error = errno;
      if (error != ENOENT)
        visitor_.unreachable(item, Exception(error, "Path '" + item.text() + "' stat failed."));
    }
  }

  Descent descent_;
  TreeVisitor& visitor_;
};

class Listing : public TreeVisitor {
 public:
  explicit Listing(Tolerance tolerance) : tolerance_(tolerance) {}

  void operator()(const File& item) override {
    if (accepts(item)) files_.push_back(item);
  }

  bool enters(const File& directory) override { return accepts(directory); }

  void unreachable(const Path& /*path*/, const Exception& reason) override {
    if (tolerance_ == Tolerance::STRICT) throw Exception(reason);
  }

  std::vector<File> take() { return std::move(files_); }

 private:
  [[nodiscard]] bool accepts(const File& item) const {
    return tolerance_ == Tolerance::STRICT || item.allows(READ | WRITE);
  }

  Tolerance tolerance_;
  std::vector<File> files_;
};

void remove_one(const File& item) {
  if (item.is_directory()) {
    static_cast<void>(item.rmdir());  // logged there; what holds this directory then fails as well
  } else {
    item.unlink();
  }
}

void remove_directory(const File& directory) {
  const std::vector<File> tree = list_tree(directory.path(), Descent::DEFERRED, Tolerance::STRICT);
  // A directory stands before its contents in the list, so going backwards empties it before its own removal.
  for (auto item = tree.rbegin(); item != tree.rend(); ++item) remove_one(*item);
  remove_one(directory);
}

}  // namespace

void walk(const Path& directory, Descent descent, TreeVisitor& visitor) {
  Walk(descent, visitor).visit_below(directory);
}

std::vector<File> list_tree(const Path& directory, Descent descent, Tolerance tolerance) {
  Listing listing(tolerance);
  walk(directory, descent, listing);
  return listing.take();
}

void remove_tree(const File& file) {
  if (!file.is_directory()) {
    file.unlink();
    return;
  }
  try {
    remove_directory(file);
  } catch (const Exception& failure) {
    diagnostics::line(1, "Errors encountered while unlinking '%s' (%s)", file.path().c_str(), failure.what());
  }
}

}  // namespace fs
