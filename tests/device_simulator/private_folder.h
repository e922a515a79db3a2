#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace device_test {

/// A new empty folder of the test's own, removed with everything in it at the end.
class PrivateFolder {
 public:
  PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  ~PrivateFolder();

  /// The host's path of `name` in the folder; the folder itself for an empty name.
  [[nodiscard]] std::string operator/(std::string_view name) const;

 private:
  std::filesystem::path path_;
};

/// All bytes of a file; a test failure and an empty text when it cannot be read.
[[nodiscard]] std::string content_of(const std::string& path);

void write_file(const std::string& path, std::string_view content);

/// One line for each item below `folder`, in the order of the names' bytes: name, type and mode, owner, size,
/// time of change, and a link's target or a checksum of a file's content.
[[nodiscard]] std::string listing(const std::string& folder);

}  // namespace device_test
