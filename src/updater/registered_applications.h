#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fs/path.h"
#include "updater/registered_application.h"

namespace updater {

/// The object in which the installer publishes what is installed, one attribute line an application.
inline constexpr char REGISTERED_APPLICATIONS[] = "/pps/system/installer/registeredapps/.all";

enum class MustExist { NO, YES };

/// Reads the list, in the object's order. Lines of the Android runtime are left out; a line that does not fit
/// costs itself and a warning on standard error.
/// @return false, with a message on standard error, when the object cannot be read.
[[nodiscard]] bool read_registered_applications(std::vector<RegisteredApplication>& applications);

/// The first application whose package has this name; without one, a record of empty texts.
/// @throws updater::Exception "Package 'NAME' not found." when it must exist.
[[nodiscard]] RegisteredApplication find_application(std::span<const RegisteredApplication> applications,
                                                     std::string_view package, MustExist must_exist);

}  // namespace updater
