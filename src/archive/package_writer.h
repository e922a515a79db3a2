#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "archive/completeness.h"
#include "archive/file_record.h"
#include "archive/item_list.h"
#include "archive/manifest.h"
#include "archive/read_ahead.h"
#include "archive/writer.h"
#include "base/report.h"
#include "base/size_result.h"
#include "fs/exception.h"
#include "fs/folder.h"

namespace harbix {

/// What the packages of a keyword have of their own.
struct PackageStyle {
  /// Describes an item in the manifest.
  meta::Attribute (*record)(const fs::File& item);
  /// Says that an item is put into the archive under `name`.
  void (*announce)(report::ProgressLines& progress, const fs::Path& path, const fs::Path& name);
  /// Writes the entry of an item, which comes as it was listed: another object may stand in its place by now.
  /// @throws std::runtime_error for an error of the item alone.
  void (*write)(ArchiveWriter& writer, fs::Folder& folder, const fs::File& item, const fs::Path& name);
  /// Stands before an item's error on standard error.
  std::string_view error_prefix = "Error: ";
  /// Whether an item's contents are read from a disk, which can be asked for them ahead.
  bool (*is_on_disk)(const fs::Path& path) = [](const fs::Path& /*path*/) { return true; };
};

/// What the records of a manifest may come to, so that every restore reads it. What is over in a manifest is
/// left for the other attributes.
struct PackageBounds {
  std::size_t items = meta::MOST_ATTRIBUTES - 1000;
  std::size_t record_text = meta::LARGEST_TEXT - (std::size_t{8} << 20);  ///< bytes of lines
};

/// Gathers what a package holds and stores it: the manifest first, and then an entry for each item. The
/// items' paths are absolute, or relative to the folder.
class PackageWriter {
 public:
  /// All items lie below `folder`, and are opened there.
  PackageWriter(ArchiveWriter& writer, fs::Folder& folder, const PackageStyle& style,
                const PackageBounds& bounds = {})
      : writer_(writer),
        folder_(folder),
        style_(style),
        bounds_(bounds),
        ahead_(folder, items_, style.is_on_disk) {}
  PackageWriter(const PackageWriter&) = delete;
  PackageWriter& operator=(const PackageWriter&) = delete;
  PackageWriter(PackageWriter&&) = delete;
  PackageWriter& operator=(PackageWriter&&) = delete;
  ~PackageWriter() = default;

  /// Takes an item into the package. What no archive can hold (fifos, sockets, devices, and the archive that
  /// is being written) is left out with its record, and reported on standard error and in the log at level 1;
  /// so is what the manifest has no room for.
  /// @return whether it was taken.
  bool add(const fs::File& item);

  /// Gives a record without a status to an item that does not exist. Its turn costs a message unless it
  /// exists by then.
  void add_missing(const fs::Path& path);

  [[nodiscard]] const ItemList& items() const noexcept { return items_; }
  /// Sum of the recorded sizes, in bytes.
  [[nodiscard]] std::int64_t bytes() const noexcept { return bytes_; }

  /// What the package would take in an archive: a header for each item and for the manifest, and their
  /// contents, each filled up to whole records of 512 bytes; and the number of items.
  [[nodiscard]] SizeResult estimate() const;

  /// Writes the package `name`: a manifest of `attributes` and the records, then the items, each under `name`
  /// joined with its path relative to `base`. An item that would take the name of a manifest is left out with
  /// its record, and reported. An item that cannot be archived (it vanished, another object
  /// took its place, it cannot be opened) is reported, and the rest is archived. Ends the use of this object.
  /// @throws ArchiveError when the archive cannot be written any further.
  void store(const fs::Path& name, const fs::Path& base, const meta::Manifest& attributes = {});

 private:
  void leave_out_other_manifests(const fs::Path& name, const fs::Path& base);
  void store_records(const fs::Path& name, const meta::Manifest& attributes);
  void store_item(const fs::File& item, const fs::Path& name, report::ProgressLines& progress);

  ArchiveWriter& writer_;
  fs::Folder& folder_;
  PackageStyle style_;
  PackageBounds bounds_;
  ItemList items_;
  ReadAhead ahead_;
  std::size_t record_text_ = 0;  ///< bytes of their lines in the manifest
  std::int64_t bytes_ = 0;
  std::int64_t entry_bytes_ = 0;  ///< headers and filled-up contents
};

/// Reports by name and reason what could not be listed, and notes it: what is missing behind it is not known.
/// @throws ResourceError where the reason is one of the whole run: nothing would be listed from here on.
void report_unlisted(const fs::Exception& failure, Completeness& completeness);

/// For PackageStyle: archives the object itself, if it still is the one that was listed.
void write_object(ArchiveWriter& writer, fs::Folder& folder, const fs::File& item, const fs::Path& name);

/// For PackageStyle: "Archive: PATH to NAME" with -v and in the log at level 3.
void announce_with_name(report::ProgressLines& progress, const fs::Path& path, const fs::Path& name);

}  // namespace harbix
