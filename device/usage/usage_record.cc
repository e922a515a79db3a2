#include "device/usage/usage_record.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/file_descriptor.h"

namespace usage {
namespace {

using Header = ElfW(Ehdr);
using Section = ElfW(Shdr);

constexpr std::string_view SECTION_NAME = ".usage";
constexpr unsigned char MACHINE_CLASS = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
constexpr unsigned char MACHINE_ORDER =
    std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
// A record is a page of text; what claims more is no record.
constexpr std::uint64_t MOST_RECORD_BYTES = std::uint64_t{1} << 20;

[[noreturn]] void fail(const char* action, const std::string& path) {
  throw std::system_error(errno, std::generic_category(),
                          std::string("cannot ") + action + " '" + path + "'");
}

/// A file of which parts are read.
class ProgramFile {
 public:
  explicit ProgramFile(const std::string& path)
      : path_(path), file_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    if (!file_) fail("open", path);
    struct ::stat status {};
    if (::fstat(file_.get(), &status) == -1) fail("read", path);
    if (S_ISREG(status.st_mode)) size_ = static_cast<std::uint64_t>(status.st_size);
  }

  /// @return false when the file does not hold all of it.
  [[nodiscard]] bool read(std::span<std::byte> part, std::uint64_t offset) const {
    if (offset > size_ || part.size() > size_ - offset) return false;
    while (!part.empty()) {
      const ssize_t count = ::pread(file_.get(), part.data(), part.size(), static_cast<off_t>(offset));
      if (count == -1 && errno == EINTR) continue;
      if (count == -1) fail("read", path_);
      if (count == 0) return false;
      part = part.subspan(static_cast<std::size_t>(count));
      offset += static_cast<std::uint64_t>(count);
    }
    return true;
  }

  /// The bytes of a section. @return nothing when the file does not hold all of it, or it is no text of a
  /// fair length.
  [[nodiscard]] std::optional<std::string> content(const Section& section) const {
    if (section.sh_type == SHT_NOBITS || section.sh_size > MOST_RECORD_BYTES) return std::nullopt;
    std::string text(section.sh_size, '\0');
    if (!read(std::as_writable_bytes(std::span(text)), section.sh_offset)) return std::nullopt;
    return text;
  }

 private:
  std::string path_;
  base::FileDescriptor file_;
  std::uint64_t size_ = 0;
};

bool is_program_of_this_machine(const Header& header) {
  return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == MACHINE_CLASS &&
         header.e_ident[EI_DATA] == MACHINE_ORDER && header.e_shentsize == sizeof(Section);
}

}  // namespace

std::optional<std::string> usage_record(const std::string& file) {
  const ProgramFile program(file);
  Header header{};
  if (!program.read(std::as_writable_bytes(std::span(&header, 1)), 0) || !is_program_of_this_machine(header))
    return std::nullopt;
  std::vector<Section> sections(header.e_shnum);
  if (!program.read(std::as_writable_bytes(std::span(sections)), header.e_shoff)) return std::nullopt;
  if (header.e_shstrndx >= sections.size()) return std::nullopt;
  const std::optional<std::string> names = program.content(sections[header.e_shstrndx]);
  if (!names) return std::nullopt;
  for (const Section& section : sections) {
    // The names end with a null byte each.
    if (section.sh_name < names->size() && names->c_str() + section.sh_name == SECTION_NAME)
      return program.content(section);
  }
  return std::nullopt;
}

}  // namespace usage
