#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fs/path.h"

namespace updater {

/// What the installer publishes of one application.
struct RegisteredApplication {
  std::string id;   ///< the attribute's name; the application's directory
  std::string dir;  ///< the package's name
  std::string version;
  std::string source;  ///< who installed it; "websl" for built-in applications

  friend bool operator==(const RegisteredApplication&, const RegisteredApplication&) = default;
};

/// Whether the user has bought it: then a backup holds its binaries, and a restore replaces it.
[[nodiscard]] bool is_from_storefront(const RegisteredApplication& application);

/// Parses one attribute line, without its newline.
/// Shape:  "id::dir,version,rest", where rest is a list of "key:encoding:value" items separated by commas.
/// @throws updater::Exception "Invalid PPS attribute entry" for an empty line, "Malformed PPS attribute line:
/// 'LINE'" for any other line of another shape.
[[nodiscard]] RegisteredApplication parse_registered_application(const std::string& line);

/// The source in the list at the end of a line: the value of its item "source", or "" without one. An item
/// with an empty value that stands before it marks a built-in application: "websl".
[[nodiscard]] std::string source_of(const std::string& remainder);

/// The object in which the installer publishes what is installed, one attribute line an application.
inline constexpr char REGISTERED_APPLICATIONS[] = "/pps/system/installer/registeredapps/.all";

enum class MustExist { NO, YES };

/// Reads the list, in the object's order. Lines of the Android runtime are left out; a line that does not fit
/// is skipped with a warning on standard error.
/// @return false, with a message on standard error, when the object cannot be read.
/// @throws Exception when that is for lack of descriptors or memory.
[[nodiscard]] bool read_registered_applications(std::vector<RegisteredApplication>& applications);

/// The first application whose package has this name; without one, a record of empty texts.
/// @throws updater::Exception "Package 'NAME' not found." when it must exist.
[[nodiscard]] RegisteredApplication find_application(std::span<const RegisteredApplication> applications,
                                                     std::string_view package, MustExist must_exist);

}  // namespace updater
