#include "archive/reader.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <archive.h>

#include "archive/error.h"
#include "base/log.h"
#include "base/run_progress.h"

namespace harbix {
namespace {

// An end mark of the usual blocking, and some: what is longer is what a power cut leaves of a file.
constexpr std::int64_t LONGEST_EMPTY_ARCHIVE = std::int64_t{64} << 10;

}  // namespace

ArchiveReader::ArchiveReader(const std::string& file_name) : handle_(InputFile(file_name)) {}

void ArchiveReader::begin_section(Section section) {
  // Not one byte is not an archive without entries: it is a backup that was lost.
  if (handle_.input().is_empty()) throw ArchiveError("The archive is empty");
  if (!is_begun_) refuse_zeros();
  is_begun_ = true;
  section_ = std::move(section);
  has_met_own_ = false;
}

void ArchiveReader::refuse_zeros() {
  status_ = handle_.next_header();
  held_back_ = true;
  is_empty_ = status_ == ARCHIVE_EOF;
  if (is_empty_ && handle_.input().is_longer_than(LONGEST_EMPTY_ARCHIVE))
    throw ArchiveError("The archive holds nothing but zeros");
}

const Survey* ArchiveReader::survey() {
  if (!survey_) {
    std::optional<InputFile> input = handle_.input().again();
    if (!input) return nullptr;
    survey_.emplace(*std::move(input));
  }
  return &*survey_;
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
    if (!std::exchange(held_back_, false)) status_ = handle_.next_header();
    if (status_ != ARCHIVE_OK) return status_;
    note_package();
    if (in_package_of(section_.later) || (has_met_own_ && in_package_of(section_.rest))) {
      held_back_ = true;
      return ARCHIVE_EOF;
    }
    if (in_package_of(section_.earlier)) continue;
    run_progress::add_item();
    return ARCHIVE_OK;
  }
}

void ArchiveReader::note_package() {
  if (!entry().begins_package()) return;
  if (const std::optional<fs::Path> name = entry().name()) package_ = name->dirname();
  run_progress::begin_package(package_.text());
  has_met_own_ = has_met_own_ || in_package_of(section_.own);
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
  const la_ssize_t count = ::archive_read_data(handle_.get(), buffer, size);
  if (count > 0) run_progress::add_bytes(count);
  return count;
}

std::optional<DataBlock> ArchiveReader::read_block() {
  const void* data = nullptr;
  std::size_t size = 0;
  la_int64_t offset = 0;
  const int status = ::archive_read_data_block(handle_.get(), &data, &size, &offset);
  if (status == ARCHIVE_EOF) return std::nullopt;
  if (status < ARCHIVE_WARN) throw DataError(error_text());
  run_progress::add_bytes(static_cast<std::int64_t>(size));
  return DataBlock{static_cast<const char*>(data), size, offset};
}

std::size_t ArchiveReader::input_bytes() const {
  constexpr int OUTERMOST = -1;
  return static_cast<std::size_t>(::archive_filter_bytes(handle_.get(), OUTERMOST));
}

int ArchiveReader::error_number() const { return held_back_ ? 0 : ::archive_errno(handle_.get()); }

std::string ArchiveReader::error_text() const { return harbix::error_text(handle_.get()); }

void ArchiveReader::clear_error() { ::archive_clear_error(handle_.get()); }

bool ArchiveReader::is_input(const fs::File& file) const noexcept {
  return handle_.input().is_regular() && file.is_same_object(handle_.input().record());
}

void ArchiveReader::close() {
  status_ = ARCHIVE_EOF;
  held_back_ = false;
  handle_.close();
}

}  // namespace harbix
