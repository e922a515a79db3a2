#include <nlohmann/json.hpp>
#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"
#include "tests/inspect/schema.h"
#include "tests/support/text.h"

namespace harbix::test {
namespace {

using nlohmann::json;

class InspectJson : public InspectRun {
 protected:
  JsonSchema schema_{HARBIX_INSPECT_SCHEMA};
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
    EXPECT_EQ(schema_.faults_of(outcome.output), "");
  }
  // Plans are made on devices alone.
  for (const std::string& type : schema_.unmet()) EXPECT_THAT(type, ::testing::StartsWith("plan_"));
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
