#include "archive/writer.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include <archive.h>
#include <archive_entry.h>

#include "archive/error.h"
#include "archive/plain_header.h"
#include "base/log.h"
#include "base/run_progress.h"

namespace harbix {
namespace {

void report_unread(const fs::File& file, int error) {
  const char* const reason = std::strerror(error);
  diagnostics::line(0, "File '%s' could not be read to its end: %s", file.path().c_str(), reason);
  std::cerr << "Error: File '" << file.path() << "' could not be read to its end: " << reason << '\n';
}

void report_change(const fs::File& file, const char* what) {
  diagnostics::line(1, "File '%s' %s while it was archived", file.path().c_str(), what);
  std::cerr << "Warning: File '" << file.path() << "' " << what << " while it was archived\n";
}

}  // namespace

void ArchiveWriter::EntryDeleter::operator()(::archive_entry* entry) const noexcept {
  ::archive_entry_free(entry);
}

ArchiveWriter::ArchiveWriter(const std::string& file_name)
    : output_(file_name),
      handle_(ARCHIVE_FORMAT_TAR, output_),
      plain_(ARCHIVE_FORMAT_TAR_USTAR, output_),
      entry_(::archive_entry_new()) {
  if (entry_ == nullptr) throw std::bad_alloc();
}

ArchiveWriter::~ArchiveWriter() = default;

void ArchiveWriter::write(const Source& source, const fs::Path& name) {
  write_header(source.file.record(), name,
               source.file.is_symbolic_link() ? source.link_target.c_str() : nullptr);
  if (source.contents) write_contents(source.contents.get(), source.file);
  finish_entry();
}

void ArchiveWriter::write_header_only(const fs::File& file, const std::string& link_target,
                                      const fs::Path& name) {
  write_header(file.record(), name, file.is_symbolic_link() ? link_target.c_str() : nullptr);
  finish_entry();
}

void ArchiveWriter::write_text(const fs::Path& name, const struct ::stat& record, std::string_view text) {
  write_text(name, record, [text](const TextSink& put) { put(text); });
}

void ArchiveWriter::write_text(const fs::Path& name, const struct ::stat& record, const TextSource& text) {
  write_header(record, name, nullptr);
  text([this](std::string_view piece) { write_data(std::as_bytes(std::span(piece))); });
  finish_entry();
}

void ArchiveWriter::close() {
  if (!failure_.empty()) throw ResourceError(failure_);
  const int status = ::archive_write_close(handle_.get());
  const std::string reason = error_text(handle_.get());
  // What is still gathered reaches the system only here.
  const int error = output_.close();
  if (error != 0) throw ArchiveError(std::string("Write error: ") + std::strerror(error));
  if (status < ARCHIVE_WARN) throw ArchiveError(reason);
}

std::int64_t ArchiveWriter::compressed_position() const { return output_.size(); }

bool ArchiveWriter::is_output(const fs::File& file) const noexcept {
  return file.is_regular() && output_.is_described_by(file.record());
}

void ArchiveWriter::write_header(const struct ::stat& record, const fs::Path& name, const char* link_target) {
  // All that is ever set is set anew; to clear the entry would be to give its memory back and ask for it
  // again.
  ::archive_entry_copy_stat(entry_.get(), &record);
  ::archive_entry_set_pathname(entry_.get(), name.c_str());
  ::archive_entry_set_symlink(entry_.get(), link_target);

  // The writer of pax copies the whole entry before it finds out that nothing is to be added.
  const bool plain = is_plain_header(record, name);
  current_ = plain ? plain_.get() : handle_.get();
  const int status = ::archive_write_header(current_, entry_.get());
  if (status == ARCHIVE_FATAL) throw ArchiveError(error_text(current_));
  if (status < ARCHIVE_WARN) throw std::runtime_error("Archive error: " + error_text(current_));
  has_entries_ = true;
  run_progress::add_item();
  if (status == ARCHIVE_WARN) {
    // The entry is complete: a name that is not valid UTF-8 is stored byte for byte, and warned of.
    diagnostics::line(4, "Archive header: %s", error_text(current_).c_str());
    ::archive_clear_error(current_);
  }
}

void ArchiveWriter::write_data(std::span<const std::byte> data) {
  run_progress::add_bytes(static_cast<std::int64_t>(data.size()));
  if (data.empty() || ::archive_write_data(current_, data.data(), data.size()) >= 0) return;
  throw ArchiveError(error_text(current_) + "(" + std::to_string(::archive_errno(current_)) + ")");
}

void ArchiveWriter::write_contents(int descriptor, const fs::File& file) {
  std::int64_t rest = file.record().st_size;
  for (;;) {
    // One byte more, so that the end of the file shows without another call.
    const std::span<std::byte> chunk = output_.room(static_cast<std::uint64_t>(rest) + 1);
    const ssize_t count = ::read(descriptor, chunk.data(), chunk.size());
    if (count == -1 && errno == EINTR) continue;
    if (count == -1) {
      // The archive has zeros for the rest.
      report_unread(file, errno);
      return;
    }
    if (count == 0) break;
    if (count > rest) {
      write_data(chunk.first(static_cast<std::size_t>(rest)));
      report_change(file, "grew");
      return;
    }
    write_data(chunk.first(static_cast<std::size_t>(count)));
    rest -= count;
    // A short read that completes a file has met its end: no need to ask again.
    if (rest == 0 && static_cast<std::size_t>(count) < chunk.size()) return;
  }
  if (rest > 0) report_change(file, "shrank");
}

void ArchiveWriter::finish_entry() {
  // Fills up an entry whose file came out shorter than its header says.
  if (::archive_write_finish_entry(current_) == ARCHIVE_FATAL) throw ArchiveError(error_text(current_));
}

}  // namespace harbix
