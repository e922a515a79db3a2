#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "archive/error.h"
#include "archive/reader.h"
#include "tests/support/archive.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using harbix::ArchiveError;

using Names = std::vector<std::string>;

constexpr const char* UNREADABLE = "Could not read next archive header";

TEST_F(ArchiveReaderTest, RefusesAnArchiveOfZeroBytesBeforeTheFirstOperation) {
  Reader reader(archive(""));
  EXPECT_EQ(message_of<ArchiveError>([&reader] { reader.begin_section({}); }),
            "Archive error: The archive is empty");
}

TEST_F(ArchiveReaderTest, TellsWhyTheArchiveCannotBeOpened) {
  EXPECT_EQ(message_of<ArchiveError>([] { const Reader reader("/nonexistent/a.tar"); }),
            "Archive error: Failed to open '/nonexistent/a.tar': No such file or directory");
  EXPECT_EQ(message_of<ArchiveError>([this] { const Reader reader(folder_.path()); }),
            "Archive error: Read error: Is a directory");
}

TEST_F(ArchiveReaderTest, RefusesWhatIsNoArchiveWhenItIsOpened) {
  for (const std::string& bytes : {std::string("no archive at all"), std::string(5000, 'x'),
                                   std::string("\0", 1), std::string(1, '\n')}) {
    EXPECT_EQ(message_of<ArchiveError>([&] { const Reader reader(archive(bytes)); }),
              "Archive error: Unrecognized archive format")
        << bytes.size();
  }
}

TEST_F(ArchiveReaderTest, TakesTheEndMarkAloneForAnEmptyArchive) {
  Reader reader(archive(TarBuilder().text()));
  EXPECT_EQ(reader.names(), Names{});
}

TEST_F(ArchiveReaderTest, RefusesAnArchiveThatIsCutAtAnyRecordButTheLast) {
  const std::string whole = three_entries().text();
  ASSERT_EQ(whole.size(), 8 * RECORD);
  for (std::size_t size = RECORD; size < whole.size(); size += RECORD) {
    EXPECT_EQ(message_of<std::runtime_error>([&] {
                Reader reader(archive(whole.substr(0, size)));
                reader.names();
              }),
              UNREADABLE)
        << "cut at " << size;
  }
  EXPECT_EQ(Reader(archive(whole)).names().size(), 3U);
}

TEST_F(ArchiveReaderTest, NeverTakesAnArchiveThatIsCutInTheMiddleForAWholeOne) {
  const std::string whole = three_entries().text();
  for (std::size_t size = 1; size < whole.size() - RECORD; size += 37) {
    EXPECT_THROW(
        {
          Reader reader(archive(whole.substr(0, size)));
          reader.names();
        },
        std::runtime_error)
        << "cut at " << size;
  }
}

TEST_F(ArchiveReaderTest, RefusesAStreamOfZerosThatIsLongerThanAnEndMark) {
  constexpr std::size_t LONGEST = std::size_t{64} << 10;
  const std::string text = "Archive error: The archive holds nothing but zeros";
  for (const std::size_t size : {LONGEST + 1, std::size_t{21} << 20}) {
    Reader reader(archive(std::string(size, '\0')));
    EXPECT_EQ(message_of<ArchiveError>([&reader] { reader.begin_section({}); }), text) << size;
  }
  for (const std::size_t size : {2 * RECORD, LONGEST}) {
    Reader reader(archive(std::string(size, '\0')));
    reader.begin_section({});
    EXPECT_EQ(reader.names(), Names{}) << size;
  }
}

TEST_F(ArchiveReaderTest, RefusesZerosOutOfAPipe) {
  EXPECT_TRUE(passes_in_child([] {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const std::string zeros((std::size_t{64} << 10) + 1, '\0');
    std::thread feeder([&] {
      ASSERT_EQ(::write(ends[1], zeros.data(), zeros.size()), static_cast<ssize_t>(zeros.size()));
      ::close(ends[1]);
    });
    ASSERT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    Reader reader("");
    EXPECT_EQ(message_of<ArchiveError>([&reader] { reader.begin_section({}); }),
              "Archive error: The archive holds nothing but zeros");
    feeder.join();
  }));
}

TEST_F(ArchiveReaderTest, RefusesAnArchiveThatIsCutBehindTheExtensionsOfAHeader) {
  // Behind an extension of all entries the library takes the end of the input for that of the archive.
  for (const char of_one_or_all : {'x', 'g'}) {
    const TarBuilder extended =
        TarBuilder().add(of_one_or_all, "PaxHeader", "29 path=/media/pax/of/a/name\n");
    ASSERT_EQ(extended.truncated_text().size(), 2 * RECORD);
    for (const std::string& first : {std::string(), three_entries().truncated_text()}) {
      EXPECT_EQ(message_of<std::runtime_error>([&] {
                  Reader reader(archive(first + extended.truncated_text()));
                  reader.names();
                }),
                UNREADABLE)
          << of_one_or_all << first.size();
    }
  }
}

