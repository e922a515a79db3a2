#include "archive/extraction.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "archive/error.h"
#include "base/log.h"
#include "fs/exception.h"

namespace harbix {

std::string damaged_contents_text(const fs::Path& destination) {
  // Odd on purpose: callers match this text, so its last two characters stay as they are.
  return "Extracting data for '" + destination.text() + "' failed ('%s')";
}

Extraction::Extraction(ArchiveReader& reader, const Role& role, const fs::Path& place, Keep permissions,
                       Completeness& completeness)
    : reader_(reader),
      role_(role),
      group_(role.group),
      user_(role.user),
      folder_(place),
      completeness_(completeness),
      writer_(folder_, reader, permissions, completeness) {}

Extraction::Extraction(ArchiveReader& reader, const Role& role, fs::Folder place, Keep permissions,
                       Completeness& completeness)
    : reader_(reader),
      role_(role),
      group_(role.group),
      user_(role.user),
      folder_(std::move(place)),
      completeness_(completeness),
      writer_(folder_, reader, permissions, completeness) {}

std::optional<ExtractionWarning> Extraction::extract(const EntryView& entry, const fs::File& destination) {
  return attempt(entry, destination, Existing::REPLACED).warning;
}

bool Extraction::extract_new(const EntryView& entry, const fs::File& destination) {
  return attempt(entry, destination, Existing::STAYS).was_free;
}

Extraction::Attempt Extraction::attempt(const EntryView& entry, const fs::File& destination,
                                        Existing existing) {
  try {
    return {put_on_disk(entry, destination, existing), std::nullopt};
  } catch (const DataError& error) {
    const fs::Path& path = destination.path();
    diagnostics::line(0, "Failed restoring '%s' due to '%s'", path.c_str(), error.what());
    throw std::runtime_error(damaged_contents_text(path));
  } catch (const fs::Exception& error) {
    const std::string reason = error.error() == EXDEV ? "Path contains '..'" : error.reason();
    report_unwritten(folder_.path() / folder_.relative(destination.path()), reason);
    completeness_.note_missing();
    reader_.skip(entry);
    const int number = error.error() == fs::Exception::NO_ERROR_NUMBER ? 0 : error.error();
    return {true, ExtractionWarning{number, reason}};
  }
}

bool Extraction::put_on_disk(const EntryView& entry, const fs::File& destination, Existing existing) {
  const fs::Path path = folder_.relative(destination.path());
  const struct ::stat& record = destination.record();
  if (destination.is_directory()) return writer_.make_folder(path, record, existing);
  if (destination.is_symbolic_link())
    return writer_.make_link(path, std::string(entry.link_target().value_or("")), existing);
  return writer_.make_file(path, record, existing);
}

}  // namespace harbix
