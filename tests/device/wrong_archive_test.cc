// What a restore of media looks at before it removes anything.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

constexpr char NO_MEDIA[] = "Error: The archive holds no media\n";

class WrongArchive : public testing::Test {
 protected:
  WrongArchive() { device_.write(shared("Music/old"), "old"); }

  Outcome restore(const std::string& archive) {
    device_.write("/tmp/a.tar", archive);
    return device_.harbix({"-r", "-f", "/tmp/a.tar", "media"});
  }
  Outcome restore_piped(const std::string& archive) { return device_.harbix({"-r", "media"}, archive); }

  [[nodiscard]] bool is_untouched() const { return device_.exists(shared("Music/old")); }

  Device device_;
};

TEST_F(WrongArchive, OfOtherKeywordsOrProgramsRemovesNothing) {
  for (const std::string& archive :
       {TarBuilder()
            .file("/app/com.example/appdata/.backup.metadata", "Package: com.example\n\n")
            .file("/app/com.example/appdata/data/x", "x")
            .text(),
        TarBuilder().file("/settings/.backup.metadata", "\n").file("/settings/etc/x", "x").text(),
        TarBuilder().file("word/document.xml", "x").file("[Content_Types].xml", "x").text(),
        TarBuilder().folder("./").file("./Music/a.mp3", "x").text(),
        TarBuilder().file("/mediax/a", "x").text()}) {
    for (const Outcome& outcome : {restore(archive), restore_piped(archive)}) {
      EXPECT_EQ(outcome.status, 1);
      EXPECT_EQ(outcome.errors, NO_MEDIA);
      EXPECT_TRUE(is_untouched());
    }
  }
}

TEST_F(WrongArchive, OfAnotherFormatRemovesNothing) {
  device_.write("/tmp/in/word/document.xml", "x");
  for (const char* format : {"zip", "cpio", "iso9660", "7zip", "ar"}) {
    ASSERT_EQ(device_
                  .shell("bsdtar --format " + std::string(format) + " -cf /tmp/a.bin -C /tmp/in " +
                         (std::string(format) == "ar" ? "-C word document.xml" : "word"))
                  .status,
              0);
    for (const char* run : {"harbix -r -f /tmp/a.bin media", "cat /tmp/a.bin | harbix -r media"}) {
      const Outcome outcome = device_.shell(run);
      EXPECT_NE(outcome.status, 0) << format << run;
      EXPECT_NE(outcome.errors, "") << format << run;
      EXPECT_TRUE(is_untouched()) << format << run;
    }
  }
}

TEST_F(WrongArchive, OfNothingStillEmptiesTheShare) {
  EXPECT_EQ(restore(TarBuilder().text()).status, 0);
  EXPECT_FALSE(is_untouched());
}

TEST_F(WrongArchive, ThatIsCutRemovesNothingAndBringsBackWhatIsBeforeTheCut) {
  const std::string whole =
      TarBuilder()
          .file("/media/Music/.backup.metadata", "File: 1\nMusic/a\nFile: 3\nMusic/old\n\n")
          .file("/media/Music/a", "a")
          .file("/media/Music/old", "new")
          .file("/media/Music/b", "b")
          .text();
  for (std::size_t size = 4 * RECORD; size <= whole.size() - 2 * RECORD; size += RECORD) {
    std::filesystem::remove(device_.outside(shared("Music/a")));
    const Outcome outcome = restore(whole.substr(0, size));
    EXPECT_EQ(outcome.status, 1) << size;
    EXPECT_THAT(outcome.errors, HasSubstr("Error: ")) << size;
    EXPECT_EQ(device_.read(shared("Music/old")), "old") << size;
    EXPECT_EQ(device_.read(shared("Music/a")), "a") << size;
  }
}

TEST_F(WrongArchive, WithZerosInThePlaceOfAHeaderBeforeOthersRemovesNothing) {
  const std::string first = TarBuilder()
                                .file("/media/Music/.backup.metadata", "File: 1\nMusic/a\n\n")
                                .file("/media/Music/a", "a")
                                .truncated_text();
  const std::string rest = TarBuilder().file("/media/Music/b", "b").text();
  const std::string end_mark(2 * RECORD, '\0');
  for (const std::string& head : {first, std::string(), std::string(RECORD * 2000, 'x')}) {
    const std::string begin =
        head.starts_with('x')
            ? TarBuilder().file("/media/Music/a", "a").file("/media/Music/c", head).truncated_text()
            : head;
    const Outcome outcome = restore(begin + end_mark + rest);
    EXPECT_EQ(outcome.status, 1) << begin.size();
    EXPECT_THAT(
        outcome.errors,
        HasSubstr("Error: The archive is damaged: Something follows the end mark, which is not read\n"))
        << begin.size();
    EXPECT_TRUE(is_untouched()) << begin.size();
    if (begin.empty()) continue;
    EXPECT_EQ(device_.read(shared("Music/a")), "a") << begin.size();
  }
}

