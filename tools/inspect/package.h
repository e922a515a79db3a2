#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "archive/entry_view.h"
#include "fs/path.h"

namespace harbix::inspect {

/// Keywords in the order of their packages in an archive.
enum class Keyword { APP, MEDIA, SETTINGS };

/// What a package holds.
enum class Kind { BINARIES, DATA, OBJECTS, MEDIA, DTM, SETTINGS };

/// A package, as the name of its metadata entry tells.
struct PackageName {
  Keyword keyword;
  Kind kind;
  fs::Path path;      ///< what the names of its entries begin with: "/app/P/bin", "/media/Music", "/settings"
  std::string title;  ///< of the application or the top-level folder; empty for settings
};

/// The package that a metadata entry begins; `name` is the entry's in full.
[[nodiscard]] PackageName package_of(const fs::Path& name);

/// The path of the package that an entry belongs to by its name, wherever it stands; empty for one that
/// belongs to none, such as "/media".
[[nodiscard]] std::string_view package_path_in(std::string_view name);

[[nodiscard]] std::string_view text_of(Keyword keyword);  ///< "app", "media", "settings"
/// "binaries", "data", "objects", "media", "dtm", "settings"
[[nodiscard]] std::string_view text_of(Kind kind);

/// What an entry is: "file", "folder", "link", "hard link" or "other".
[[nodiscard]] std::string_view kind_of(const EntryView& entry);

/// Whether `name` is `path` or lies below it.
[[nodiscard]] bool is_at_or_below(std::string_view name, std::string_view path);

}  // namespace harbix::inspect
