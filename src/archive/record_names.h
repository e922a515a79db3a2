#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fs/path.h"

namespace harbix {

/// The paths of a package's manifest, of media or of settings, held against the entries that follow it.
///
/// A tar header that is too short for a name, because that is long or beyond ASCII, is preceded by an
/// extension that has it. No checksum covers an extension: where one of its bytes has changed, an item has
/// another name, and the manifest alone tells. A path takes 8 bytes of memory here.
class RecordNames {
 public:
  /// Takes the next piece of the manifest's text, a row of "File: SIZE newline PATH newline" and an empty
  /// line. What the parser of manifests makes of a path in a line of its own is not exact, and this is.
  void add(std::string_view piece);

  /// Ends the text: from then on entries are met.
  void finish();

  /// Notes an entry of the package, by its path as a record would have it.
  void meet(const fs::Path& path);

  /// Whether an entry was met that has no record, while there is no entry for a record whose name needs an
  /// extension. An item that vanished during the backup has a record and no entry; that is no change.
  [[nodiscard]] bool has_changed_names() const noexcept { return unlisted_ > 0 && met_long_ < long_; }

 private:
  void take(std::string_view record);
  void drop_endless_record();
  [[nodiscard]] bool holds(std::string_view path) const;

  std::string rest_;                   ///< what follows the last record that is known to be whole
  std::vector<std::uint64_t> hashes_;  ///< of the paths; in order when the text has ended
  std::size_t long_ = 0;               ///< records whose names need an extension
  std::size_t met_long_ = 0;           ///< those with an entry
  std::size_t unlisted_ = 0;           ///< entries without a record
};

/// Reports a package of changed names: "Warning: PACKAGE: holds items under names that it does not list" on
/// standard error, and in the log at level 1.
void report_changed_names(const fs::Path& package);

}  // namespace harbix
