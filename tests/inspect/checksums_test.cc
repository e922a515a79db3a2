#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"

namespace harbix::test {
namespace {

using ::testing::HasSubstr;

class InspectChecksums : public InspectRun {
 protected:
  static constexpr char OF_TEXT[] = "982d9e3eb996f559e633f4d194def3761d909f5a3b647d1a851fead67c32c9d1";
};

TEST_F(InspectChecksums, AreWhatSha256sumChecks) {
  TarBuilder tar = music();
  tar.file("/media/Music/new\nline\\", std::string(100'000, 'x')).file("/media/Music/empty", "");
  tar.file("/media/Music/return\r", "r").file("letter/a", "outside");
  const std::string name = archive(tar.text());
  const Outcome outcome = inspect({"checksums", name});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr(std::string(OF_TEXT) + "  media/Music/a.mp3\n"));
  write_file(folder_ / "sums", outcome.output);
  const Outcome checked =
      run_program({"sh", "-c",
                   "mkdir " + (folder_ / "out") + " && cd " + (folder_ / "out") + " && bsdtar -xf " + name +
                       " && sha256sum --check --strict " + (folder_ / "sums")});
  EXPECT_EQ(checked.status, 0) << checked.output << checked.errors;
  EXPECT_EQ(inspect({"checksums", "-"}, tar.text()).output, outcome.output) << "from a pipe";
}

TEST_F(InspectChecksums, AreThoseOfTheManifestsAsWell) {
  const std::string output = inspect({"checksums", archive(music().text())}).output;
  EXPECT_THAT(output, HasSubstr("  media/Music/.backup.metadata\n"));
}

TEST_F(InspectChecksums, AreOfContentsWithTheirHoles) {
  put(folder_ / "in/media/A/.backup.metadata", "\n");
  put(folder_ / "in/media/A/sparse", "");
  ASSERT_EQ(
      run_program({"sh", "-c",
                   "cd " + (folder_ / "in") +
                       "/media/A && printf x | dd of=sparse bs=1 seek=1000000 conv=notrunc status=none && "
                       "truncate --size 3000000 sparse && cd ../.. && tar --sparse -cf ../sparse.tar "
                       "media/A/.backup.metadata media/A/sparse && sha256sum media/A/sparse >../expected"})
          .status,
      0);
  const std::string output = inspect({"checksums", folder_ / "sparse.tar"}).output;
  EXPECT_EQ(output.substr(output.find('\n') + 1), read_file(folder_ / "expected"));
}

TEST_F(InspectChecksums, ShowNoControlCharacterToATerminal) {
  const std::string tar = archive(music().file("/media/Music/\033[31m", "").text());
  const std::string output =
      run_program({"script", "-qec", "'" HARBIX_INSPECT_PROGRAM "' checksums " + tar, "/dev/null"}).output;
  EXPECT_THAT(output, HasSubstr("  media/Music/\\033[31m\r\n"));
  EXPECT_EQ(output.find('\033'), std::string::npos);
}

TEST_F(InspectChecksums, SayTheSameInJson) {
  EXPECT_THAT(inspect({"checksums", "--json", archive(music().text())}).output,
              HasSubstr(std::string(R"({"type":"checksum","name":"media/Music/a.mp3","size":4,"sha256":")") +
                        OF_TEXT));
}

TEST_F(InspectChecksums, AreComparedForEachOfTwoItemsOfOneName) {
  const std::string name = archive(music().file("/media/Music/a.mp3", "other").text());
  write_file(folder_ / "sums", inspect({"checksums", name}).output);
  const std::string output = inspect({"verify", "--checksums", folder_ / "sums", name}).output;
  EXPECT_EQ(output.find("list of checksums"), std::string::npos) << output;
  EXPECT_EQ(output.find("those of the list"), std::string::npos) << output;
}

TEST_F(InspectChecksums, ShowAChangedByteOfContents) {
  const std::string bytes = music().file("/media/Music/new\nline\\", "1").text();
  const std::string name = archive(bytes);
  write_file(folder_ / "sums", inspect({"checksums", name}).output);
  EXPECT_EQ(inspect({"verify", "--checksums", folder_ / "sums", name}).status, 0);
  std::string changed = bytes;
  changed[bytes.find("text")] = 'T';
  const std::string damaged = archive(changed, "b.tar");
  EXPECT_EQ(inspect({"verify", damaged}).status, 0) << "nothing else can show it";
  const Outcome outcome = inspect({"verify", "--checksums", folder_ / "sums", damaged});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(
      outcome.output,
      HasSubstr("problem: /media/Music/a.mp3: The contents are not those of the list (at byte 1536)\n"));
  std::string manifest = bytes;
  manifest[bytes.find("File: 5")] = 'f';
  EXPECT_THAT(inspect({"verify", "--checksums", folder_ / "sums", archive(manifest, "c.tar")}).output,
              HasSubstr("/media/Music/.backup.metadata: The contents are not those of the list"));
}

TEST_F(InspectChecksums, TellWhatIsMissingOnEitherSide) {
  const std::string name = archive(music().text());
  std::string sums = inspect({"checksums", name}).output;
  write_file(folder_ / "sums", sums.substr(0, sums.find('\n') + 1) + OF_TEXT + " *media/other\n");
  const Outcome outcome = inspect({"verify", "--checksums", folder_ / "sums", name});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.output,
              HasSubstr("problem: /media/Music/a.mp3: The list of checksums does not have it (at byte"));
  EXPECT_THAT(outcome.output,
              HasSubstr("problem: media/other: The list of checksums has it, and the archive has not\n"));
}

TEST_F(InspectChecksums, AreReadFromAProperListAlone) {
  const std::string name = archive(music().text());
  for (const std::string& text :
       {std::string("no list\n"), std::string(64, 'g') + "  a\n", std::string(300'000, 'a')}) {
    write_file(folder_ / "sums", text);
    const Outcome outcome = inspect({"verify", "--checksums", folder_ / "sums", name});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.errors, "harbix-inspect: '" + (folder_ / "sums") + "', line 1: no line of checksums\n");
  }
  EXPECT_THAT(inspect({"verify", "--checksums", "/dev/null", name}).errors, HasSubstr("is no regular file"));
  EXPECT_THAT(inspect({"verify", "--checksums", folder_ / "nix", name}).errors, HasSubstr("No such file"));
}

TEST_F(InspectChecksums, OfADamagedArchiveAreNotAll) {
  const std::string bytes = music().text();
  const Outcome outcome = inspect({"checksums", archive(bytes.substr(0, 2050))});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.errors, HasSubstr("Truncated"));
}

}  // namespace
}  // namespace harbix::test