TEST_F(ArchiveReaderTest, EndsInDamageAtAHeaderWithAWrongChecksum) {
  std::string bytes = three_entries().text();
  bytes[2 * RECORD + 8] = static_cast<char>(bytes[2 * RECORD + 8] ^ 1);
  Reader reader(archive(bytes));
  const RecordedLog log;
  ASSERT_TRUE(reader.next_header());
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(message_of<std::runtime_error>([&] { static_cast<void>(reader.next_header()); }), UNREADABLE);
  EXPECT_EQ(log.messages(),
            (Names{"3 Archive header: Damaged tar archive", "3 Archive header: Damaged tar archive"}));
}

TEST_F(ArchiveReaderTest, EndsInDamageAtAnExtensionThatCannotBeRead) {
  std::string record = "29 path=/media/pax/of/a/name\n";
  EXPECT_EQ(Reader(archive(TarBuilder().add('x', "PaxHeader", record).file("/media/n", "").text())).names(),
            (Names{"/media/pax/of/a/name"}));
  record[0] = '3';
  Reader reader(archive(TarBuilder().add('x', "PaxHeader", record).file("/media/n", "").text()));
  EXPECT_EQ(message_of<std::runtime_error>([&] { static_cast<void>(reader.next_header()); }), UNREADABLE);
}

TEST_F(ArchiveReaderTest, HandsOverEverythingBeforeTheDamage) {
  Reader reader(archive(three_entries().truncated_text()));
  const RecordedLog log;
  for (const char* name : {"/media/a", "/media/b", "/media/c"}) {
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry) << name;
    EXPECT_EQ(entry->name()->text(), name);
  }
  EXPECT_EQ(message_of<std::runtime_error>([&] { static_cast<void>(reader.next_header()); }), UNREADABLE);
  EXPECT_EQ(log.messages(), (Names{"3 Archive header: Truncated archive: the end mark is missing"}));
  // Damage stays damage.
  EXPECT_EQ(message_of<std::runtime_error>([&] { static_cast<void>(reader.next_header()); }), UNREADABLE);
}

TEST_F(ArchiveReaderTest, SurvivesEverySingleBitFlip) {
  const std::string whole = three_entries().text();
  for (std::size_t position = 0; position < whole.size(); ++position) {
    // Every byte of the headers that says something, and a share of the others.
    if ((whole[position] == '\0' || whole[position] == 'b') && position % 64 != 0) continue;
    std::string damaged = whole;
    damaged[position] = static_cast<char>(damaged[position] ^ (1 << (position % 8)));
    archive(damaged);
    try {
      Reader reader(archive_);
      while (const auto entry = reader.next_header()) {
        if (entry->is_restorable()) static_cast<void>(reader.data());
      }
    } catch (const std::runtime_error&) {
      continue;  // refused: as good as read
    }
  }
}

TEST_F(ArchiveReaderTest, TellsAndLogsThatSkippingMetTheEnd) {
  const std::string whole = three_entries().text();
  // Through a pipe, where data can only be read on.
  EXPECT_TRUE(passes_in_child([&whole] {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ASSERT_EQ(::write(ends[1], whole.data(), 4 * RECORD), static_cast<ssize_t>(4 * RECORD));
    ::close(ends[1]);
    ASSERT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    Reader reader("");
    static_cast<void>(reader.next_header());
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry);
    const RecordedLog log(0);
    const std::string text = message_of<std::runtime_error>([&] { reader.skip(*entry); });
    EXPECT_EQ("Truncated input file (needed 1024 bytes, only 512 available)", text);
    EXPECT_EQ(log.messages(), (Names{"2 Skip data failed '" + text + "'"}));
  }));
}

TEST_F(ArchiveReaderTest, FindsDamageBeforeItsTurnAndLosesNoEntry) {
  EXPECT_EQ(message_of<std::runtime_error>([this] {
              Reader reader(archive(TarBuilder().add('L', "././@LongLink", "name").truncated_text()));
              reader.require_readable();
            }),
            UNREADABLE);
  Reader reader(archive(three_entries().text()));
  reader.require_readable();
  reader.require_readable();
  EXPECT_EQ(reader.names(), (Names{"/media/a", "/media/b", "/media/c"}));
  EXPECT_NO_THROW(reader.require_readable());
  EXPECT_FALSE(reader.next_header());
}

}  // namespace
}  // namespace harbix::test
