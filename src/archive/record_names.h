#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fs/path.h"

namespace harbix {

/// The paths of a manifest of media or of settings, to be asked about. Its text is a row of "File: SIZE
/// newline PATH newline" and an empty line: what the parser of manifests makes of a path in a line of its own
/// is not exact, and this is. A path takes 8 bytes of memory.
///
/// No header's checksum covers a long name, or one beyond ASCII: where one has changed, the manifest tells.
class RecordNames {
 public:
  /// Takes the next piece of the manifest's text.
  void add(std::string_view piece);

  /// Ends the text: from then on it can be asked about.
  void finish();

  /// Whether the manifest has no record at all.
  [[nodiscard]] bool empty() const noexcept { return hashes_.empty(); }

  /// Whether a record has this path.
  [[nodiscard]] bool holds(const fs::Path& path) const;

  /// Whether an entry has a name that may have changed in the archive: one that no checksum covers, and whose
  /// path no record has. A manifest without records contradicts nothing.
  [[nodiscard]] bool contradicts(const fs::Path& entry_name, const fs::Path& path) const;

 private:
  void take(std::string_view record);

  std::string rest_;                   ///< what follows the last record that is known to be whole
  std::vector<std::uint64_t> hashes_;  ///< of the paths; in order when the text has ended
};

/// Reports an entry whose name may have changed: "Warning: NAME: not in the list of its package" on standard
/// error, and in the log at level 1.
void report_strange_name(const fs::Path& name);

}  // namespace harbix
