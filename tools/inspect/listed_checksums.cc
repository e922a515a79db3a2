#include "inspect/listed_checksums.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "inspect/record_table.h"

namespace harbix::inspect {
namespace {

constexpr std::size_t DIGEST_DIGITS = 64;
constexpr std::string_view GAP = "  ";  // or " *" of a binary file
// No name is as long, and a file that claims so must not take memory.
constexpr std::size_t LONGEST_LINE = std::size_t{1} << 18;

std::string unescaped(std::string_view text) {
  std::string name;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      name += text[i];
      continue;
    }
    const char code = text[++i];
    name += code == 'n' ? '\n' : code == 'r' ? '\r' : code;
  }
  return name;
}

}  // namespace

ListedChecksums::ListedChecksums(const std::string& name)
    : file_(::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct ::stat record {};
  if (!file_ || ::fstat(file_.get(), &record) == -1)
    throw std::runtime_error("Failed to open '" + name + "': " + std::strerror(errno));
  if (!S_ISREG(record.st_mode)) throw std::runtime_error("'" + name + "' is no regular file");
  index(name);
  std::ranges::sort(lines_, [](const Line& one, const Line& other) {
    return one.hash != other.hash ? one.hash < other.hash : one.offset < other.offset;
  });
}

void ListedChecksums::index(const std::string& name) {
  std::array<char, std::size_t{64} << 10> piece{};
  std::string line;
  std::uint64_t offset = 0;  // of the line
  const auto end_line = [&] {
    const std::optional<Sum> sum = parse(line);
    if (!sum)
      throw std::runtime_error("'" + name + "', line " + std::to_string(lines_.size() + 1) +
                               ": no line of checksums");
    lines_.push_back(
        {.hash = PathHash::of(sum->name), .offset = offset & ~(std::uint64_t{1} << 63U), .is_met = 0});
    offset += line.size() + 1;
    line.clear();
  };
  for (;;) {
    const ssize_t count = ::read(file_.get(), piece.data(), piece.size());
    if (count == -1 && errno == EINTR) continue;
    if (count == -1) throw std::runtime_error("'" + name + "': " + std::strerror(errno));
    if (count == 0) break;
    std::string_view text(piece.data(), static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = text.find('\n')) != std::string_view::npos;
         text.remove_prefix(end + 1)) {
      line += text.substr(0, end);
      end_line();
    }
    line += text;
    if (line.size() > LONGEST_LINE) end_line();
  }
  if (!line.empty()) end_line();
}

std::optional<ListedChecksums::Sum> ListedChecksums::parse(std::string_view line) {
  if (line.size() > LONGEST_LINE) return std::nullopt;
  const bool is_escaped = line.starts_with('\\');
  if (is_escaped) line.remove_prefix(1);
  if (line.size() <= DIGEST_DIGITS + GAP.size()) return std::nullopt;
  const std::string_view gap = line.substr(DIGEST_DIGITS, GAP.size());
  std::string digest(line.substr(0, DIGEST_DIGITS));
  for (char& digit : digest)
    digit = digit >= 'A' && digit <= 'F' ? static_cast<char>(digit - 'A' + 'a') : digit;
  if (digest.find_first_not_of("0123456789abcdef") != std::string::npos || (gap != GAP && gap != " *"))
    return std::nullopt;
  std::string_view name = line.substr(DIGEST_DIGITS + GAP.size());
  return Sum{std::move(digest), is_escaped ? unescaped(name) : std::string(name)};
}

std::string ListedChecksums::line_at(std::uint64_t offset) const {
  std::string line;
  std::array<char, 512> piece{};
  while (line.size() <= LONGEST_LINE) {
    const ssize_t count =
        ::pread(file_.get(), piece.data(), piece.size(), static_cast<off_t>(offset + line.size()));
    if (count == -1 && errno == EINTR) continue;
    // A file that has shrunk since has another line there.
    if (count <= 0) break;
    const std::string_view text(piece.data(), static_cast<std::size_t>(count));
    const std::size_t end = text.find('\n');
    line += text.substr(0, end);
    if (end != std::string_view::npos) break;
  }
  return line;
}

ListedChecksums::Answer ListedChecksums::meet(std::string_view name, const Digest& digest) {
  const std::uint64_t hash = PathHash::of(name);
  for (auto line = std::ranges::lower_bound(lines_, hash, {}, &Line::hash);
       line != lines_.end() && line->hash == hash; ++line) {
    if (line->is_met != 0) continue;
    const std::optional<Sum> sum = parse(line_at(line->offset));
    if (!sum || sum->name != name) continue;
    line->is_met = 1;
    return sum->digest == hexadecimal(digest) ? Answer::RIGHT : Answer::WRONG;
  }
  return Answer::UNLISTED;
}

void ListedChecksums::for_unmet(const std::function<void(std::string_view name)>& take) {
  std::ranges::sort(lines_, [](const Line& one, const Line& other) { return one.offset < other.offset; });
  for (const Line& line : lines_) {
    if (line.is_met != 0) continue;
    const std::optional<Sum> sum = parse(line_at(line.offset));
    take(sum ? std::string_view(sum->name) : std::string_view());
  }
}

}  // namespace harbix::inspect
