#pragma once

#include <cstdint>
#include <limits>

namespace harbix {

/// The sum of two numbers that are not negative; the largest number where the sum is larger. Files with holes
/// may claim more than any disk can hold.
template <typename Number>
[[nodiscard]] constexpr Number saturated_sum(Number one, Number other) noexcept {
  constexpr Number LARGEST = std::numeric_limits<Number>::max();
  return one > LARGEST - other ? LARGEST : one + other;
}

/// What a keyword would put into an archive; filled by the archive operations in size-only mode.
struct SizeResult {
  std::int64_t bytes = 0;
  std::int32_t files = 0;

  SizeResult& operator+=(const SizeResult& other) noexcept {
    bytes = saturated_sum(bytes, other.bytes);
    files = saturated_sum(files, other.files);
    return *this;
  }
};

}  // namespace harbix
