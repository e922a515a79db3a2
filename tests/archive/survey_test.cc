#include "archive/survey.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/file_descriptor.h"
#include "tests/support/archive.h"
#include "tests/support/program.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::Survey;

using Names = std::vector<std::string>;

const std::vector<Path> APP{"/app"};
const std::vector<Path> MEDIA{"/media", "/dtm"};
const std::vector<Path> SETTINGS{"/settings"};

class ArchiveSurvey : public ArchiveReaderTest {
 protected:
  static TarBuilder media_and_settings() {
    TarBuilder tar;
    tar.file("/media/m/.backup.metadata", "File: 1\n/m/a\n\n").folder("/media/m");
    tar.file("/media/m/a", std::string(3000, 'a')).link("/media/m/l", "a");
    tar.file("/dtm/d/.backup.metadata", "File: 1\n/d/b\n\n").file("/dtm/d/b", "text");
    tar.file("/settings/.backup.metadata", "Settings: 1\n\n").file("/settings/s", "1");
    return tar;
  }
};

TEST_F(ArchiveSurvey, TellsWhatTheArchiveHoldsAndLeavesTheReaderWhereItIs) {
  Reader reader(archive(media_and_settings().text()));
  reader.begin_section({});
  ASSERT_TRUE(reader.next_header());
  const Survey* survey = reader.survey();
  ASSERT_NE(nullptr, survey);
  EXPECT_FALSE(survey->is_empty());
  EXPECT_TRUE(survey->has_packages());
  EXPECT_TRUE(survey->has_packages_below(MEDIA));
  EXPECT_TRUE(survey->has_packages_below(SETTINGS));
  EXPECT_FALSE(survey->has_packages_below(APP));
  EXPECT_EQ(survey->file_bytes_below(MEDIA), 3004U);
  EXPECT_EQ(survey->file_bytes_below(SETTINGS), 1U);
  EXPECT_EQ(survey->file_bytes_below(APP), 0U);
  EXPECT_FALSE(survey->damage());
  EXPECT_EQ(survey, reader.survey());
  EXPECT_EQ(reader.names(), (Names{"/media/m", "/media/m/a", "/media/m/l", "/dtm/d/.backup.metadata",
                                   "/dtm/d/b", "/settings/.backup.metadata", "/settings/s"}));
}

TEST_F(ArchiveSurvey, TellsTheBackupOfNothingFromAForeignArchive) {
  Reader nothing(archive(TarBuilder().text()));
  EXPECT_TRUE(nothing.survey()->is_empty());
  Reader foreign(archive(TarBuilder().file("word/document.xml", "x").text()));
  EXPECT_FALSE(foreign.survey()->is_empty());
  EXPECT_FALSE(foreign.survey()->has_packages());
  EXPECT_FALSE(foreign.survey()->has_entries_below(MEDIA));
  Reader bare(archive(TarBuilder().file("media/m/a", "x").file("/media/x/y/.backup.metadata", "22").text()));
  EXPECT_FALSE(bare.survey()->has_packages());
  EXPECT_TRUE(bare.survey()->has_entries_below(MEDIA));
  EXPECT_EQ(bare.survey()->file_bytes_below(MEDIA), 3U);
}

TEST_F(ArchiveSurvey, KnowsPackagesOfARepackedArchive) {
  const std::string bytes =
      TarBuilder().file("./media/m/.backup.metadata", "").file("./media/m/a", "12").text();
  Reader reader(archive(bytes));
  EXPECT_TRUE(reader.survey()->has_packages_below(MEDIA));
  EXPECT_EQ(reader.survey()->file_bytes_below(MEDIA), 2U);
}

TEST_F(ArchiveSurvey, FindsTheArchiveCutAtAnyRecordButTheLast) {
  const std::string whole = media_and_settings().text();
  for (std::size_t size = 512; size < whole.size(); size += 512) {
    Reader reader(archive(whole.substr(0, size)));
    EXPECT_TRUE(reader.survey()->damage()) << size;
  }
}

TEST_F(ArchiveSurvey, FindsADamagedHeaderWithTheReason) {
  std::string bytes = media_and_settings().text();
  bytes[2 * 512 + 3] = static_cast<char>(bytes[2 * 512 + 3] ^ 1);
  Reader reader(archive(bytes));
  EXPECT_EQ(reader.survey()->damage(), "Damaged tar archive");
  EXPECT_TRUE(reader.survey()->has_packages_below(MEDIA));
}

TEST_F(ArchiveSurvey, IsMadeOfACompressedFileToo) {
  archive(media_and_settings().text());
  const auto made = run_program({"sh", "-c", "gzip < '" + archive_ + "' > '" + archive_ + ".gz'"});
  ASSERT_EQ(made.status, 0) << made.errors;
  Reader reader(archive_ + ".gz");
  EXPECT_EQ(reader.survey()->file_bytes_below(MEDIA), 3004U);
  EXPECT_FALSE(reader.survey()->damage());
  EXPECT_EQ(reader.names().size(), 8U);
}

TEST_F(ArchiveSurvey, IsMadeOfAFileOnStandardInputFromWhereItStands) {
  archive("line before the archive\n" + media_and_settings().text());
  EXPECT_TRUE(passes_in_child([this] {
    const base::FileDescriptor file(::open(archive_.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::lseek(file.get(), 24, SEEK_SET), 24);
    ASSERT_EQ(::dup2(file.get(), STDIN_FILENO), STDIN_FILENO);
    Reader reader("");
    reader.begin_section({});
    ASSERT_NE(nullptr, reader.survey());
    EXPECT_EQ(reader.survey()->file_bytes_below(MEDIA), 3004U);
    EXPECT_FALSE(reader.survey()->damage());
    EXPECT_EQ(reader.names().size(), 8U);
  }));
}

TEST_F(ArchiveSurvey, CannotBeMadeOfAPipe) {
  EXPECT_TRUE(passes_in_child([] {
    const std::string bytes = media_and_settings().text();
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ASSERT_EQ(::write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    ::close(ends[1]);
    ASSERT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    Reader reader("");
    EXPECT_EQ(reader.survey(), nullptr);
    EXPECT_EQ(reader.names().size(), 8U);
  }));
}

}  // namespace
}  // namespace harbix::test
