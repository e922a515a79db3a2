#include "tests/support/tar_builder.h"

#include <array>
#include <cstdio>
#include <numeric>

namespace harbix::test {
namespace {

constexpr std::size_t BLOCK = 512;

constexpr std::size_t MODE_AT = 100;
constexpr std::size_t OWNER_AT = 108;
constexpr std::size_t GROUP_AT = 116;
constexpr std::size_t SIZE_AT = 124;
constexpr std::size_t TIME_AT = 136;
constexpr std::size_t CHECKSUM_AT = 148;
constexpr std::size_t TYPE_AT = 156;
constexpr std::size_t TARGET_AT = 157;
constexpr std::size_t MAGIC_AT = 257;

std::string octal(std::uint64_t number, int digits) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%0*llo", digits, static_cast<unsigned long long>(number));
  return text.data();
}

}  // namespace

TarBuilder& TarBuilder::add(char type, const std::string& name, const std::string& content, unsigned mode,
                            const std::string& target, std::uint64_t claimed_size) {
  std::string header(BLOCK, '\0');
  const auto put = [&header](std::size_t position, const std::string& field) {
    header.replace(position, field.size(), field);
  };
  put(0, name);
  put(MODE_AT, octal(mode, 7));
  put(OWNER_AT, octal(owner_, 7));
  put(GROUP_AT, octal(group_, 7));
  put(SIZE_AT, octal(claimed_size == MATCHING_SIZE ? content.size() : claimed_size, 11));
  put(TIME_AT, octal(time_, 11));
  put(CHECKSUM_AT, std::string(8, ' '));
  header[TYPE_AT] = type;
  put(TARGET_AT, target);
  put(MAGIC_AT, std::string("ustar\0"
                            "00",
                            8));
  const unsigned sum = std::accumulate(header.begin(), header.end(), 0U, [](unsigned total, char byte) {
    return total + static_cast<unsigned char>(byte);
  });
  put(CHECKSUM_AT, octal(sum, 6) + std::string("\0 ", 2));
  text_ += header + content;
  text_.resize((text_.size() + BLOCK - 1) / BLOCK * BLOCK);
  return *this;
}

std::string TarBuilder::text() const { return text_ + std::string(2 * BLOCK, '\0'); }

}  // namespace harbix::test
