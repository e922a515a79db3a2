#include "archive/package_writer.h"

#include <iostream>
#include <stdexcept>
#include <string>

#include "archive/error.h"
#include "archive/metadata_entry.h"
#include "archive/source.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/identity.h"

namespace harbix {
namespace {

constexpr std::int64_t RECORD_SIZE = 512;
constexpr std::size_t MANIFEST_PIECE = std::size_t{32} << 10;

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
  const std::size_t text = meta::line_size(style_.record(item));
  if (items_.size() >= bounds_.items || record_text_ + text > bounds_.record_text) {
    report_left_out(item.path(), "the manifest is full");
    return false;
  }
  record_text_ += text;
  items_.add(item);
  const std::int64_t size = item.record().st_size;
  bytes_ = saturated_sum(bytes_, size);
  entry_bytes_ = saturated_sum(entry_bytes_, RECORD_SIZE);
  if (item.is_regular()) entry_bytes_ = saturated_sum(entry_bytes_, filled_up(size));
  return true;
}

void PackageWriter::add_missing(const fs::Path& path) {
  const fs::File missing(path, {});
  record_text_ += meta::line_size(style_.record(missing));
  items_.add(missing);
}

SizeResult PackageWriter::estimate() const {
  const auto manifest_bytes = static_cast<std::int64_t>(record_text_ + meta::to_text({}).size());
  return {.bytes = saturated_sum(RECORD_SIZE + filled_up(manifest_bytes), entry_bytes_),
          .files = static_cast<std::int32_t>(items_.size())};
}

void PackageWriter::store(const fs::Path& name, const fs::Path& base, const meta::Manifest& attributes) {
  leave_out_other_manifests(name, base);
  store_records(name, attributes);
  report::ProgressLines progress;
  for (std::size_t i = 0; i < items_.size(); ++i) {
    ahead_.reach(i);
    const fs::File item = items_[i];
    store_item(item, name / item.path().relative_to(base), progress);
  }
}

void PackageWriter::store_records(const fs::Path& name, const meta::Manifest& attributes) {
  std::size_t bytes = record_text_;
  for (const meta::Attribute& attribute : attributes) bytes += meta::line_size(attribute);
  store_manifest(writer_, name, METADATA_NAME, bytes, [&](const TextSink& put) {
    std::string text;
    for (const meta::Attribute& attribute : attributes) meta::append_line(text, attribute);
    for (std::size_t i = 0; i < items_.size(); ++i) {
      meta::append_line(text, style_.record(items_[i]));
      if (text.size() < MANIFEST_PIECE) continue;
      put(text);
      text.clear();
    }
    put(text);
  });
}

void PackageWriter::leave_out_other_manifests(const fs::Path& name, const fs::Path& base) {
  // A restore would take each of them for the beginning of a package.
  for (std::size_t i = items_.size(); i-- > 0;) {
    if (items_.name(i) != METADATA_NAME) continue;
    const fs::File item = items_[i];
    if (!begins_package((name / item.path().relative_to(base)).text())) continue;
    report_left_out(item.path(), "has the name of a manifest");
    record_text_ -= meta::line_size(style_.record(item));
    items_.remove(i);
  }
}

void PackageWriter::store_item(const fs::File& item, const fs::Path& name, report::ProgressLines& progress) {
  try {
    style_.announce(progress, item.path(), name);
    style_.write(writer_, folder_, item, name);
  } catch (const ResourceError& error) {
    writer_.fail(error.what());
    throw;
  } catch (const ArchiveError&) {
    throw;  // there is no archive to go on with
  } catch (const fs::IdentityError&) {
    throw;  // nor may the next item be read under another identity
  } catch (const std::runtime_error& error) {
    if (ends_run(error)) throw;
    progress.flush();
    report::error(error.what(), style_.error_prefix);
  }
}

void report_unlisted(const fs::Exception& failure, Completeness& completeness) {
  if (ends_run(failure)) throw ResourceError(failure.what(), failure.error());
  report::error(failure.what());
  completeness.note_missing();
}

void write_object(ArchiveWriter& writer, fs::Folder& folder, const fs::File& item, const fs::Path& name) {
  const Source source = open_source(folder, item.path());
  if (!item.is_same_object(source.file.record())) throw_replaced(item.path());
  writer.write(source, name);
}

void announce_with_name(report::ProgressLines& /*progress*/, const fs::Path& path, const fs::Path& name) {
  diagnostics::line(3, "Archive: %s to %s", path.c_str(), name.c_str());
  report::progress("Archive: ", path, " to ", name);
}

}  // namespace harbix
