#include "updater/registered_application.h"

#include <sstream>

#include "base/domains.h"
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

}  // namespace

RegisteredApplication parse_registered_application(const std::string& line) {
  if (line.empty()) throw Exception("Invalid PPS attribute entry");
  RegisteredApplication application;
  if (!parse(line, application)) throw Exception("Malformed PPS attribute line: '" + line + "'");
  return application;
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

}  // namespace updater
