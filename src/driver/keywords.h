#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "archive/reader.h"
#include "archive/writer.h"
#include "base/size_result.h"

namespace harbix {

/// The keyword operand, then the ids of packages; empty without ids.
using PackageIds = std::span<const std::string>;

/// A kind of user data.
struct Keyword {
  std::string_view name;   ///< on the command line
  std::string_view label;  ///< in progress lines of the archive stage
  /// Archive names of its packages lie below these.
  std::vector<fs::Path> prefixes;
  // Each of them returns the exit status.
  int (*back_up)(ArchiveWriter& writer, PackageIds ids);
  int (*measure)(ArchiveWriter& writer, PackageIds ids, SizeResult& result);
  int (*restore)(ArchiveReader& reader);
};

/// All keywords, in the order in which a run handles them.
[[nodiscard]] std::span<const Keyword> all_keywords();

[[nodiscard]] bool is_keyword(std::string_view name);

/// The part of an archive that belongs to `keyword` when the keywords of `selected` are restored.
[[nodiscard]] Section section_of(const Keyword& keyword, std::span<const std::string> selected);

}  // namespace harbix
