#include "archive/package_writer.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "archive/error.h"
#include "archive/metadata_entry.h"
#include "archive/source.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/identity.h"

namespace harbix {
namespace {

constexpr std::int64_t RECORD_SIZE = 512;
// What is over is left for the other attributes, and what the text has between keys and values.
constexpr std::size_t MOST_ITEMS = meta::MOST_ATTRIBUTES - 1000;
constexpr std::size_t MOST_RECORD_TEXT = meta::LARGEST_TEXT - (std::size_t{8} << 20);

std::int64_t filled_up(std::int64_t bytes) {
  return saturated_sum(bytes, RECORD_SIZE - 1) / RECORD_SIZE * RECORD_SIZE;
}

void report_left_out(const fs::Path& path, const char* reason) {
  diagnostics::line(1, "%s: '%s'; skipping.", reason, path.c_str());
  std::cerr << reason << ": " << path << " skipping\n";
}

/// Why no archive can hold an item; nullptr for what it can hold.
const char* obstacle(const fs::File& item, const ArchiveWriter& writer) {
  if (!item.is_regular() && !item.is_directory() && !item.is_symbolic_link())
    return "not a file, folder or link";
  return writer.is_output(item) ? "is the archive itself" : nullptr;
}

}  // namespace

bool PackageWriter::add(const fs::File& item) {
  if (const char* reason = obstacle(item, writer_)) {
    report_left_out(item.path(), reason);
    return false;
  }
  meta::Attribute record = style_.record(item);
  const std::size_t text = record.key.size() + record.value.size();
  if (items_.size() >= MOST_ITEMS || record_text_ + text > MOST_RECORD_TEXT) {
    report_left_out(item.path(), "the manifest is full");
    return false;
  }
  record_text_ += text;
  records_.push_back(std::move(record));
  items_.push_back({item.path(), item.record().st_dev, item.record().st_ino});
  const std::int64_t size = item.record().st_size;
  bytes_ = saturated_sum(bytes_, size);
  entry_bytes_ = saturated_sum(entry_bytes_, RECORD_SIZE);
  if (item.is_regular()) entry_bytes_ = saturated_sum(entry_bytes_, filled_up(size));
  return true;
}

void PackageWriter::add_missing(const fs::Path& path) {
  records_.push_back(style_.record({path, {}}));
  items_.push_back({path, 0, 0});
}

SizeResult PackageWriter::estimate() const {
  const auto manifest_bytes = static_cast<std::int64_t>(meta::to_text(records_).size());
  return {.bytes = saturated_sum(RECORD_SIZE + filled_up(manifest_bytes), entry_bytes_),
          .files = static_cast<std::int32_t>(items_.size())};
}

void PackageWriter::store(const fs::Path& name, const fs::Path& base, meta::Manifest attributes) {
  leave_out_other_manifests(name, base);
  std::ranges::move(records_, std::back_inserter(attributes));
  store_manifest(writer_, name, METADATA_NAME, attributes);
  // Not needed any more, and as large as the list of items.
  records_ = meta::Manifest();
  attributes = meta::Manifest();
  report::ProgressLines progress;
  for (const PackageItem& item : items_) store_item(item, name / item.path.relative_to(base), progress);
}

void PackageWriter::leave_out_other_manifests(const fs::Path& name, const fs::Path& base) {
  // A restore would take each of them for the beginning of a package.
  for (std::size_t i = items_.size(); i-- > 0;) {
    const fs::Path& path = items_[i].path;
    if (!path.text().ends_with(METADATA_NAME) || !begins_package((name / path.relative_to(base)).text()))
      continue;
    report_left_out(path, "has the name of a manifest");
    records_.erase(records_.begin() + static_cast<std::ptrdiff_t>(i));
    items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

void PackageWriter::store_item(const PackageItem& item, const fs::Path& name,
                               report::ProgressLines& progress) {
  try {
    style_.announce(progress, item.path, name);
    style_.write(writer_, folder_, item, name);
  } catch (const ResourceError& error) {
    writer_.fail(error.what());
    throw;
  } catch (const ArchiveError&) {
    throw;  // there is no archive to go on with
  } catch (const fs::IdentityError&) {
    throw;  // nor may the next item be read under another identity
  } catch (const std::runtime_error& error) {
    progress.flush();
    report::error(error.what(), style_.error_prefix);
  }
}

void report_unlisted(const fs::Exception& failure, Completeness& completeness) {
  report::error(failure.what());
  completeness.note_missing();
}

void write_object(ArchiveWriter& writer, fs::Folder& folder, const PackageItem& item, const fs::Path& name) {
  const Source source = open_source(folder, item.path);
  const struct ::stat& record = source.file.record();
  if (record.st_dev != item.device || record.st_ino != item.inode) throw_replaced(item.path);
  writer.write(source, name);
}

void announce_with_name(report::ProgressLines& /*progress*/, const fs::Path& path, const fs::Path& name) {
  diagnostics::line(3, "Archive: %s to %s", path.c_str(), name.c_str());
  report::progress("Archive: ", path, " to ", name);
}

}  // namespace harbix
