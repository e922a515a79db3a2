#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/manifest.h"
#include "fs/file.h"
#include "fs/path.h"

namespace harbix {

/// The status that an application's file record carries beside size and path.
struct RecordedStatus {
  mode_t mode = 0;  ///< with the type bits
  uid_t user = 0;
  gid_t group = 0;
  std::time_t modified = 0;  ///< seconds

  friend bool operator==(const RecordedStatus&, const RecordedStatus&) = default;
};

/// What a manifest says of one entry of its package: the attribute "File". Its value has one of three shapes:
/// - media, settings: SIZE newline PATH
/// - applications: SIZE MODE UID GID MTIME PATH, mode in octal, '\' and newline in the path as '\\' and '\n'
/// - navigator: PATH
struct FileRecord {
  std::uint64_t size = 0;  ///< bytes
  fs::Path path;
  std::optional<RecordedStatus> status;

  friend bool operator==(const FileRecord&, const FileRecord&) = default;
};

/// The record of an item whose path stands in the second line: media and settings.
[[nodiscard]] meta::Attribute plain_record(const fs::File& file);

/// The record of an item with its status, in one line: applications.
[[nodiscard]] meta::Attribute status_record(const fs::File& file);

/// The record of an item of which only the path counts: the navigator's PPS objects.
[[nodiscard]] meta::Attribute path_record(const fs::Path& path);

/// Whether a parsed attribute is, or ends with, the beginning of a file record.
[[nodiscard]] bool begins_file_record(const meta::Attribute& attribute);

/// Puts the file records of a manifest together again from its attributes, in order; attributes of other
/// kinds are passed over.
///
/// The parser does not know of values with two lines: it leaves the path at the beginning of the next key,
/// and a path that ends in ':' swallows the line of the next record. Number and order of the records are
/// exact all the same, for every path that neither spells a record itself nor begins with a ':'. A path may
/// come out without the white space behind a
/// ':' in it, and the last path of a manifest is lost unless it has a ':'; a caller that needs exact paths
/// writes the one-line shape.
class RecordCollector {
 public:
  void add(const meta::Attribute& attribute);

  /// The records that are whole by now, and were not taken before.
  [[nodiscard]] std::vector<FileRecord> take();
  /// Ends the manifest; as take() with the last record.
  [[nodiscard]] std::vector<FileRecord> finish();

 private:
  void begin_record(std::string_view value);
  void end_record();
  void add_to_path(std::string_view text);

  std::vector<FileRecord> records_;
  std::string path_;          ///< of the last record, as far as it is known
  bool awaits_path_ = false;  ///< the last record's path is still to come
};

/// All file records of a parsed manifest.
[[nodiscard]] std::vector<FileRecord> read_file_records(const meta::Manifest& manifest);

}  // namespace harbix
