#include "archive/reader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <archive.h>
#include <archive_entry.h>

#include "archive/error.h"
#include "archive/manifest.h"
#include "base/log.h"

namespace harbix {
namespace {

constexpr std::int64_t END_MARK_SIZE = 1024;

la_ssize_t read_callback(::archive* handle, void* client, const void** data) {
  const std::optional<std::span<const std::byte>> block = static_cast<InputFile*>(client)->read_block();
  if (!block) {
    ::archive_set_error(handle, errno, "Read error: %s", std::strerror(errno));
    return -1;
  }
  *data = block->data();
  return static_cast<la_ssize_t>(block->size());
}

la_int64_t skip_callback(::archive* /*handle*/, void* client, la_int64_t count) {
  return static_cast<InputFile*>(client)->skip(count);
}

la_int64_t seek_callback(::archive* handle, void* client, la_int64_t offset, int whence) {
  const std::int64_t position = static_cast<InputFile*>(client)->seek(offset, whence);
  if (position >= 0) return position;
  ::archive_set_error(handle, errno, "Seek error: %s", std::strerror(errno));
  return ARCHIVE_FATAL;
}

/// Everything the library reads but listings of files (mtree): nearly every text passes for one, and it could
/// name files of this device as the contents of its entries.
void support_formats(::archive* handle) {
  constexpr std::array FORMATS{::archive_read_support_format_7zip,    ::archive_read_support_format_ar,
                               ::archive_read_support_format_cab,     ::archive_read_support_format_cpio,
                               ::archive_read_support_format_iso9660, ::archive_read_support_format_lha,
                               ::archive_read_support_format_rar,     ::archive_read_support_format_rar5,
                               ::archive_read_support_format_tar,     ::archive_read_support_format_warc,
                               ::archive_read_support_format_xar,     ::archive_read_support_format_zip};
  // A format that this build of the library lacks is then unrecognized, like any other.
  for (const auto support : FORMATS) static_cast<void>(support(handle));
}

int open_stream(::archive* handle, InputFile& input) {
  ::archive_read_set_callback_data(handle, &input);
  ::archive_read_set_read_callback(handle, read_callback);
  ::archive_read_set_skip_callback(handle, skip_callback);
  if (input.is_regular()) ::archive_read_set_seek_callback(handle, seek_callback);
  return ::archive_read_open1(handle);
}

}  // namespace

void ArchiveReader::Closer::operator()(::archive* handle) const noexcept {
  // What was only read has nothing left to report.
  ::archive_read_free(handle);
}

ArchiveReader::ArchiveReader(const std::string& file_name)
    : input_(file_name), handle_(::archive_read_new()) {
  if (handle_ == nullptr) throw std::bad_alloc();
  // Filters that need an outside program are answered by ARCHIVE_WARN; they are available all the same.
  support_formats(handle_.get());
  ::archive_read_support_filter_all(handle_.get());
  const int status = open_stream(handle_.get(), input_);
  if (status != ARCHIVE_OK && !input_.is_empty()) throw ArchiveError(error_text());
  // Formats that would have to seek in a pipe have said so, and lost the bid; that is nobody's error.
  clear_error();
}

ArchiveReader::~ArchiveReader() = default;

void ArchiveReader::begin_section(Section section) {
  // Not one byte is not an archive without entries: it is a backup that was lost.
  if (input_.is_empty()) throw ArchiveError("The archive is empty");
  section_ = std::move(section);
}

void ArchiveReader::require_readable() {
  const int status = advance();
  held_back_ = true;
  if (status != ARCHIVE_OK && status != ARCHIVE_EOF)
    throw std::runtime_error("Could not read next archive header");
}

std::optional<EntryView> ArchiveReader::next_header() {
  switch (advance()) {
    case ARCHIVE_OK:
      return entry();
    case ARCHIVE_EOF:
      return std::nullopt;
    default:
      diagnostics::line(1, "Archive header: %s", error_text().c_str());
      throw std::runtime_error("Could not read next archive header");
  }
}

int ArchiveReader::advance() {
  for (;;) {
    if (!std::exchange(held_back_, false)) status_ = read_raw_header();
    if (status_ != ARCHIVE_OK) return status_;
    note_package();
    if (in_package_of(section_.later)) {
      held_back_ = true;
      return ARCHIVE_EOF;
    }
    if (!in_package_of(section_.earlier)) return ARCHIVE_OK;
  }
}

int ArchiveReader::read_raw_header() {
  // Asked once more after its end, the library calls it an internal error.
  if (status_ == ARCHIVE_EOF || status_ == ARCHIVE_FATAL) return status_;
  int status = ARCHIVE_RETRY;
  while (status == ARCHIVE_RETRY) status = ::archive_read_next_header(handle_.get(), &entry_);
  if (status == ARCHIVE_EOF) return refuse_missing_end_mark();
  if (status != ARCHIVE_OK && status != ARCHIVE_WARN) return status;
  // In the "C" locale every name beyond ASCII is warned of, and handed over as it was stored.
  clear_error();
  return ARCHIVE_OK;
}

int ArchiveReader::refuse_missing_end_mark() {
  const bool is_tar = (::archive_format(handle_.get()) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_TAR;
  // A whole archive ends in two records of zeros, which stand where the library looked for another header. It
  // takes less for the end as well.
  const std::int64_t read_for_end =
      ::archive_filter_bytes(handle_.get(), 0) - ::archive_read_header_position(handle_.get());
  if (!is_tar || read_for_end >= END_MARK_SIZE) return ARCHIVE_EOF;
  ::archive_set_error(handle_.get(), EINVAL, "Truncated archive: the end mark is missing");
  return ARCHIVE_FATAL;
}

void ArchiveReader::note_package() {
  const char* name = ::archive_entry_pathname(entry_);
  if (name == nullptr) return;
  if (is_metadata_name(name)) package_ = fs::Path(name).dirname();
}

bool ArchiveReader::in_package_of(const std::vector<fs::Path>& prefixes) const {
  return std::ranges::any_of(prefixes, [this](const fs::Path& prefix) { return package_.is_inside(prefix); });
}

void ArchiveReader::skip(const EntryView& entry) {
  if (entry.size() == 0) return;
  if (::archive_read_data_skip(handle_.get()) != ARCHIVE_FATAL) return;
  const std::string reason = error_text();
  diagnostics::line(0, "Skip data failed '%s'", reason.c_str());
  throw std::runtime_error(reason);
}

std::int64_t ArchiveReader::read_data(char* buffer, std::size_t size) {
  return ::archive_read_data(handle_.get(), buffer, size);
}

std::optional<DataBlock> ArchiveReader::read_block() {
  const void* data = nullptr;
  std::size_t size = 0;
  la_int64_t offset = 0;
  const int status = ::archive_read_data_block(handle_.get(), &data, &size, &offset);
  if (status == ARCHIVE_EOF) return std::nullopt;
  if (status < ARCHIVE_WARN) throw DataError(error_text());
  return DataBlock{static_cast<const char*>(data), size, offset};
}

int ArchiveReader::error_number() const { return ::archive_errno(handle_.get()); }

std::string ArchiveReader::error_text() const { return harbix::error_text(handle_.get()); }

void ArchiveReader::clear_error() { ::archive_clear_error(handle_.get()); }

bool ArchiveReader::is_input(const fs::File& file) const noexcept {
  return input_.is_regular() && file.is_same_object(input_.record());
}

void ArchiveReader::close() {
  status_ = ARCHIVE_EOF;
  held_back_ = false;
  // Whatever is left unread cannot fail any more in a way that matters.
  ::archive_read_close(handle_.get());
}

}  // namespace harbix
