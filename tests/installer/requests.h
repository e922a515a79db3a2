#pragma once

#include <string>

namespace harbix::test {

/// Prints the object in which the installer lists what is registered.
inline constexpr char LIST[] = "cat /pps/system/installer/registeredapps/.all";

// Requests about the application /apps/D, and what they are answered.
inline const std::string REGISTER_D =
    "action::register\npackage_path::/apps/D\nextras::source::shopvale\ngid::\n";
inline const std::string QUERY_D = "action::query\npackage_path::/apps/D\n";
inline const std::string ANSWER_D =
    "actual_gid::10000\nactual_dname::D\nactual_extras::source::shopvale\nresult::0\n";

}  // namespace harbix::test
