#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <span>

#include "fs/identity.h"
#include "fs/path.h"

namespace fs {

/// Rights that File::allows() can be asked for; combine with '|'.
inline constexpr unsigned READ = 4;
inline constexpr unsigned WRITE = 2;
inline constexpr unsigned EXECUTE = 1;

/// A path with the status record that lstat gave for it: links are described, not followed.
class File {
 public:
  /// An object of no name, with a zeroed record.
  File() = default;

  /// Takes the status at once.
  /// @throws fs::Exception "Path '...' stat failed."
  explicit File(Path path);

  /// Takes a status that the caller has looked up.
  File(Path path, const struct ::stat& record) : stat_(record), path_(std::move(path)) {}

  [[nodiscard]] const Path& path() const noexcept { return path_; }
  [[nodiscard]] const struct ::stat& record() const noexcept { return stat_; }

  [[nodiscard]] bool is_directory() const noexcept { return S_ISDIR(stat_.st_mode); }
  [[nodiscard]] bool is_symbolic_link() const noexcept { return S_ISLNK(stat_.st_mode); }
  [[nodiscard]] bool is_regular() const noexcept { return S_ISREG(stat_.st_mode); }

  /// Whether two records describe one object: same device, same inode.
  [[nodiscard]] bool is_same_object(const struct ::stat& other) const noexcept;

  /// Looks the status up again.
  /// @throws fs::Exception "Path '...' stat failed."; the record is then unchanged.
  void stat();

  /// Creates a directory of this name with the mode that the record carries, less the umask.
  /// @throws fs::Exception "Mkdir '...' failed."
  void mkdir() const;

  /// Removes an empty directory. A failure is logged at level 1.
  /// @return 0, or -1 with errno set.
  [[nodiscard]] int rmdir() const noexcept;

  /// Removes a file or link. A failure is logged at level 1; nothing is thrown.
  void unlink() const noexcept;

  /// Whether the mode bits of the record grant the effective user all `wanted` rights: for many files, the
  /// caller looks the ids up once. Only the effective
  /// group is compared, never the supplementary ones. The superuser gets everything but the execution of a
  /// plain file without any execute permission.
  [[nodiscard]] bool allows(unsigned wanted, const EffectiveIds& ids = effective_ids()) const noexcept;

 private:
  struct ::stat stat_ {};
  Path path_;
};

/// Whether something of this name exists, a dangling link included.
[[nodiscard]] bool exists(const Path& path) noexcept;

/// @throws fs::Exception "Rename 'FROM' to 'TO' failed"
void rename(const Path& from, const Path& to);

/// Sum of the recorded sizes in bytes; nothing is looked up.
[[nodiscard]] std::uint64_t total_size(std::span<const File> files) noexcept;

}  // namespace fs
