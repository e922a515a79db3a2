#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "archive/input_file.h"
#include "fs/path.h"

namespace harbix {

/// Of an archive that goes on behind an end mark: a piece of it was lost, and there are zeros in its place.
inline constexpr char MORE_BEHIND_END[] = "Something follows the end mark, which is not read";

/// What an archive holds, from one look through its headers: before anything is removed to make place for it.
class Survey {
 public:
  /// Reads through the whole archive. Damage ends that, and is kept.
  /// @throws ArchiveError when the input is no archive.
  explicit Survey(InputFile input);

  /// Whether there is not a single entry, and no damage: the backup of nothing.
  [[nodiscard]] bool is_empty() const noexcept { return is_empty_ && !damage_; }

  /// Whether there is any package.
  [[nodiscard]] bool has_packages() const;

  // Prefixes are "/app", "/dtm", "/media" and "/settings".

  /// Whether there is a package below one of the prefixes.
  [[nodiscard]] bool has_packages_below(std::span<const fs::Path> prefixes) const;
  /// Whether there is an entry of any kind below one of the prefixes.
  [[nodiscard]] bool has_entries_below(std::span<const fs::Path> prefixes) const;
  /// The sum of the sizes of the plain files below the prefixes, without the manifests.
  [[nodiscard]] std::uint64_t file_bytes_below(std::span<const fs::Path> prefixes) const;

  /// Why the archive cannot be read to its end, in the words of the library, or MORE_BEHIND_END; nothing for
  /// a whole one. The contents of files are not looked at.
  [[nodiscard]] const std::optional<std::string>& damage() const noexcept { return damage_; }

 private:
  struct Part {
    std::uint64_t packages = 0;
    std::uint64_t entries = 0;
    std::uint64_t file_bytes = 0;
  };

  enum class Kind { PACKAGE, FILE, OTHER };
  void count(std::string_view name, Kind kind, std::int64_t size);
  [[nodiscard]] Part sum_of(std::span<const fs::Path> prefixes) const;

  std::map<std::string_view, Part> parts_;  ///< by prefix; of those alone
  bool is_empty_ = true;
  std::optional<std::string> damage_;
};

}  // namespace harbix
