#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"
#include "tests/support/text.h"

namespace harbix::test {
namespace {

using nlohmann::json;

bool has_type(const json& value, const std::string& type) {
  if (type == "string") return value.is_string();
  if (type == "integer") return value.is_number_integer();
  if (type == "boolean") return value.is_boolean();
  if (type == "array") return value.is_array();
  return false;
}

/// What is wrong with an object by one of the schema's definitions; "" for nothing.
std::string fault_of(const json& object, const json& rules) {
  for (const auto& [key, value] : object.items()) {
    if (!rules["properties"].contains(key)) return "unknown key " + key;
    const json& rule = rules["properties"][key];
    if (rule.contains("const") && value != rule["const"]) return key + " is another";
    if (rule.contains("type") && !has_type(value, rule["type"])) return key + " has another type";
    if (rule.contains("enum") && std::ranges::find(rule["enum"], value) == rule["enum"].end())
      return key + " has another value";
  }
  for (const json& key : rules["required"]) {
    if (!object.contains(key)) return "lacks " + key.get<std::string>();
  }
  return "";
}

class InspectJson : public InspectRun {
 protected:
  /// Holds each line against the definition that its type names.
  void expect_schema(const std::string& output) {
    for (const std::string& line : lines_of(output)) {
      const json object = json::parse(line);
      const std::string type = object.at("type");
      types_.insert(type);
      ASSERT_TRUE(schema_["$defs"].contains(type)) << line;
      EXPECT_EQ(fault_of(object, schema_["$defs"][type]), "") << line;
    }
  }

  json schema_ = json::parse(read_file(HARBIX_INSPECT_SCHEMA));
  std::set<std::string> types_;
};

TEST_F(InspectJson, IsAsTheSchemaSays) {
  TarBuilder tar = music();
  tar.file("/media/Music/caf\xe9", "1").add(TarBuilder::HARD_LINK, "/media/Music/hard", "", 0644, "x\xff");
  const std::string one = archive(tar.text());
  const std::string other = archive(music().file("/media/Music/b", "").text(), "b.tar");
  const std::string cut = archive(music().truncated_text(), "cut.tar");
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"list", one},
                                             {"list", one, "Music"},
                                             {"verify", one, cut, folder_ / "missing"},
                                             {"checksums", one},
                                             {"compare", one, other},
                                             {"extract", one, "/media", "--to", folder_.path()}}) {
    std::vector<std::string> with_json = arguments;
    with_json.emplace_back("--json");
    const Outcome outcome = inspect(with_json);
    EXPECT_NE(outcome.output, "") << arguments.front();
    expect_schema(outcome.output);
  }
  std::set<std::string> described;
  for (const auto& [type, rules] : schema_["$defs"].items()) described.insert(type);
  EXPECT_EQ(types_, described) << "each that is described was met";
}

TEST_F(InspectJson, HasTheBytesOfNamesThatAreNoText) {
  const Outcome outcome =
      inspect({"checksums", "--json", archive(music().file("/media/caf\xe9\033\n", "").text())});
  const json object = json::parse(lines_of(outcome.output).back());
  EXPECT_EQ(object["name"], "media/caf\xef\xbf\xbd\033\n");
  EXPECT_EQ(object["name_base64"], "bWVkaWEvY2Fm6RsK");
  for (const char byte : outcome.output) EXPECT_TRUE(byte == '\n' || (byte >= ' ' && byte < 127));
}

}  // namespace
}  // namespace harbix::test
