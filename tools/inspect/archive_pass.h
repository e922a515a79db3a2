#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "archive/reader.h"
#include "inspect/package.h"

namespace harbix::inspect {

/// An entry of the archive.
struct Item {
  EntryView entry;
  fs::Path name;          ///< as EntryView::name says
  std::int64_t position;  ///< of its header: bytes from the beginning of the archive, uncompressed
};

/// Gets what a pass meets, in the order of the archive. The reader is at the entry's contents, which may be
/// read or left.
class Visitor {
 public:
  Visitor() = default;
  virtual ~Visitor() = default;
  Visitor(const Visitor&) = delete;
  Visitor& operator=(const Visitor&) = delete;
  Visitor(Visitor&&) = delete;
  Visitor& operator=(Visitor&&) = delete;

  /// A package begins: `item` is its metadata entry.
  virtual void begin_package(const PackageName& package, const Item& item, ArchiveReader& reader) = 0;
  virtual void meet(const Item& item, ArchiveReader& reader) = 0;
  /// An entry without a name.
  virtual void meet_nameless(std::int64_t position) { static_cast<void>(position); }
};

/// Why an archive could not be read to its end.
struct Damage {
  std::string reason;
  std::int64_t position = 0;  ///< of the last header that was looked for
};

/// Opens an archive by its name; "-" is standard input.
/// @throws ArchiveError, also for a terminal.
[[nodiscard]] std::string input_name(const std::string& name);

/// Reads an archive once, from its beginning to its end, an entry at a time.
/// @return what is wrong with the stream; nothing for a whole one.
/// @throws what the visitor does; a DataError of its reading is damage.
[[nodiscard]] std::optional<Damage> read_archive(ArchiveReader& reader, Visitor& visitor);

/// Passes over the contents of the current entry, which a restore would put at `destination`, or leave out.
/// @throws std::runtime_error with the restore's own words when the archive is damaged there.
void pass_over(ArchiveReader& reader, const EntryView& entry, const fs::Path& destination, bool is_left_out);

/// Calls `take` for all contents of the current entry, holes as zeros.
/// @throws DataError when the archive is damaged there.
void read_contents(ArchiveReader& reader, std::int64_t size,
                   const std::function<void(std::string_view)>& take);

}  // namespace harbix::inspect
