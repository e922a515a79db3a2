#include "archive/read_handle.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include <archive.h>
#include <archive_entry.h>

#include "archive/error.h"

namespace harbix {
namespace {

constexpr std::int64_t END_MARK_SIZE = 1024;
// No error number of the system's or the library's.
constexpr int INPUT_ENDED = 1 << 20;

constexpr std::array FORMATS{::archive_read_support_format_cpio, ::archive_read_support_format_tar,
                             ::archive_read_support_format_zip};
constexpr std::array FILTERS{::archive_read_support_filter_gzip,    ::archive_read_support_filter_bzip2,
                             ::archive_read_support_filter_xz,      ::archive_read_support_filter_lzma,
                             ::archive_read_support_filter_zstd,    ::archive_read_support_filter_lz4,
                             ::archive_read_support_filter_compress};

/// Few formats, for root reads what others wrote; and of the filters those that the library has itself: for
/// others it would run a program that it finds in PATH.
void support_formats(::archive* handle) {
  // A format that this build of the library lacks is then unrecognized, like any other.
  for (const auto support : FORMATS) static_cast<void>(support(handle));
  for (const auto support : FILTERS) {
    const ReadHandle::Owner probe(::archive_read_new());
    if (probe == nullptr) throw std::bad_alloc();
    if (support(probe.get()) == ARCHIVE_OK) static_cast<void>(support(handle));
  }
}

}  // namespace

void ReadHandle::Closer::operator()(::archive* handle) const noexcept {
  // What was only read has nothing left to report.
  ::archive_read_free(handle);
}

ReadHandle::ReadHandle(InputFile input) : input_(std::move(input)), handle_(::archive_read_new()) {
  if (handle_ == nullptr) throw std::bad_alloc();
  support_formats(get());
  if (open() != ARCHIVE_OK && !input_.is_empty()) throw ArchiveError(error_text(get()));
  // Formats that would have to seek in a pipe have said so, and lost the bid; that is no error.
  ::archive_clear_error(get());
}

int ReadHandle::open() {
  ::archive_read_set_callback_data(get(), this);
  ::archive_read_set_read_callback(get(), read);
  ::archive_read_set_skip_callback(get(), skip);
  if (input_.is_regular()) ::archive_read_set_seek_callback(get(), seek);
  return ::archive_read_open1(get());
}

int ReadHandle::next_header() {
  // Asked once more after its end, the library calls it an internal error. After damage it would look for
  // another header, and could find one in the middle of somebody's data.
  if (status_ != ARCHIVE_OK) return status_;
  is_in_header_ = true;
  const int status = ::archive_read_next_header(get(), &entry_);
  is_in_header_ = false;
  if (status == ARCHIVE_EOF) return status_ = judge_end();
  if (status == ARCHIVE_WARN) return status_ = judge_warning();
  if (status != ARCHIVE_OK) return status_ = status;
  ::archive_clear_error(get());
  return status_ = judge_names();
}

bool ReadHandle::is_tar() const {
  return (::archive_format(get()) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_TAR;
}

std::int64_t ReadHandle::header_position() const { return ::archive_read_header_position(get()); }

bool ReadHandle::has_more_behind_end() {
  // What is behind a compressed stream is the filter's affair.
  if (status_ != ARCHIVE_EOF || !is_tar() || ::archive_filter_code(get(), 0) != ARCHIVE_FILTER_NONE)
    return false;
  const std::int64_t block_begin = block_end_ - static_cast<std::int64_t>(block_.size());
  const std::int64_t end = std::max(header_position() + END_MARK_SIZE - block_begin, std::int64_t{0});
  std::span<const std::byte> rest = block_.subspan(std::min(static_cast<std::size_t>(end), block_.size()));
  for (;;) {
    if (std::ranges::any_of(rest, [](std::byte byte) { return byte != std::byte{0}; })) return true;
    const std::optional<std::span<const std::byte>> next = input_.read_block();
    if (!next || next->empty()) return false;
    rest = *next;
  }
}

int ReadHandle::judge_end() const {
  // A whole archive ends in two records of zeros, which stand where the library looked for another header.
  // Where it met the end of the input instead, also behind records of extensions, it keeps the error set in
  // read(); records of zeros clear that.
  const std::int64_t read_for_end = ::archive_filter_bytes(get(), 0) - ::archive_read_header_position(get());
  const bool has_mark = read_for_end >= END_MARK_SIZE && ::archive_errno(get()) != INPUT_ENDED;
  if (!is_tar() || has_mark) return ARCHIVE_EOF;
  ::archive_set_error(get(), EINVAL, "Truncated archive: the end mark is missing");
  return ARCHIVE_FATAL;
}

int ReadHandle::judge_warning() {
  // In the "C" locale every name beyond ASCII is warned of, and handed over as it was stored. A record that
  // the library could not read is passed over with a warning: the name may be another one.
  if (::archive_errno(get()) != EILSEQ) return ARCHIVE_FATAL;
  ::archive_clear_error(get());
  return judge_names();
}

int ReadHandle::judge_names() {
  // No system takes a longer one; and some work on names takes more time than they are long.
  constexpr std::size_t MOST_BYTES = std::size_t{64} << 10;
  for (const auto name_of : {::archive_entry_pathname, ::archive_entry_symlink}) {
    const char* const name = name_of(entry_);
    if (name == nullptr || ::strnlen(name, MOST_BYTES + 1) <= MOST_BYTES) continue;
    ::archive_set_error(get(), ENAMETOOLONG, "Name of more than 64 KiB");
    return ARCHIVE_FATAL;
  }
  return ARCHIVE_OK;
}

void ReadHandle::close() {
  status_ = ARCHIVE_EOF;
  // What is left unread cannot fail any more in a way that matters.
  ::archive_read_close(get());
}

std::ptrdiff_t ReadHandle::read(::archive* handle, void* self, const void** data) {
  auto* const own = static_cast<ReadHandle*>(self);
  const std::optional<std::span<const std::byte>> block = own->input_.read_block();
  if (!block) {
    ::archive_set_error(handle, errno, "Read error: %s", std::strerror(errno));
    return -1;
  }
  if (block->empty() && own->is_in_header_) ::archive_set_error(handle, INPUT_ENDED, "The input ended");
  own->block_ = *block;
  own->block_end_ = own->input_.position();
  *data = block->data();
  return static_cast<std::ptrdiff_t>(block->size());
}

std::int64_t ReadHandle::skip(::archive* /*handle*/, void* self, std::int64_t count) {
  return static_cast<ReadHandle*>(self)->input_.skip(count);
}

std::int64_t ReadHandle::seek(::archive* handle, void* self, std::int64_t offset, int whence) {
  const std::int64_t position = static_cast<ReadHandle*>(self)->input_.seek(offset, whence);
  if (position >= 0) return position;
  ::archive_set_error(handle, errno, "Seek error: %s", std::strerror(errno));
  return ARCHIVE_FATAL;
}

}  // namespace harbix
