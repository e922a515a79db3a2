#include "archive/space_report.h"

namespace harbix {
namespace {

constexpr std::uint64_t DISK_BLOCK = 4096;

}  // namespace

SpaceNeeded space_needed(std::span<const FileRecord> records) {
  SpaceNeeded needed;
  for (const FileRecord& record : records) {
    needed.bytes += record.size;
    needed.real_bytes += (record.size + DISK_BLOCK - 1) / DISK_BLOCK * DISK_BLOCK;
  }
  return needed;
}

SpaceNeeded wrapped_at_32_bits(const SpaceNeeded& needed) {
  return {.bytes = static_cast<std::uint32_t>(needed.bytes),
          .real_bytes = static_cast<std::uint32_t>(needed.real_bytes)};
}

std::string space_report(const SpaceNeeded& needed, const std::string& metadata_name) {
  return "Required space on disk: " + std::to_string(needed.bytes) + " bytes, or " +
         std::to_string(needed.real_bytes) + " real bytes or " +
         std::to_string(needed.real_bytes / DISK_BLOCK) + " blocks\n************* " + metadata_name +
         " ******************\n";
}

}  // namespace harbix
