#include "archive/space_report.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

std::string report(const std::vector<std::uint64_t>& sizes) {
  std::vector<harbix::FileRecord> records;
  for (const std::uint64_t size : sizes) {
    records.emplace_back();
    records.back().size = size;
  }
  return harbix::space_report(harbix::wrapped_at_32_bits(harbix::space_needed(records)),
                              "/settings/.backup.metadata");
}

TEST(SpaceReport, WrappedSumsBytesAndWholeBlocksIn32Bits) {
  struct Row {
    std::vector<std::uint64_t> sizes;
    const char *bytes, *real_bytes, *blocks;
  };
  constexpr std::uint64_t GIB4 = std::uint64_t{1} << 32;
  const Row rows[] = {
      {{}, "0", "0", "0"},
      {{0}, "0", "0", "0"},
      {{1}, "1", "4096", "1"},
      {{4095, 4096, 4097}, "12288", "16384", "4"},
      {{1, 1, 1, 0}, "3", "12288", "3"},
      {{GIB4 - 4096}, "4294963200", "4294963200", "1048575"},
      {{GIB4 - 1}, "4294967295", "0", "0"},
      {{GIB4}, "0", "0", "0"},
      {{GIB4 + 1}, "1", "4096", "1"},
      {{GIB4 - 1, 1}, "0", "4096", "1"},
      {{GIB4 - 4096, 8192}, "4096", "4096", "1"},
      {{3 * GIB4 + 5000, GIB4 / 2, GIB4 / 2}, "5000", "8192", "2"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(report(row.sizes),
              std::string("Required space on disk: ") + row.bytes + " bytes, or " + row.real_bytes +
                  " real bytes or " + row.blocks +
                  " blocks\n************* /settings/.backup.metadata ******************\n");
  }
}

TEST(SpaceReport, UnwrappedGoesBeyond32Bits) {
  harbix::FileRecord record;
  record.size = (std::uint64_t{1} << 32) + 1;
  EXPECT_EQ(harbix::space_report(harbix::space_needed(std::vector{record}), "/app/p/bin/.backup.metadata"),
            "Required space on disk: 4294967297 bytes, or 4294971392 real bytes or 1048577 blocks\n"
            "************* /app/p/bin/.backup.metadata ******************\n");
}

}  // namespace
}  // namespace harbix::test
