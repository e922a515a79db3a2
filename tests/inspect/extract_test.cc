#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"

namespace harbix::test {
namespace {

using ::testing::HasSubstr;

class InspectExtract : public InspectRun {
 protected:
  InspectExtract() : to_(folder_ / "to") { Tree{dir("to")}.build(folder_.path()); }

  Outcome extract(const std::string& bytes, std::vector<std::string> paths) {
    paths.insert(paths.begin(), {"extract", archive(bytes), "--to", to_});
    return inspect(paths);
  }

  std::string to_;
};

TEST_F(InspectExtract, PutsAPackageBelowTheFolderForTheCaller) {
  for (const char* name : {"/media/Music", "media/Music/", "Music"}) {
    TemporaryFolder folder;
    const Outcome outcome = inspect({"extract", archive(music().text()), name, "--to", folder.path()});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output + outcome.errors, "");
    EXPECT_TRUE(
        (Tree{dir("media", {dir("Music", {file("a.mp3", "text", ANY_MODE), link("link", "a.mp3")}, ANY_MODE)},
                  ANY_MODE)})
            .matches(folder.path()));
  }
}

TEST_F(InspectExtract, PutsSomeFilesThere) {
  EXPECT_EQ(extract(music().text(), {"/media/Music/a.mp3"}).status, 0);
  EXPECT_TRUE((Tree{dir("media", {dir("Music", {file("a.mp3", "text", ANY_MODE)}, ANY_MODE)}, ANY_MODE)})
                  .matches(to_));
  const Outcome missing = extract(music().text(), {"/media/Mus", "/media/Music/link"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.errors, "harbix-inspect: '/media/Mus' is not in the archive\n");
}

TEST_F(InspectExtract, LeavesWhatIsThereAndSaysSo) {
  put(to_ + "/media/Music/a.mp3", "mine");
  const Outcome outcome = extract(music().text(), {"/media/Music"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "harbix-inspect: '/media/Music/a.mp3': File exists\n");
  EXPECT_EQ(read_file(to_ + "/media/Music/a.mp3"), "mine");
  EXPECT_EQ(std::filesystem::read_symlink(to_ + "/media/Music/link"), "a.mp3") << "the rest is extracted";
}

TEST_F(InspectExtract, LeavesTheFolderOnNoWay) {
  put(folder_ / "outside/file", "untouched");
  std::filesystem::create_symlink(folder_ / "outside", to_ + "/link");
  TarBuilder tar = music();
  tar.file("/media/../../outside/evil", "evil")
      .link("/media/out", folder_ / "outside")
      .file("/media/out/evil", "evil");
  tar.file("link/evil", "evil").add(TarBuilder::HARD_LINK, "/media/hard", "", 0644, "/etc/passwd");
  tar.file("/media/Music/last", "last");
  const Outcome outcome = extract(tar.text(), {"/media", "link"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("'/media/../../outside/evil': A restore refuses a name with '..'\n"));
  EXPECT_THAT(outcome.errors, HasSubstr("'/media/out/evil': "));
  EXPECT_THAT(outcome.errors, HasSubstr("'link/evil': "));
  EXPECT_THAT(outcome.errors, HasSubstr("'/media/hard': A hard link never comes back\n"));
  EXPECT_TRUE((Tree{file("file", "untouched", ANY_MODE)}).matches(folder_ / "outside"));
  EXPECT_EQ(read_file(to_ + "/media/Music/last"), "last");
}

TEST_F(InspectExtract, PrintsOneFile) {
  const std::string name = archive(music().text());
  const Outcome one = inspect({"extract", name, "media/Music/a.mp3", "--to", "-"});
  EXPECT_EQ(one.output, "text");
  EXPECT_EQ(one.status, 0);
  const Outcome manifest = inspect({"extract", name, "/media/Music/.backup.metadata", "--to", "-"});
  EXPECT_EQ(manifest.output, "File: 4096\nMusic\nFile: 4\nMusic/a.mp3\nFile: 5\nMusic/link\n\n");
}

TEST_F(InspectExtract, PrintsNothingOfWhatIsNotOneFile) {
  const std::string name = archive(music().file("/media/Music/b", "more").text());
  for (const std::string path : {"/media/Music", "/media", "Music", "/media/Music/link"}) {
    const Outcome outcome = inspect({"extract", name, path, "--to", "-"});
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, "harbix-inspect: '" + path + "': No plain file\n");
    EXPECT_EQ(outcome.status, 1);
  }
  const Outcome two = inspect({"extract", name, "/media/Music/a.mp3", "/media/Music/b", "--to", "-"});
  EXPECT_EQ(two.output, "text");
  EXPECT_EQ(two.errors, "harbix-inspect: '/media/Music/b': Only one file is printed\n");
  EXPECT_EQ(two.status, 1);
}

TEST_F(InspectExtract, SetsModesOfFoldersWhenTheyAreFull) {
  TarBuilder tar;
  tar.file("/media/A/.backup.metadata", "\n").folder("/media/A", 0500).file("/media/A/x", "1");
  EXPECT_EQ(extract(tar.text(), {"/media"}).status, 0);
  EXPECT_TRUE((Tree{dir("media", {dir("A", {file("x", "1", ANY_MODE)}, 0500)}, ANY_MODE)}).matches(to_));
}

TEST_F(InspectExtract, PutsNothingInThePlaceOfAFolder) {
  put(to_ + "/media/Music/a.mp3/mine", "mine");
  put(to_ + "/media/Music/link/mine", "mine");
  const Outcome outcome = extract(music().text(), {"/media/Music"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "harbix-inspect: '/media/Music/a.mp3': File exists\n"
            "harbix-inspect: '/media/Music/link': File exists\n");
  EXPECT_EQ(read_file(to_ + "/media/Music/a.mp3/mine"), "mine");
}

TEST_F(InspectExtract, TellsOfEachItemInJson) {
  put(to_ + "/media/Music/a.mp3", "mine");
  const Outcome outcome = inspect({"extract", "--json", archive(music().text()), "Music", "--to", to_});
  EXPECT_EQ(
      outcome.output,
      R"({"type":"extracted","name":"/media/Music","kind":"folder","done":true})"
      "\n"
      R"({"type":"extracted","name":"/media/Music/a.mp3","kind":"file","done":false,"reason":"File exists"})"
      "\n"
      R"({"type":"extracted","name":"/media/Music/link","kind":"link","done":true})"
      "\n");
  EXPECT_EQ(outcome.errors, "");
}

TEST_F(InspectExtract, OfADamagedArchiveKeepsNoPiece) {
  const std::string bytes = music().file("/media/Music/long", std::string(5000, 'x')).text();
  const Outcome outcome = extract(bytes.substr(0, 6000), {"/media"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_FALSE(std::filesystem::exists(to_ + "/media/Music/long"));
  EXPECT_TRUE(std::filesystem::exists(to_ + "/media/Music/a.mp3"));
}

}  // namespace
}  // namespace harbix::test
