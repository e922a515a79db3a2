#include "archive/metadata_entry.h"

#include <array>
#include <ctime>
#include <istream>
#include <stdexcept>
#include <string_view>

#include <archive.h>

#include "archive/manifest_text.h"
#include "base/log.h"
#include "base/report.h"
#include "base/run_progress.h"

namespace harbix {
namespace {

constexpr mode_t METADATA_MODE = S_IFREG | S_IRWXU;
constexpr std::size_t CHUNK_SIZE = 4096;
constexpr std::string_view LAST_LINE = "\n";

meta::Manifest read_manifest(ArchiveReader& reader, RecordNames* names) {
  ManifestText text(reader, [names](std::string_view piece) {
    if (names != nullptr) names->add(piece);
  });
  std::istream stream(&text);
  meta::Manifest manifest = meta::parse(stream);
  if (names != nullptr) names->finish();
  return manifest;
}

/// The last component of an entry's full name.
std::string_view last_component(std::string_view name) {
  const std::size_t separator = name.rfind('/');
  if (separator == std::string_view::npos) throw std::runtime_error("Error pathname");
  return name.substr(separator + 1);
}

void require_no_error(const ArchiveReader& reader) {
  if (reader.error_number() != 0) throw std::runtime_error("Archive not ARCHIVE_OK " + reader.error_text());
}

}  // namespace

void store_manifest(ArchiveWriter& writer, const fs::Path& directory, std::string_view entry_name,
                    const meta::Manifest& manifest) {
  const std::string text = meta::to_text(manifest);
  const std::string_view lines = std::string_view(text).substr(0, text.size() - LAST_LINE.size());
  store_manifest(writer, directory, entry_name, lines.size(), [lines](const TextSink& put) { put(lines); });
}

void store_manifest(ArchiveWriter& writer, const fs::Path& directory, std::string_view entry_name,
                    std::size_t bytes, const TextSource& lines) {
  diagnostics::line(3, "Storing manifest to '%s'", directory.c_str());
  run_progress::begin_package(directory.text());
  struct ::stat record {};
  record.st_mode = METADATA_MODE;
  record.st_size = static_cast<off_t>(bytes + LAST_LINE.size());
  const std::time_t now = std::time(nullptr);
  record.st_atim.tv_sec = record.st_mtim.tv_sec = record.st_ctim.tv_sec = now;
  writer.write_text(directory / entry_name, record, [&lines](const TextSink& put) {
    lines(put);
    put(LAST_LINE);
  });
}

std::optional<Package> find_manifest(ArchiveReader& reader, std::string_view entry_name, OtherEntries others,
                                     RecordNames* names) {
  for (;;) {
    require_no_error(reader);
    const int status = reader.advance();
    if (status == ARCHIVE_EOF) {
      report::progress("EOF reached");
      return std::nullopt;
    }
    if (status != ARCHIVE_OK)
      throw std::runtime_error("Failed to read archive header " + reader.error_text());

    const std::optional<fs::Path> name = reader.entry().name();
    if (!name) throw std::runtime_error("Error pathname");
    if (last_component(name->text()) == entry_name && reader.entry().begins_package()) {
      Package package{.entry_name = name->text(), .manifest = read_manifest(reader, names)};
      // Half a manifest describes another package.
      require_no_error(reader);
      return package;
    }
    if (others == OtherEntries::REFUSE) throw std::runtime_error("Not meta file: " + name->text());
    reader.skip(reader.entry());
  }
}

RecordNames read_record_names(ArchiveReader& reader) {
  RecordNames names;
  std::array<char, CHUNK_SIZE> chunk{};
  std::size_t total = 0;
  for (;;) {
    const std::int64_t count = reader.read_data(chunk.data(), chunk.size());
    if (count <= 0) break;
    total += static_cast<std::size_t>(count);
    // No backup writes as much.
    if (total > meta::LARGEST_TEXT || names.count() > meta::MOST_ATTRIBUTES) return {};
    names.add({chunk.data(), static_cast<std::size_t>(count)});
  }
  names.finish();
  return names;
}

}  // namespace harbix
