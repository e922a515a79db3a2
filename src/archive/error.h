#pragma once

#include <exception>
#include <stdexcept>
#include <string>

struct archive;

namespace harbix {

/// The archive itself cannot be written or read any further. Errors of one path are plain std::runtime_error
/// or fs::Exception: work that goes on with the next path after one of those must let this one pass.
class ArchiveError : public std::runtime_error {
 public:
  /// what() is "Archive error: " followed by `reason`.
  explicit ArchiveError(const std::string& reason) : std::runtime_error("Archive error: " + reason) {}

 protected:
  struct InFull {};
  ArchiveError(const std::string& text, InFull /*tag*/) : std::runtime_error(text) {}
};

/// The run is out of descriptors or memory: what comes next would fail as well, and must not be left out item
/// by item. Passes wherever an ArchiveError does.
class ResourceError : public ArchiveError {
 public:
  explicit ResourceError(const std::string& text, int error = 0)
      : ArchiveError(text, InFull()), error_(error) {}

  /// The errno of the call that failed; 0 where it is not known any more.
  [[nodiscard]] int error() const noexcept { return error_; }

 private:
  int error_;
};

/// Whether an error number is not about one path, but about all that the process does.
[[nodiscard]] bool is_resource_error(int error) noexcept;

/// Whether an error is one of the whole run, and not of the item at hand: no memory, or a ResourceError, or
/// an fs::Exception with such a number.
[[nodiscard]] bool ends_run(const std::exception& error) noexcept;

/// Whether an error is lack of memory, of the process or of the system for one call: that ends a restore as
/// well.
[[nodiscard]] bool lacks_memory(const std::exception& error) noexcept;

/// The data of one entry cannot be read: what() is the library's text.
class DataError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The library's text for the last error of a handle; empty when it has none.
[[nodiscard]] std::string error_text(::archive* handle);

}  // namespace harbix
