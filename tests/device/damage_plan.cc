#include "tests/device/damage_plan.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

#include "tests/support/require.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

constexpr std::size_t NAME_SIZE = 100;
constexpr std::size_t SIZE_OFFSET = 124;
constexpr std::size_t SIZE_LENGTH = 12;
constexpr std::size_t TYPE_OFFSET = 156;
constexpr std::size_t OTHER_CUTS = 200;

std::size_t octal(std::string_view text) {
  std::size_t value = 0;
  for (const char digit : text) {
    if (digit >= '0' && digit <= '7') value = value * 8 + static_cast<std::size_t>(digit - '0');
  }
  return value;
}

/// Adds each byte of a part of the archive as a place to be damaged.
void add_bytes(std::vector<Damage>& plan, Damage::Kind kind, std::size_t begin, std::size_t size,
               std::mt19937_64& random) {
  for (std::size_t offset = begin; offset < begin + size; ++offset) {
    plan.push_back({kind, offset, static_cast<char>(1U << random() % 8)});
  }
}

/// Adds what is behind a header record and says what entries there are: a name or a manifest.
void add_content(std::vector<Damage>& plan, std::string_view archive, std::size_t header, std::size_t size,
                 std::mt19937_64& random) {
  const std::size_t begin = header + RECORD;
  const std::string_view name(archive.data() + header, ::strnlen(archive.data() + header, NAME_SIZE));
  const std::string_view content = archive.substr(begin, size);
  if (archive[header + TYPE_OFFSET] == 'x') {
    const std::size_t path = content.find(" path=");
    if (path == std::string_view::npos) return;
    const std::size_t length = content.find('\n', path) - path;
    add_bytes(plan, Damage::Kind::MANIFEST, begin + path, length, random);
  } else if (name.ends_with("/.backup.metadata")) {
    add_bytes(plan, Damage::Kind::MANIFEST, begin, size, random);
  }
}

}  // namespace

std::string describe(const Damage& damage) {
  constexpr std::array NAMES{"cut at ", "header changed at ", "manifest changed at "};
  return NAMES.at(static_cast<std::size_t>(damage.kind)) + std::to_string(damage.offset);
}

std::vector<Damage> plan_damage(std::string_view archive, std::mt19937_64& random) {
  std::vector<Damage> plan;
  for (std::size_t at = 0; at + RECORD <= archive.size() && archive[at] != '\0';) {
    add_bytes(plan, Damage::Kind::HEADER, at, RECORD, random);
    const std::size_t size = octal(archive.substr(at + SIZE_OFFSET, SIZE_LENGTH));
    add_content(plan, archive, at, size, random);
    at += RECORD + (size + RECORD - 1) / RECORD * RECORD;
  }
  for (std::size_t cut = 0; cut < archive.size(); cut += RECORD) plan.push_back({Damage::Kind::CUT, cut});
  for (std::size_t i = 0; i < OTHER_CUTS; ++i) plan.push_back({Damage::Kind::CUT, random() % archive.size()});
  return plan;
}

DamagedCopy::DamagedCopy(std::string path, std::string_view archive)
    : path_(std::move(path)),
      archive_(archive),
      file_(::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
  require(bool(file_), path_);
  write(archive_, 0);
}

void DamagedCopy::damage(const Damage& damage) const {
  if (damage.kind == Damage::Kind::CUT) {
    require(::ftruncate(file_.get(), static_cast<off_t>(damage.offset)) == 0, path_);
  } else {
    const char changed = static_cast<char>(archive_[damage.offset] ^ damage.flipped);
    write({&changed, 1}, damage.offset);
  }
}

void DamagedCopy::mend(const Damage& damage) const {
  const std::size_t length = damage.kind == Damage::Kind::CUT ? std::string_view::npos : 1;
  write(archive_.substr(damage.offset, length), damage.offset);
}

void DamagedCopy::write(std::string_view bytes, std::size_t offset) const {
  while (!bytes.empty()) {
    const ssize_t count = ::pwrite(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
    require(count > 0, path_);
    bytes.remove_prefix(static_cast<std::size_t>(count));
    offset += static_cast<std::size_t>(count);
  }
}

}  // namespace harbix::test
