#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "archive/manifest.h"
#include "archive/package_name.h"
#include "archive/reader.h"
#include "archive/record_names.h"
#include "archive/writer.h"

namespace harbix {

/// Writes the metadata entry of the package whose entries lie below `directory`: before them, so that a
/// restore meets it first.
/// @throws std::runtime_error; ArchiveError when the archive cannot be written any further.
void store_manifest(ArchiveWriter& writer, const fs::Path& directory, std::string_view entry_name,
                    const meta::Manifest& manifest);

/// The same for a manifest that is not in memory as a whole: `lines` hands over the lines of its attributes,
/// `bytes` in all.
void store_manifest(ArchiveWriter& writer, const fs::Path& directory, std::string_view entry_name,
                    std::size_t bytes, const TextSource& lines);

/// What the search for a metadata entry does with the entries before it.
enum class OtherEntries { REFUSE, SKIP };

/// A metadata entry that was found.
struct Package {
  std::string entry_name;  ///< of the metadata entry, in full
  meta::Manifest manifest;
};

/// Reads on to the next metadata entry of the reader's section, and its manifest; nothing when there is none
/// left. `names`, where a caller has use for them, takes the names that a manifest of settings lists.
/// @throws std::runtime_error "Archive not ARCHIVE_OK TEXT", "Failed to read archive header TEXT", "Error
/// pathname" for an entry without a directory, and "Not meta file: NAME" for another entry where those are
/// refused; meta::malformed_manifest for a text of more than 256 MiB or 2,000,000 attributes, with a null
/// byte, or compressed beyond all measure.
[[nodiscard]] std::optional<Package> find_manifest(ArchiveReader& reader, std::string_view entry_name,
                                                   OtherEntries others, RecordNames* names = nullptr);

/// Reads the names that the current entry lists, a metadata entry of media. Damage is left for the next
/// header to show, and a text of more than 256 MiB lists nothing.
[[nodiscard]] RecordNames read_record_names(ArchiveReader& reader);

}  // namespace harbix
