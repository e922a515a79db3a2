#include "app/ownership.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "base/domains.h"
#include "base/file_descriptor.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/exception.h"
#include "fs/walk.h"

namespace harbix {
namespace {

constexpr mode_t PERMISSIONS = 07777;
constexpr uid_t USERS_PER_GROUP = 10000;
// The last id of all stands for "unchanged" in the calls that set owners.
constexpr gid_t LAST_GROUP =
    (std::numeric_limits<uid_t>::max() - 1 - domains::USER_ACCOUNT) / USERS_PER_GROUP;

bool is_same(const struct ::stat& one, const struct ::stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Checks that an object that was opened may be given away: it must be the one that was listed, and no file
/// that somebody has given another name here to get at it.
/// @return 0, or the error number.
int judge(const struct ::stat& found, const struct ::stat& listed, const Ownership& ownership) {
  if (!is_same(found, listed)) return ENOENT;
  const bool has_other_names = !S_ISDIR(found.st_mode) && found.st_nlink > 1;
  return has_other_names && found.st_uid != ownership.user ? EPERM : 0;
}

/// Takes permissions away from the very object that is opened; nothing follows a link, waits for a fifo or
/// changes another kind of object.
/// @return 0, or the error number.
int narrow_mode(const fs::Place& place, const struct ::stat& listed, const Ownership& ownership) {
  if (!S_ISREG(listed.st_mode) && !S_ISDIR(listed.st_mode)) return 0;
  if ((listed.st_mode & PERMISSIONS & ~ownership.mode) == 0) return 0;
  const base::FileDescriptor object(
      ::openat(place.folder, place.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct ::stat found {};
  if (!object || ::fstat(object.get(), &found) == -1) return errno;
  if (const int error = judge(found, listed, ownership); error != 0) return error;
  return ::fchmod(object.get(), found.st_mode & PERMISSIONS & ownership.mode) == -1 ? errno : 0;
}

/// Sets the owner of the very object that was listed.
/// @return 0, or the error number.
int set_owner(const fs::Place& place, const struct ::stat& listed, const Ownership& ownership) {
  const base::FileDescriptor object(::openat(place.folder, place.name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct ::stat found {};
  if (!object || ::fstat(object.get(), &found) == -1) return errno;
  if (const int error = judge(found, listed, ownership); error != 0) return error;
  return ::fchownat(object.get(), "", ownership.user, ownership.group, AT_EMPTY_PATH) == -1 ? errno : 0;
}

void apply(const Ownership& ownership, fs::Folder& folder, const fs::File& file) {
  const fs::Path& path = file.path();
  if (const fs::Path name = path.basename(); name == fs::Path::current() || name == fs::Path::parent())
    return;
  report::progress("Applying ownership ", ownership.user, ':', ownership.group, " to ", path);
  const fs::Path relative = folder.relative(path);
  const fs::Place place = folder.place_of(relative);
  if (const int error = narrow_mode(place, file.record(), ownership); error != 0) {
    std::cerr << "ERROR applying permissions to " << path << " (" << std::strerror(error) << ")\n";
    throw fs::Exception(error, "Applying perms. to " + path.text());
  }
  if (const int error = set_owner(place, file.record(), ownership); error != 0) {
    std::cerr << "ERROR applying ownership to " << path << " (" << std::strerror(error) << ")\n";
    diagnostics::line(0, "ERROR applying ownership to %s ('%s')", path.c_str(), std::strerror(error));
    // Odd on purpose: callers match this text.
    throw fs::Exception(error, "Applying exception to " + path.text());
  }
}

}  // namespace

gid_t parse_application_group(const std::string& text) {
  gid_t group = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed_end, error] = std::from_chars(text.data(), end, group);
  if (error != std::errc() || parsed_end != end || group > LAST_GROUP) {
    throw std::runtime_error("'" + text + "' is not a group id");
  }
  return group;
}

uid_t data_owner(gid_t group) noexcept { return group * USERS_PER_GROUP + domains::USER_ACCOUNT; }

void apply_ownership(const Ownership& ownership, fs::Folder& folder, const fs::Path& relative) {
  apply(ownership, folder, folder.file(relative));
}

void apply_ownership_below(const Ownership& ownership, fs::Folder& folder, const fs::Path& relative) {
  std::vector<fs::File> files;
  report::ProgressLines listed;
  fs::Walk walk(folder, relative, folder.path() / relative);
  while (const fs::WalkItem* item = walk.next()) {
    if (item->failure) throw fs::Exception(*item->failure);
    files.push_back(item->file);
    listed.add("", item->file.path().text());
  }
  listed.flush();
  for (auto file = files.rbegin(); file != files.rend(); ++file) {
    apply(ownership, folder, *file);
  }
}

}  // namespace harbix
