#include "archive/pps_object.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "archive/source.h"
#include "base/file_descriptor.h"
#include "base/log.h"
#include "fs/exception.h"

namespace harbix {
namespace {

constexpr std::size_t LARGEST_TEXT = 32768;
constexpr std::string_view NOT_PERSISTENT = "[n]";
constexpr char DELETED = '-';

base::FileDescriptor open_object(fs::Folder& folder, const fs::Path& path) {
  const fs::Path relative = folder.relative(path);
  const fs::Place place = folder.place_of(relative);
  base::FileDescriptor object(::openat(place.folder, place.name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!object) throw_unopened(path, errno);
  return object;
}

std::string read_object(const base::FileDescriptor& object) {
  std::string text(LARGEST_TEXT, '\0');
  ssize_t count = 0;
  do {
    count = ::read(object.get(), text.data(), text.size());
  } while (count == -1 && errno == EINTR);
  if (count == -1) {
    const int error = errno;
    throw fs::Exception(error, "Error reading pps object");
  }
  text.resize(static_cast<std::size_t>(count));
  return text;
}

void report_cut(const fs::Path& path) {
  diagnostics::line(1, "PPS object '%s' was cut in the archive", path.c_str());
  std::cerr << "Warning: PPS object '" << path << "' was cut in the archive\n";
}

/// Reads exactly `size` bytes of the current entry.
std::string read_chunk(ArchiveReader& reader, std::size_t size) {
  std::string chunk(size, '\0');
  for (std::size_t filled = 0; filled < size;) {
    const std::int64_t count = reader.read_data(chunk.data() + filled, size - filled);
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
      continue;
    }
    const std::string reason = reader.error_text();
    diagnostics::line(0, "Archive status not OK (%d) ('%s')", static_cast<int>(count), reason.c_str());
    std::cerr << "Error: " << reason << '\n';
    throw std::runtime_error("Error restore_pps");
  }
  return chunk;
}

/// One write: an object takes the lines of a write together.
void publish(const base::FileDescriptor& object, const std::string& text) {
  if (text.empty()) return;
  const ssize_t written = ::write(object.get(), text.data(), text.size());
  if (written == static_cast<ssize_t>(text.size())) return;
  const int error = written == -1 ? errno : EIO;
  throw fs::Exception(error, "restore_pps failed");
}

}  // namespace

std::string PersistentLines::take(std::string_view piece) {
  const std::string text = std::exchange(pending_, {}).append(piece.substr(0, piece.find('\0')));
  std::string kept;
  for (std::string_view left = text; !left.empty();) {
    const std::size_t newline = left.find('\n');
    const bool is_whole = newline != std::string_view::npos;
    const std::string_view line = left.substr(0, is_whole ? newline + 1 : newline);
    if (is_at_beginning_) {
      if (line.size() < NOT_PERSISTENT.size() && NOT_PERSISTENT.starts_with(line)) {
        pending_ = line;  // only the next piece tells
        break;
      }
      is_dropped_ = line.starts_with(NOT_PERSISTENT) || line.starts_with(DELETED);
    }
    if (!is_dropped_) kept += line;
    is_at_beginning_ = is_whole;
    left.remove_prefix(line.size());
  }
  return kept;
}

std::string persistent_lines(std::string_view text) {
  PersistentLines lines;
  std::string kept = lines.take(text);
  return kept += lines.rest();
}

void write_pps_object(ArchiveWriter& writer, fs::Folder& folder, const fs::File& item, const fs::Path& name) {
  const base::FileDescriptor object = open_object(folder, item.path());
  struct ::stat record {};
  if (::fstat(object.get(), &record) == -1) throw_unopened(item.path(), errno);
  const std::string whole = read_object(object);
  if (whole.size() == LARGEST_TEXT || whole.find('\0') != std::string::npos) report_cut(item.path());
  const std::string text = persistent_lines(whole);
  record.st_size = static_cast<off_t>(text.size());
  writer.write_text(name, record, text);
}

void restore_pps_object(ArchiveReader& reader, const EntryView& entry, const fs::Path& path) {
  if (entry.size() > LARGEST_ARCHIVED_OBJECT) throw std::runtime_error("PPS object of more than 1 MiB");
  base::FileDescriptor object(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  if (!object) {
    const int error = errno;
    throw fs::Exception(error, "restore_pps failed");
  }
  PersistentLines lines;
  for (std::int64_t remaining = entry.size(); remaining > 0;) {
    const std::size_t size = std::min(LARGEST_TEXT, static_cast<std::size_t>(remaining));
    remaining -= static_cast<std::int64_t>(size);
    std::string kept = lines.take(read_chunk(reader, size));
    if (remaining == 0) kept += lines.rest();
    publish(object, kept);
  }
  // What an object does not accept of its last line, it says here.
  if (const int error = object.close(); error != 0) throw fs::Exception(error, "restore_pps failed");
}

}  // namespace harbix
