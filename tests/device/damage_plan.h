#pragma once

#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_descriptor.h"

namespace harbix::test {

/// One way to damage an archive.
struct Damage {
  enum class Kind { CUT, HEADER, MANIFEST };

  Kind kind;
  std::size_t offset;  ///< the length of a cut archive; otherwise of the byte that is changed
  char flipped = 0;    ///< the bits that change
};

/// For a message: "cut at 512".
[[nodiscard]] std::string describe(const Damage& damage);

/// Each byte of each header record and manifest, and the places to cut at: each 512 bytes and 200 others.
/// Extended headers carry no checksum, and what most of their bytes say no other record repeats, so only
/// those of the name are taken.
[[nodiscard]] std::vector<Damage> plan_damage(std::string_view archive, std::mt19937_64& random);

/// A copy of an archive on disk that is damaged in one place at a time. Only what the damage changes is
/// written: copies of the whole archive would take longer than what is done with them.
class DamagedCopy {
 public:
  /// `archive` must outlive the copy. @throws std::system_error, as the others do
  DamagedCopy(std::string path, std::string_view archive);

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  void damage(const Damage& damage) const;
  /// Takes the damage back.
  void mend(const Damage& damage) const;

 private:
  void write(std::string_view bytes, std::size_t offset) const;

  std::string path_;
  std::string_view archive_;
  base::FileDescriptor file_;
};

}  // namespace harbix::test
