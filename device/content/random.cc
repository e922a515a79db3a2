#include "device/content/random.h"

#include <algorithm>

namespace device {

std::uint64_t hash(std::string_view text) noexcept {
  constexpr std::uint64_t OFFSET = 0xcbf29ce484222325U;
  constexpr std::uint64_t PRIME = 0x100000001b3U;
  std::uint64_t value = OFFSET;
  for (const char character : text) {
    value ^= static_cast<unsigned char>(character);
    value *= PRIME;
  }
  return value;
}

std::uint64_t Random::next() noexcept {
  state_ += 0x9e3779b97f4a7c15U;
  std::uint64_t value = state_;
  value = (value ^ (value >> 30U)) * 0xbf58476d1ce4e5b9U;
  value = (value ^ (value >> 27U)) * 0x94d049bb133111ebU;
  return value ^ (value >> 31U);
}

std::string Random::bytes(std::size_t size) {
  constexpr std::size_t STEP = sizeof(std::uint64_t);
  std::string content(size, '\0');
  for (std::size_t position = 0; position < size; position += STEP) {
    std::uint64_t value = next();
    // Byte by byte, so that the order is the same on every machine.
    for (std::size_t i = position; i < std::min(position + STEP, size); ++i, value >>= 8U) {
      content[i] = static_cast<char>(value & 0xffU);
    }
  }
  return content;
}

}  // namespace device
