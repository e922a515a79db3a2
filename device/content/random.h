#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace device {

/// A number that depends on the bytes of `text` alone, the same on every machine (FNV-1a, 64 bits).
[[nodiscard]] std::uint64_t hash(std::string_view text) noexcept;

/// A sequence of numbers that depends on its seed alone, the same on every machine (splitmix64).
class Random {
 public:
  explicit Random(std::uint64_t seed) noexcept : state_(seed) {}
  explicit Random(std::string_view seed) noexcept : state_(hash(seed)) {}

  [[nodiscard]] std::uint64_t next() noexcept;

  /// A number from `lowest` to `highest`, both included.
  [[nodiscard]] std::uint64_t between(std::uint64_t lowest, std::uint64_t highest) noexcept {
    return lowest + next() % (highest - lowest + 1);
  }

  /// The next `size` bytes; every value occurs, zero and newline too.
  [[nodiscard]] std::string bytes(std::size_t size);

 private:
  std::uint64_t state_;
};

}  // namespace device
