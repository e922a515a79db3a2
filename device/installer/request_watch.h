#pragma once

#include <array>
#include <optional>
#include <string>

#include "base/file_descriptor.h"

namespace installer {

/// Waits for what clients do with the objects of a PPS directory, without asking again and again.
class RequestWatch {
 public:
  /// Hears of every change from now on. @throws std::system_error.
  explicit RequestWatch(const std::string& directory);

  /// Waits for the next object that was made or changed.
  /// @return its name; nothing when the directory was removed. @throws std::system_error.
  [[nodiscard]] std::optional<std::string> next();

 private:
  /// The next line without its newline; nothing at the end.
  std::optional<std::string> next_line();

  std::string path_;
  base::FileDescriptor view_;
  /// What was read after the last line.
  std::string rest_;
};

}  // namespace installer
