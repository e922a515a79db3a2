#include "archive/extraction.h"

#include <iostream>
#include <new>
#include <stdexcept>
#include <utility>

#include <archive.h>
#include <archive_entry.h>

#include "archive/error.h"
#include "base/log.h"

namespace harbix {
namespace {

int extraction_flags(Keep owner, Keep permissions) {
  int flags = ARCHIVE_EXTRACT_SECURE_SYMLINKS | ARCHIVE_EXTRACT_SECURE_NODOTDOT;
  if (owner == Keep::YES) flags |= ARCHIVE_EXTRACT_OWNER;
  if (permissions == Keep::YES) flags |= ARCHIVE_EXTRACT_PERM;
  return flags;
}

void report_warning(int status, const std::string& reason) {
  diagnostics::line(1, "Archive status not OK (%d) ('%s')", status, reason.c_str());
  std::cerr << "Warning: " << reason << '\n';
}

}  // namespace

void Extraction::Closer::operator()(::archive* handle) const noexcept { ::archive_write_free(handle); }

Extraction::Extraction(ArchiveReader& reader, Keep owner, Keep permissions, fs::Path place)
    : reader_(reader), disk_(::archive_write_disk_new()), place_(std::move(place)) {
  if (disk_ == nullptr) throw std::bad_alloc();
  if (::archive_write_disk_set_options(disk_.get(), extraction_flags(owner, permissions)) != ARCHIVE_OK) {
    throw std::runtime_error(harbix::error_text(disk_.get()));
  }
}

Extraction::~Extraction() {
  const int status = ::archive_write_close(disk_.get());
  if (status != ARCHIVE_OK) report_warning(status, harbix::error_text(disk_.get()));
}

std::optional<ExtractionWarning> Extraction::extract(const EntryView& entry, const fs::File& destination) {
  if (!entry.is_hard_link()) {
    ::archive_entry_copy_stat(entry.get(), &destination.record());
    ::archive_entry_copy_pathname(entry.get(), destination.path().c_str());
  }
  const int status = ::archive_read_extract2(reader_.handle(), entry.get(), disk_.get());
  if (status == ARCHIVE_OK || status == ARCHIVE_EOF) return std::nullopt;
  std::string reason = reader_.error_text();
  if (status == ARCHIVE_FATAL) {
    const fs::Path path = place_.empty() ? destination.path() : place_ / destination.path();
    diagnostics::line(0, "Failed restoring '%s' due to '%s'", path.c_str(), reason.c_str());
    // Odd on purpose: callers match this text, so its last two characters stay as they are.
    throw std::runtime_error("Extracting data for '" + path.text() + "' failed ('%s')");
  }
  report_warning(status, reason);
  const int error_number = reader_.error_number();
  // Told once; left in place it would end the search for the next package.
  reader_.clear_error();
  return ExtractionWarning{error_number, std::move(reason)};
}

}  // namespace harbix
