#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/text.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// What 'plan --json' has said.
struct Foreseen {
  std::map<std::string, std::string> fates;      ///< of packages, by their names
  std::set<std::string> left_out;                ///< items: their paths on the device, or else their names
  std::set<std::string> names;                   ///< items: their names in the archive
  std::map<std::string, std::uint64_t> removed;  ///< files, by the folder
  std::vector<std::string> troubles;
  int status = -1;
};

/// What "KEY" says, with the bytes that are no text.
inline std::string name_of(const nlohmann::json& object, const std::string& key) {
  if (!object.contains(key + "_base64")) return object[key];
  const std::string base64 = object[key + "_base64"];
  constexpr std::string_view DIGITS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0;
  unsigned count = 0;
  for (const char digit : base64.substr(0, base64.find('='))) {
    bits = bits << 6U | static_cast<unsigned>(DIGITS.find(digit));
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 0xffU);
  }
  return bytes;
}

inline Foreseen foreseen(const std::string& output) {
  Foreseen all;
  for (const std::string& line : lines_of(output)) {
    const nlohmann::json object = nlohmann::json::parse(line);
    const std::string type = object["type"];
    if (type == "plan_package") all.fates[name_of(object, "name")] = object["fate"];
    if (type == "plan_item") {
      const std::string path = name_of(object, "path");
      all.left_out.insert(path.empty() ? name_of(object, "name") : path);
    }
    if (type == "plan_removal") all.removed[name_of(object, "path")] = object["files"];
    if (type == "plan_trouble") all.troubles.push_back(name_of(object, "reason"));
    if (type == "plan_summary") all.status = object["status"];
  }
  return all;
}

/// What a restore with -v has said of one keyword.
struct Happened {
  std::map<std::string, std::string> fates;  ///< of applications' packages
  std::set<std::string> left_out;
  std::set<std::string> without_entry;  ///< records
};

inline std::string behind(const std::string& line, const std::string& beginning) {
  return line.starts_with(beginning) ? line.substr(beginning.size()) : "";
}

/// "PATH: REASON" without the reason.
inline std::string path_before_reason(const std::string& text) { return text.substr(0, text.rfind(": ")); }

inline Happened happened_to_applications(const std::vector<std::string>& lines) {
  Happened all;
  std::string package;
  for (const std::string& line : lines) {
    if (const std::string name = behind(line, "Bin Package "); !name.empty()) {
      package = "/app/" + name + "/bin";
      all.fates[package] = "refused";
    } else if (const std::string data = behind(line, "Data Package "); !data.empty()) {
      package = "/app/" + data + "/appdata";
      all.fates[package] = "refused";
    } else if (line.starts_with("Registered '") ||
               (line.starts_with("Archive errno at this point") && package.ends_with("/appdata"))) {
      all.fates[package] = "restored";
    } else if (line.ends_with("the old data stays")) {
      all.fates[package] = "refused";
    } else if (const std::string skipped = behind(line, "Skip: "); !skipped.empty()) {
      all.left_out.insert(skipped);
    } else if (const std::string missed = behind(line, "Warning: No entry in the archive for ");
               !missed.empty()) {
      all.without_entry.insert(missed);
    } else if (line.starts_with("Warning: /")) {
      all.left_out.insert(path_before_reason(behind(line, "Warning: ")));
    }
  }
  return all;
}

/// The lines of a run of several keywords that belong to one.
inline std::vector<std::string> lines_of_keyword(const std::string& log, const std::string& keyword) {
  std::vector<std::string> lines;
  std::string current = "app";
  for (const std::string& line : lines_of(log)) {
    if (line == "Media") current = "media";
    if (line == "Settings") current = "settings";
    if (current == keyword) lines.push_back(line);
  }
  return lines;
}

}  // namespace harbix::test
