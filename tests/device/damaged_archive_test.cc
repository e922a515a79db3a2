// What an archive's stream can suffer, for every keyword alike.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

class DamagedArchive : public testing::Test {
 protected:
  DamagedArchive() { device_.write(shared("Old/photo"), "old"); }

  static TarBuilder two_files() {
    TarBuilder tar;
    tar.file("/media/M/.backup.metadata", "File: 1\nM/a\n\n").file("/media/M/a", "1").file("/media/M/b", "2");
    return tar;
  }

  void expect_nothing_removed() { EXPECT_EQ(device_.read(shared("Old/photo")), "old"); }

  Device device_;
};

TEST_F(DamagedArchive, OfZerosAloneRemovesNothing) {
  const std::string zeros(std::size_t{21} << 20, '\0');
  device_.write("/tmp/a.tar", zeros);
  for (const char* keyword : {"media", "app", "settings"}) {
    const Outcome named = device_.harbix({"-r", "-f", "/tmp/a.tar", keyword});
    EXPECT_EQ(named.status, 2) << keyword;
    EXPECT_EQ(named.errors, "ERROR: Archive error: The archive holds nothing but zeros\n") << keyword;
  }
  const Outcome piped = device_.harbix({"-r", "media"}, zeros);
  EXPECT_EQ(piped.status, 2);
  EXPECT_EQ(piped.errors, "ERROR: Archive error: The archive holds nothing but zeros\n");
  expect_nothing_removed();
}

TEST_F(DamagedArchive, CutBehindTheExtensionsOfItsFirstHeaderRemovesNothing) {
  for (const char of_one_or_all : {'x', 'g'}) {
    const TarBuilder cut = TarBuilder().add(of_one_or_all, "PaxHeader", "27 path=/media/M/long/name\n");
    const Outcome outcome = device_.harbix({"-r", "media"}, cut.truncated_text());
    EXPECT_EQ(outcome.status, 1) << of_one_or_all;
    EXPECT_EQ(outcome.errors, "Error: Could not read next archive header\n") << of_one_or_all;
    expect_nothing_removed();
  }
}

TEST_F(DamagedArchive, WithAFlippedBitInAHeaderIsNeverASuccess) {
  std::string damaged = two_files().text();
  const std::size_t header_of_a = 2 * RECORD;
  damaged[header_of_a + 9] = static_cast<char>(damaged[header_of_a + 9] ^ 1);
  const Outcome outcome = device_.harbix({"-r", "media"}, damaged);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("Error: Could not read next archive header\n"));
  EXPECT_FALSE(device_.exists(shared("M/b")));
}

TEST_F(DamagedArchive, WithAChangedByteInAPaxRecordIsNeverASuccess) {
  std::string record = "30 path=/media/M/pax/of/a/name\n";
  TarBuilder tar;
  tar.file("/media/M/.backup.metadata", "").add('x', "PaxHeader", "9" + record.substr(1));
  const Outcome outcome = device_.harbix({"-r", "media"}, tar.file("/media/M/cut", "1").text());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("Error: Could not read next archive header\n"));
  EXPECT_FALSE(device_.exists(shared("M/cut")));
}

TEST_F(DamagedArchive, ThatARepackingTarTookTheLeadingSeparatorsFromIsRestoredInTheSamePlaces) {
  TarBuilder tar;
  tar.file("settings/.backup.metadata", "Settings: 1\n\n")
      .file("media/M/.backup.metadata", "File: 1\nM/a\n\n");
  tar.file("media/M/a", "1").file("./media/M/b", "2").file("dtm/d", "3");
  // From a pipe, the first entry would have to be of media.
  device_.write("/tmp/a.tar", tar.text());
  const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/a.tar", "media"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(device_.read(shared("M/a")), "1");
  EXPECT_EQ(device_.read(shared("M/b")), "2");
  EXPECT_EQ(device_.read(std::string(DTM) + "/d"), "3");
}

TEST_F(DamagedArchive, AFileOfTheNameOfAMetadataEntryComesBackLikeItsNeighbours) {
  TarBuilder tar = two_files();
  tar.file("/media/M/below/.backup.metadata", "mine").file("/media/M/last", "last");
  EXPECT_EQ(device_.harbix({"-r", "media"}, tar.text()).status, 0);
  EXPECT_EQ(device_.read(shared("M/below/.backup.metadata")), "mine");
  EXPECT_EQ(device_.read(shared("M/last")), "last");
}

}  // namespace
}  // namespace harbix::test
