#include "inspect/archive_pass.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include <archive.h>

#include "archive/error.h"
#include "archive/extraction.h"
#include "base/file_descriptor.h"

namespace harbix::inspect {
namespace {

bool is_terminal(const std::string& name) {
  struct ::stat record {};
  // Only a character device can be one; to open another thing, such as a fifo, and to close it may change it.
  if (::stat(name.c_str(), &record) == -1 || !S_ISCHR(record.st_mode)) return false;
  const base::FileDescriptor file(::open(name.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  return file && ::isatty(file.get()) == 1;
}

void visit(ArchiveReader& reader, Visitor& visitor) {
  const EntryView entry = reader.entry();
  std::optional<fs::Path> name = entry.name();
  if (!name) {
    visitor.meet_nameless(reader.position());
    return;
  }
  const Item item{entry, *std::move(name), reader.position()};
  if (entry.begins_package()) {
    visitor.begin_package(package_of(item.name), item, reader);
  } else {
    visitor.meet(item, reader);
  }
}

void take_zeros(std::int64_t count, const std::function<void(std::string_view)>& take) {
  static constexpr std::array<char, 4096> ZEROS{};
  while (count > 0) {
    const std::int64_t piece = std::min<std::int64_t>(count, ZEROS.size());
    take({ZEROS.data(), static_cast<std::size_t>(piece)});
    count -= piece;
  }
}

}  // namespace

std::string input_name(const std::string& name) {
  if (name != "-") {
    if (is_terminal(name)) throw ArchiveError("'" + name + "' is a terminal");
    return name;
  }
  if (::isatty(STDIN_FILENO) == 1) throw ArchiveError("Standard input is a terminal");
  return "";
}

std::optional<Damage> read_archive(ArchiveReader& reader, Visitor& visitor) {
  std::int64_t last = 0;  // header: behind damage the library need not know where it is
  const auto damage = [&](std::string reason) {
    return Damage{std::move(reason), std::max(last, reader.position())};
  };
  try {
    reader.begin_section({});
    int status = ARCHIVE_OK;
    for (;;) {
      status = reader.advance();
      if (status != ARCHIVE_OK) break;
      last = reader.position();
      visit(reader, visitor);
    }
    if (status != ARCHIVE_EOF) return damage(reader.error_text());
    // What was written behind what was read is not known.
    if (reader.input().has_changed()) return damage("The archive changed while it was read");
    return std::nullopt;
  } catch (const DataError& error) {
    return damage(error.what());
  }
}

void pass_over(ArchiveReader& reader, const EntryView& entry, const fs::Path& destination, bool is_left_out) {
  try {
    reader.skip(entry);
  } catch (const std::runtime_error&) {
    if (is_left_out) throw;
    throw std::runtime_error(damaged_contents_text(destination));
  }
}

void read_contents(ArchiveReader& reader, std::int64_t size,
                   const std::function<void(std::string_view)>& take) {
  std::int64_t done = 0;
  while (const std::optional<DataBlock> block = reader.read_block()) {
    take_zeros(block->offset - done, take);
    take({block->data, block->size});
    done = block->offset + static_cast<std::int64_t>(block->size);
  }
  take_zeros(size - done, take);
}

}  // namespace harbix::inspect
