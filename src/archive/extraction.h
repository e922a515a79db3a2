#pragma once

#include <memory>
#include <optional>
#include <string>

#include "archive/entry_view.h"
#include "archive/reader.h"

struct archive;

namespace harbix {

/// Whether what an archive says about an entry is put on disk as well.
enum class Keep { NO, YES };

/// Why an entry is not on disk, or not as it should be.
struct ExtractionWarning {
  int error_number;  ///< the library's
  std::string text;
};

/// Puts entries on disk during one piece of restore work: one package, or one run of entries under one
/// identity, umask and working directory. Modes of directories are settled at its end, so it must end under
/// that identity and before anybody else sets owners and modes.
class Extraction {
 public:
  /// `owner` and `permissions` tell whether those of the entries are restored; otherwise the effective ids
  /// own what is created, and the umask in force now limits its mode. `place` is the working directory, for
  /// messages that name destinations in full; empty where relative ones are named as they are.
  Extraction(ArchiveReader& reader, Keep owner, Keep permissions, fs::Path place = {});
  ~Extraction();
  Extraction(const Extraction&) = delete;
  Extraction& operator=(const Extraction&) = delete;
  Extraction(Extraction&&) = delete;
  Extraction& operator=(Extraction&&) = delete;

  /// Creates `destination`, with its status, from an entry and the data that follows in the archive. Never
  /// goes through a symbolic link or a "..": that, as everything that fails for this entry alone, is a
  /// warning on standard error.
  /// @return that warning.
  /// @throws std::runtime_error when the archive is damaged.
  std::optional<ExtractionWarning> extract(const EntryView& entry, const fs::File& destination);

 private:
  struct Closer {
    void operator()(::archive* handle) const noexcept;
  };

  ArchiveReader& reader_;
  std::unique_ptr<::archive, Closer> disk_;
  fs::Path place_;
};

}  // namespace harbix
