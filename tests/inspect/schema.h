#pragma once

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "tests/support/text.h"
#include "tests/support/tree.h"

namespace harbix::test {

/// docs/inspect-json.schema.json, which each line of --json is held against.
class JsonSchema {
 public:
  using Json = nlohmann::json;

  explicit JsonSchema(const std::string& file) : schema_(Json::parse(read_file(file))) {}

  /// What is wrong with the lines; "" for nothing.
  std::string faults_of(const std::string& output) {
    std::string faults;
    for (const std::string& line : lines_of(output)) {
      const Json object = Json::parse(line);
      const std::string type = object.at("type");
      met_.insert(type);
      const std::string fault =
          schema_["$defs"].contains(type) ? fault_of(object, schema_["$defs"][type]) : "unknown type";
      if (!fault.empty()) faults += fault + ": " + line + "\n";
    }
    return faults;
  }

  /// The types that are described and that no line had.
  [[nodiscard]] std::set<std::string> unmet() const {
    std::set<std::string> types;
    for (const auto& [type, rules] : schema_["$defs"].items()) {
      if (!met_.contains(type)) types.insert(type);
    }
    return types;
  }

 private:
  static bool has_type(const Json& value, const std::string& type) {
    if (type == "string") return value.is_string();
    if (type == "integer") return value.is_number_integer();
    if (type == "boolean") return value.is_boolean();
    if (type == "array") return value.is_array();
    return false;
  }

  static std::string fault_of(const Json& object, const Json& rules) {
    for (const auto& [key, value] : object.items()) {
      if (!rules["properties"].contains(key)) return "unknown key " + key;
      const Json& rule = rules["properties"][key];
      if (rule.contains("const") && value != rule["const"]) return key + " is another";
      if (rule.contains("type") && !has_type(value, rule["type"])) return key + " has another type";
      if (rule.contains("enum") && std::ranges::find(rule["enum"], value) == rule["enum"].end())
        return key + " has another value";
    }
    for (const Json& key : rules["required"]) {
      if (!object.contains(key)) return "lacks " + key.get<std::string>();
    }
    return "";
  }

  Json schema_;
  std::set<std::string> met_;
};

}  // namespace harbix::test
