#include "settings/space_report.h"

#include <cstdint>

namespace harbix {
namespace {

constexpr std::uint64_t BLOCK_SIZE = 4096;

}  // namespace

std::string space_report(std::span<const FileRecord> records, const std::string& metadata_name) {
  std::uint32_t bytes = 0;
  std::uint32_t real_bytes = 0;
  for (const FileRecord& record : records) {
    bytes += static_cast<std::uint32_t>(record.size);
    real_bytes += static_cast<std::uint32_t>((record.size + BLOCK_SIZE - 1) / BLOCK_SIZE * BLOCK_SIZE);
  }
  return "Required space on disk: " + std::to_string(bytes) + " bytes, or " + std::to_string(real_bytes) +
         " real bytes or " + std::to_string(real_bytes / BLOCK_SIZE) + " blocks\n************* " +
         metadata_name + " ******************\n";
}

}  // namespace harbix
