#include "archive/archive_paths.h"

#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "archive/error.h"
#include "base/flags.h"
#include "support/captured_output.h"
#include "support/recorded_log.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using test::CapturedOutput;
using test::RecordedLog;
using test::TemporaryFolder;

class ArchivePaths : public ::testing::Test {
 protected:
  void SetUp() override {
    test::Tree{test::dir("Music", {test::file("a.mp3", "text"), test::fifo("pipe")}), test::file("b")}.build(
        folder_.path());
  }
  void TearDown() override { harbix::verbose = false; }

  TemporaryFolder folder_;
  TemporaryFolder archives_;
  test::InsideFolder inside_{folder_.path()};
};

TEST_F(ArchivePaths, ArchivesEachPathBelowTheBase) {
  const RecordedLog log(3);
  const CapturedOutput errors(STDERR_FILENO);
  test::Writer writer(archives_ / "a.tar");
  harbix::archive_paths(writer, std::vector<Path>{Path("Music"), Path("Music/a.mp3"), Path("b")},
                        Path("/media"));
  writer.close();
  test::Reader reader(archives_ / "a.tar");
  EXPECT_EQ((std::vector<std::string>{"/media/Music", "/media/Music/a.mp3", "/media/b"}), reader.names());
  EXPECT_EQ(
      (std::vector<std::string>{"5 Archive: Music to /media/Music",
                                "5 Archive: Music/a.mp3 to /media/Music/a.mp3", "5 Archive: b to /media/b"}),
      log.messages());
  EXPECT_EQ("", errors.text());
}

TEST_F(ArchivePaths, TellsOfItsProgressWhenVerbose) {
  const CapturedOutput errors(STDERR_FILENO);
  harbix::verbose = true;
  test::Writer writer(archives_ / "a.tar");
  harbix::archive_paths(writer, std::vector<Path>{Path("b")}, Path("/media"));
  EXPECT_EQ("Archive: b to /media/b\n", errors.text());
}

TEST_F(ArchivePaths, GoesOnBehindAPathThatCannotBeArchived) {
  const RecordedLog log(0);
  const CapturedOutput errors(STDERR_FILENO);
  test::Writer writer(archives_ / "a.tar");
  harbix::archive_paths(writer, std::vector<Path>{Path("gone"), Path("Music/pipe"), Path("b")},
                        Path("/media"));
  writer.close();
  test::Reader reader(archives_ / "a.tar");
  EXPECT_EQ((std::vector<std::string>{"/media/b"}), reader.names());
  EXPECT_EQ((std::vector<std::string>{"2 ERROR: Error opening: gone", "2 ERROR: Error opening: Music/pipe"}),
            log.messages());
  EXPECT_EQ("Error: Error opening: gone\nError: Error opening: Music/pipe\n", errors.text());
}

TEST_F(ArchivePaths, EndsWhereTheArchiveCannotBeWrittenAnyFurther) {
  test::write_file("large", std::string(std::size_t{2} << 20, 'x'));
  const RecordedLog log;
  test::Writer writer("/dev/full");
  EXPECT_EQ("Archive error: Write error: No space left on device(28)",
            test::message_of<harbix::ArchiveError>([&] {
              harbix::archive_paths(writer, std::vector<Path>{Path("large"), Path("b")}, Path("/media"));
            }));
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
