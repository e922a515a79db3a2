#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string_view>

#include "fs/file.h"

struct archive_entry;

namespace harbix {

/// An entry whose header has been read; valid until the reader's next header.
class EntryView {
 public:
  explicit EntryView(::archive_entry* entry) noexcept : entry_(entry) {}

  /// The name as the writer was given it: without the '/' that tar adds to directories, and with the leading
  /// '/' that a repacking tar took away. Nothing for an entry of a malformed archive that has none.
  [[nodiscard]] std::optional<fs::Path> name() const;

  /// What a symbolic link points to; nothing for other entries, and for a link of a malformed archive that
  /// has none.
  [[nodiscard]] std::optional<std::string_view> link_target() const;

  /// Whether it is a plain file, a directory or a symbolic link with a target, the only kinds that are ever
  /// written; hard links, devices, fifos and sockets are left out on restore.
  [[nodiscard]] bool is_restorable() const;

  /// Whether it is the metadata entry of a package.
  [[nodiscard]] bool begins_package() const;

  [[nodiscard]] bool is_plain_file() const;
  [[nodiscard]] bool is_hard_link() const;
  [[nodiscard]] std::int64_t size() const;

  /// The entry's status, for the object at `target`.
  [[nodiscard]] fs::File destination(fs::Path target) const;

  [[nodiscard]] ::archive_entry* get() const noexcept { return entry_; }

 private:
  ::archive_entry* entry_;
};

}  // namespace harbix
