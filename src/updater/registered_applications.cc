#include "updater/registered_applications.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include "base/domains.h"
#include "base/log.h"
#include "updater/exception.h"

namespace updater {
namespace {

constexpr std::string_view SOURCE_KEY = "source";

/// Reads up to a separator that must be there.
bool take_field(std::istringstream& stream, std::string& field, char separator) {
  return std::getline(stream, field, separator) && !stream.eof();
}

bool parse(const std::string& line, RegisteredApplication& application) {
  std::istringstream stream(line);
  std::string encoding;
  // The encoding between the two colons must be empty.
  if (!take_field(stream, application.id, ':') || !take_field(stream, encoding, ':') || !encoding.empty() ||
      !take_field(stream, application.dir, ',') || !take_field(stream, application.version, ',')) {
    return false;
  }
  std::string remainder;
  std::getline(stream, remainder);
  application.source = source_of(remainder);
  return true;
}

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

RegisteredApplication parse_registered_application(const std::string& line) {
  if (line.empty()) throw Exception("Invalid PPS attribute entry");
  RegisteredApplication application;
  if (!parse(line, application)) throw Exception("Malformed PPS attribute line: '" + line + "'");
  return application;
}

bool is_from_storefront(const RegisteredApplication& application) {
  return application.source == harbix::domains::STOREFRONT_SOURCE;
}

std::string source_of(const std::string& remainder) {
  std::istringstream stream(remainder);
  std::string key;
  std::string encoding;
  std::string value;
  while (std::getline(stream, key, ':')) {
    std::getline(stream, encoding, ':');
    value.clear();
    std::getline(stream, value, ',');
    if (value.empty()) return harbix::domains::BUILT_IN_MARKER;
    if (key == SOURCE_KEY) return value;
  }
  return "";
}

bool read_registered_applications(std::vector<RegisteredApplication>& applications) {
  std::ifstream object(REGISTERED_APPLICATIONS);
  if (const int error = errno; !object && (error == EMFILE || error == ENFILE || error == ENOMEM))
    throw Exception("Failed to open " + std::string(REGISTERED_APPLICATIONS) + ": " + std::strerror(error));
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
