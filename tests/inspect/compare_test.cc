#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"

namespace harbix::test {
namespace {

class InspectCompare : public InspectRun {};

TarBuilder package(const std::string& folder) {
  TarBuilder tar;
  tar.file("/media/" + folder + "/.backup.metadata", "\n");
  return tar;
}

std::string before() {
  TarBuilder tar = package("A");
  tar.file("/media/A/same", "1")
      .file("/media/A/text", "1")
      .file("/media/A/mode", "1", 0640)
      .link("/media/A/link", "x");
  tar.file("/media/A/gone", "1").folder("/media/A/kind").file("/media/A/owner", "1");
  tar.owner(1, 5).file("/media/A/group", "1");
  return tar.text();
}

std::string after() {
  TarBuilder tar = package("A");
  tar.file("/media/A/text", "2")
      .file("/media/A/same", "1")
      .file("/media/A/mode", "1", 0600)
      .link("/media/A/link", "y");
  tar.file("/media/A/kind", "").owner(5).file("/media/A/owner", "1").owner(0).file("/media/A/new\033", "1");
  tar.owner(1, 6).file("/media/A/group", "1");
  return tar.text();
}

constexpr char CHANGES[] =
    "/media/A:\n"
    "* /media/A/text  (contents)\n"
    "* /media/A/mode  (mode 0640 -> 0600)\n"
    "* /media/A/link  (link)\n"
    "* /media/A/kind  (kind)\n"
    "* /media/A/owner  (owner 0:0 -> 5:0)\n"
    "+ /media/A/new\\033\n"
    "* /media/A/group  (owner 1:5 -> 1:6)\n"
    "- /media/A/gone\n";

TEST_F(InspectCompare, SaysNothingOfEqualArchives) {
  const std::string name = archive(before());
  const Outcome outcome = inspect({"compare", name, name});
  EXPECT_EQ(outcome.output + outcome.errors, "");
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(InspectCompare, SaysWhatCameWentAndChanged) {
  const std::string name = archive(before());
  const Outcome outcome = inspect({"compare", name, archive(after(), "b.tar")});
  EXPECT_EQ(outcome.output, CHANGES);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(inspect({"compare", name, "-"}, after()).output, CHANGES) << "the new one from a pipe";
}

TEST_F(InspectCompare, TakesTheOldOneFromAPipe) {
  const std::string name = archive(after());
  const Outcome outcome = inspect({"compare", "-", name}, before());
  EXPECT_EQ(outcome.status, 1);
  std::string lines = outcome.output;
  for (const char* line :
       {"* /media/A/text  (contents)\n", "* /media/A/mode  (mode 0640 -> 0600)\n",
        "* /media/A/owner  (owner 0:0 -> 5:0)\n", "+ /media/A/new\\033\n", "- /media/A/gone\n"})
    EXPECT_NE(lines.find(line), std::string::npos) << line << lines;
  EXPECT_EQ(inspect({"compare", "-", "/dev/null"}, before()).errors,
            "harbix-inspect: One of the two archives must be a plain file\n");
}

TEST_F(InspectCompare, CountsNeitherManifestsNorTimes) {
  TarBuilder tar;
  tar.time(99).file("/media/A/.backup.metadata", "File: 1\nA/a\n\n").file("/media/A/a", "1");
  const Outcome outcome =
      inspect({"compare", archive(package("A").file("/media/A/a", "1").text(), "a"), archive(tar.text())});
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(InspectCompare, PairsItemsOfOneNameInTheirOrder) {
  TarBuilder twice = package("A");
  twice.file("/media/A/a", "1").file("/media/A/a", "2");
  const std::string name = archive(twice.text());
  EXPECT_EQ(inspect({"compare", name, name}).output, "");
  const std::string once = archive(package("A").file("/media/A/a", "1").text(), "b.tar");
  EXPECT_EQ(inspect({"compare", name, once}).output, "/media/A:\n- /media/A/a\n");
  EXPECT_EQ(inspect({"compare", once, name}).output, "/media/A:\n+ /media/A/a\n");
}

TEST_F(InspectCompare, SaysTheSameInJson) {
  const Outcome outcome = inspect({"compare", "--json", archive(before()), archive(after(), "b.tar")});
  EXPECT_EQ(outcome.status, 1);
  for (
      const char* line :
      {R"("change":"changed","package":"/media/A","name":"/media/A/mode","kind":"file","parts":["mode 0640 -> 0600"]})",
       R"("change":"came","package":"/media/A","name":"/media/A/new\u001b","kind":"file"})",
       R"("change":"went","package":"/media/A","name":"/media/A/gone","kind":"file"})"})
    EXPECT_THAT(outcome.output, ::testing::HasSubstr(line));
}

// A tar program that packs unpacked files again stores each folder before what is in it.
TEST_F(InspectCompare, NamesThePackageThatAnItemBelongsToWhereverItStands) {
  TarBuilder tar;
  tar.folder("media").folder("media/A").file("media/A/.backup.metadata", "\n").file("media/A/x", "1");
  tar.folder("media/B").file("media/B/.backup.metadata", "\n");
  const std::string name = archive(tar.text());
  const Outcome outcome = inspect({"compare", archive(package("A").text(), "a"), name});
  EXPECT_EQ(outcome.output,
            "Outside of packages:\n+ /media\n"
            "/media/A:\n+ /media/A\n+ /media/A/x\n"
            "/media/B:\n+ /media/B\n");
  EXPECT_THAT(inspect({"compare", "--json", archive(package("A").text(), "a"), name}).output,
              ::testing::StartsWith(
                  R"({"type":"change","change":"came","package":"","name":"/media","kind":"folder"})"
                  "\n"
                  R"({"type":"change","change":"came","package":"/media/A","name":"/media/A",)"));
}

TEST_F(InspectCompare, OfADamagedArchiveIsNoAnswer) {
  const std::string name = archive(before());
  const std::string cut = archive(before().substr(0, 3000), "cut");
  const std::string none = archive("none", "none");
  for (const std::string& bad : {cut, none}) {
    for (const std::vector<std::string>& pair : {std::vector{name, bad}, std::vector{bad, name}}) {
      const Outcome outcome = inspect({"compare", pair[0], pair[1]});
      EXPECT_EQ(outcome.status, 2);
      EXPECT_THAT(outcome.errors, ::testing::StartsWith("harbix-inspect: " + bad + ": "));
    }
  }
}

}  // namespace
}  // namespace harbix::test
