#include "media/package.h"

#include <utility>

#include "archive/archivable.h"
#include "archive/archive_paths.h"
#include "archive/file_record.h"
#include "archive/metadata_entry.h"
#include "media/skip_test.h"

namespace harbix {
namespace {

constexpr std::int64_t RECORD_SIZE = 512;

std::int64_t rounded(std::int64_t bytes) { return (bytes + RECORD_SIZE - 1) / RECORD_SIZE * RECORD_SIZE; }

}  // namespace

MediaPackage::MediaPackage(fs::File root, const ArchiveWriter& writer)
    : root_(std::move(root)), writer_(writer) {}

void MediaPackage::collect_media() {
  CreateManifest visitor([](const fs::File& item) { return !is_skipped(item); },
                         [this](const fs::File& item) { return take(item); },
                         [](const fs::Path& path, const fs::Exception&) { report_unreadable(path); });
  gather(visitor);
}

void MediaPackage::collect_dtm_share() {
  CreateDtmShareManifest visitor([this](const fs::File& item) { return take(item); },
                                 [](const fs::Path& path, const fs::Exception&) { report_unreadable(path); });
  gather(visitor);
}

void MediaPackage::gather(CreateDtmShareManifest& visitor) {
  visitor(root_);
  // Deferred: a tree that is deeper than a process may have files open is backed up as well.
  if (root_.is_directory()) fs::walk(root_.path(), fs::Descent::DEFERRED, visitor);
  paths_ = visitor.take_paths();
}

bool MediaPackage::take(const fs::File& item) {
  if (!is_archivable(item, writer_)) return false;
  manifest_.push_back(plain_record(item));
  item_bytes_ += RECORD_SIZE + (item.is_regular() ? rounded(item.record().st_size) : 0);
  return true;
}

void MediaPackage::store(ArchiveWriter& writer, const fs::Path& prefix) {
  store_manifest(writer, prefix / root_.path(), METADATA_NAME, manifest_);
  // Not needed any more, and as large as the list of items.
  manifest_ = meta::Manifest();
  archive_paths(writer, paths_, prefix);
}

SizeResult MediaPackage::estimate() const {
  const auto manifest_bytes = static_cast<std::int64_t>(meta::to_text(manifest_).size());
  return {.bytes = RECORD_SIZE + rounded(manifest_bytes) + item_bytes_,
          .files = static_cast<std::int32_t>(paths_.size())};
}

}  // namespace harbix
