#pragma once

#include <string>
#include <string_view>

namespace harbix::test {

/// A private folder below $TMPDIR (or /tmp) that every user may enter; removed with its content at the end of
/// the scope.
class TemporaryFolder {
 public:
  /// @throws std::system_error when the folder cannot be made.
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  TemporaryFolder(TemporaryFolder&&) = delete;
  TemporaryFolder& operator=(TemporaryFolder&&) = delete;

  /// Absolute and canonical, without a '/' at its end.
  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  /// "FOLDER/NAME"; the folder itself for an empty name.
  [[nodiscard]] std::string operator/(std::string_view name) const;

 private:
  std::string path_;
};

/// Makes a folder the working directory until the end of the scope.
class InsideFolder {
 public:
  /// @throws std::system_error
  [[nodiscard("name the guard, or it ends at the semicolon")]] explicit InsideFolder(
      const std::string& folder);
  ~InsideFolder();
  InsideFolder(const InsideFolder&) = delete;
  InsideFolder& operator=(const InsideFolder&) = delete;
  InsideFolder(InsideFolder&&) = delete;
  InsideFolder& operator=(InsideFolder&&) = delete;

 private:
  int saved_;
};

}  // namespace harbix::test
