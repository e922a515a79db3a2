// With any bytes: an archive ends or is damaged, and stays so; no header is read twice; and a search for
// packages finds none that stepping through the headers does not meet.

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include <archive.h>

#include "archive/metadata_entry.h"
#include "archive/reader.h"
#include "base/file_descriptor.h"

namespace {

constexpr std::size_t MAX_INPUT_BYTES = 65536;
// A compressed input may hold more headers than bytes, but not without end.
constexpr std::size_t MOST_HEADERS = 100000;
// A sparse entry can claim exabytes: only so much of it is read.
constexpr std::size_t MOST_CHUNKS = 64;

/// A file without a place on disk that holds the input.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : file_(::memfd_create("input", MFD_CLOEXEC)) {
    if (::write(file_.get(), data, size) != static_cast<ssize_t>(size)) std::abort();
  }
  [[nodiscard]] std::string name() const { return "/proc/self/fd/" + std::to_string(file_.get()); }

 private:
  base::FileDescriptor file_;
};

harbix::ArchiveReader open_reader(const Input& input) { return harbix::ArchiveReader(input.name()); }

void read_some_data(harbix::ArchiveReader& reader) {
  std::array<char, 4096> chunk{};
  for (std::size_t i = 0; i < MOST_CHUNKS && reader.read_data(chunk.data(), chunk.size()) > 0; ++i) continue;
}

/// @return how many metadata entries there are before the end or the damage.
std::size_t step_through(const Input& input) {
  harbix::ArchiveReader reader = open_reader(input);
  std::size_t packages = 0;
  std::size_t headers = 0;
  int status = ARCHIVE_OK;
  while ((status = reader.advance()) == ARCHIVE_OK && ++headers < MOST_HEADERS) {
    const harbix::EntryView entry = reader.entry();
    if (entry.begins_package()) ++packages;
    if (entry.is_restorable() && entry.is_hard_link()) std::abort();
    read_some_data(reader);
  }
  if (status == ARCHIVE_EOF && reader.advance() != ARCHIVE_EOF) std::abort();
  if (status == ARCHIVE_FATAL && reader.advance() != ARCHIVE_FATAL) std::abort();
  return packages;
}

std::size_t search(const Input& input) {
  harbix::ArchiveReader reader = open_reader(input);
  std::size_t packages = 0;
  try {
    while (packages < MOST_HEADERS &&
           harbix::find_manifest(reader, harbix::METADATA_NAME, harbix::OtherEntries::SKIP)) {
      ++packages;
    }
  } catch (const std::runtime_error&) {
    return packages;  // damage, reported as it should be
  }
  return packages;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > MAX_INPUT_BYTES) return 0;
  const Input input(data, size);
  try {
    if (search(input) > step_through(input)) std::abort();
  } catch (const std::runtime_error&) {
    return 0;  // no archive at all
  }
  return 0;
}
