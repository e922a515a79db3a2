#pragma once

#include <string>
#include <string_view>

namespace updater {

/// What the installer publishes of one application.
struct RegisteredApplication {
  std::string id;   ///< the attribute's name; the application's directory
  std::string dir;  ///< the package's name
  std::string version;
  std::string source;  ///< who installed it; "websl" for built-in applications

  friend bool operator==(const RegisteredApplication&, const RegisteredApplication&) = default;
};

/// Parses one attribute line, without its newline.
/// Shape:  "id::dir,version,rest", where rest is a list of "key:encoding:value" items separated by commas.
/// @throws updater::Exception "Invalid PPS attribute entry" for an empty line, "Malformed PPS attribute line:
/// 'LINE'" for any other line of another shape.
[[nodiscard]] RegisteredApplication parse_registered_application(const std::string& line);

/// The source in the list at the end of a line: the value of its item "source", or "" without one. An item
/// with an empty value that stands before it marks a built-in application: "websl".
[[nodiscard]] std::string source_of(const std::string& remainder);

}  // namespace updater
