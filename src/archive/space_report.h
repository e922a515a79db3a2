#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "archive/file_record.h"

namespace harbix {

/// The space that the records of one package ask for.
struct SpaceNeeded {
  std::uint64_t bytes = 0;
  std::uint64_t real_bytes = 0;  ///< in whole blocks of 4096
};

[[nodiscard]] SpaceNeeded space_needed(std::span<const FileRecord> records);

/// The same, counted with 32 bits.
[[nodiscard]] SpaceNeeded wrapped_at_32_bits(const SpaceNeeded& needed);

/// Two lines of progress: the space in bytes, in bytes of whole blocks and in blocks, and the name of the
/// metadata entry.
[[nodiscard]] std::string space_report(const SpaceNeeded& needed, const std::string& metadata_name);

}  // namespace harbix