TEST_F(WrongArchive, ThatIsDamagedBehindTheMediaRemovesNothing) {
  const std::string whole = TarBuilder()
                                .file("/media/Music/.backup.metadata", "File: 1\nMusic/a\n\n")
                                .file("/media/Music/a", "a")
                                .file("/settings/.backup.metadata", "\n")
                                .file("/settings/etc/x", "x")
                                .truncated_text();
  device_.write("/tmp/a.tar", whole);
  const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/a.tar", "media_settings"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, testing::StartsWith("Error: The archive is damaged: "));
  EXPECT_EQ(device_.read(shared("Music/a")), "a");
  EXPECT_TRUE(is_untouched());
}

TEST_F(WrongArchive, WithAChangedByteInALongNameIsNeverASuccess) {
  for (const std::string& name : {std::string(120, 'e'), std::string("caf\xc3\xa9")}) {
    device_.write(shared("Music/" + name), "text");
    ASSERT_EQ(device_.harbix({"-f", "/tmp/whole.tar", "media"}).status, 0);
    std::string bytes = device_.read("/tmp/whole.tar");
    EXPECT_EQ(restore(bytes).errors, "");
    // The last time that it stands there is in the header of the file.
    const std::size_t at = bytes.rfind("path=/media/Music/" + name);
    ASSERT_NE(at, std::string::npos);
    const std::size_t last = at + std::string("path=/media/Music/").size() + name.size() - 1;
    bytes[last] = bytes[last] == 'e' ? 'x' : '\xa8';
    const Outcome outcome = restore(bytes);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.errors,
                testing::EndsWith("Warning: /media/Music: holds items under names that it does not list\n"));
  }
}

TEST_F(WrongArchive, WithAChangedByteThatMakesALongNameThatOfAnotherIsNeverASuccess) {
  for (const char* name : {"t\xc3\xa9 01", "t\xc3\xa9 03"})
    device_.write(shared("Music/" + std::string(name)), name);
  ASSERT_EQ(device_.harbix({"-f", "/tmp/whole.tar", "media"}).status, 0);
  for (const auto& [from, to] : {std::pair{"01", "03"}, {"03", "01"}}) {
    std::string bytes = device_.read("/tmp/whole.tar");
    const std::string path = "path=/media/Music/t\xc3\xa9 ";
    const std::size_t at = bytes.find(path + from);
    ASSERT_NE(at, std::string::npos);
    bytes.replace(at + path.size(), 2, to);
    const Outcome outcome = restore(bytes);
    EXPECT_EQ(outcome.status, 1) << from;
    EXPECT_EQ(outcome.errors, "Warning: /media/Music: holds items under names that it does not list\n");
  }
}

TEST_F(WrongArchive, OfMoreThanThereCanBeRoomForIsRefused) {
  const std::string mounting =
      "mount -t tmpfs -o size=64k,mode=0777 none /accounts/1000/shared && cd /accounts/1000/shared && "
      "mkdir -m 777 Music && head -c 40000 /dev/zero > Music/old && chmod 666 Music/old && cd / && ";
  device_.write("/tmp/a.tar", TarBuilder().file("/media/Music/a", std::string(100000, 'x')).text());
  const Outcome refused = device_.shell(
      mounting + "harbix -r -f /tmp/a.tar media; result=$?; ls /accounts/1000/shared/Music; exit $result");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.errors, MatchesRegex("Error: The media of the archive take 100000 bytes, but at most "
                                           "[0-9]+ bytes can be made free\n"));
  EXPECT_EQ(refused.output, "old\n");

  // What fits in the place of what is removed is restored.
  device_.write("/tmp/a.tar", TarBuilder().file("/media/Music/a", std::string(50000, 'x')).text());
  const Outcome fitting = device_.shell(
      mounting + "harbix -r -f /tmp/a.tar media; result=$?; ls /accounts/1000/shared/Music; exit $result");
  EXPECT_EQ(fitting.status, 0) << fitting.errors;
  EXPECT_EQ(fitting.output, "a\n");
}

TEST_F(WrongArchive, OfADtmShareThatCannotGetRoomIsRefused) {
  device_.write("/tmp/a.tar", TarBuilder().file("/dtm/a", std::string(100000, 'x')).text());
  const Outcome outcome = device_.shell(
      "mount -t tmpfs -o size=64k none /accounts/1000/sys/dtm && exec harbix -r -f /tmp/a.tar media");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "Error: The media of the archive take 100000 bytes, but at most 65536 bytes can be made free\n");
  EXPECT_TRUE(is_untouched());
}

}  // namespace
}  // namespace harbix::test
