#include "updater/registered_applications.h"

#include <algorithm>
#include <fstream>
#include <iostream>

#include "base/log.h"
#include "updater/exception.h"

namespace updater {
namespace {

constexpr std::string_view ANDROID_MARKER = "sys.android";

void take_line(const std::string& line, std::vector<RegisteredApplication>& applications) {
  if (line.find(ANDROID_MARKER) != std::string::npos || line.starts_with('@')) return;
  try {
    applications.push_back(parse_registered_application(line));
  } catch (const Exception& error) {
    std::cerr << "Warning: " << error.what() << '\n';
  }
}

}  // namespace

bool read_registered_applications(std::vector<RegisteredApplication>& applications) {
  std::ifstream object(REGISTERED_APPLICATIONS);
  std::string line;
  if (object) std::getline(object, line);  // names the object
  while (object && std::getline(object, line)) take_line(line, applications);
  // An object that breaks off is not a shorter list: applications would be taken for uninstalled ones.
  if (object.eof() && !object.bad()) return true;
  diagnostics::line(0, "ERROR: Failed to open %s", REGISTERED_APPLICATIONS);
  std::cerr << "Failed to open " << REGISTERED_APPLICATIONS << '\n';
  return false;
}

RegisteredApplication find_application(std::span<const RegisteredApplication> applications,
                                       std::string_view package, MustExist must_exist) {
  const auto found = std::ranges::find(applications, package, &RegisteredApplication::dir);
  if (found != applications.end()) return *found;
  if (must_exist == MustExist::YES) throw Exception("Package '" + std::string(package) + "' not found.");
  return {};
}

}  // namespace updater
