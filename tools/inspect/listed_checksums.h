#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/file_descriptor.h"
#include "inspect/sha256.h"

namespace harbix::inspect {

/// A file of lines as sha256sum writes them, to be held against an archive: 16 bytes of memory a line.
class ListedChecksums {
 public:
  /// @throws std::runtime_error "Failed to open 'NAME': REASON", "'NAME' is no regular file" and "'NAME',
  /// line N: no line of checksums"
  explicit ListedChecksums(const std::string& name);

  enum class Answer { RIGHT, WRONG, UNLISTED };
  /// Holds a file of the archive against the line of its name; a name that is listed twice is taken twice.
  [[nodiscard]] Answer meet(std::string_view name, const Digest& digest);

  /// Calls `take` with each name that was not met, in the order of the list.
  void for_unmet(const std::function<void(std::string_view name)>& take);

 private:
  struct Line {
    std::uint64_t hash;  ///< of the name
    std::uint64_t offset : 63;
    std::uint64_t is_met : 1;
  };

  /// What one line says.
  struct Sum {
    std::string digest;
    std::string name;
  };

  void index(const std::string& name);
  [[nodiscard]] std::string line_at(std::uint64_t offset) const;
  [[nodiscard]] static std::optional<Sum> parse(std::string_view line);

  base::FileDescriptor file_;
  std::deque<Line> lines_;
};

}  // namespace harbix::inspect
