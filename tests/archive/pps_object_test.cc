#include "archive/pps_object.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "archive/error.h"
#include "fs/exception.h"
#include "support/captured_output.h"
#include "support/child_process.h"
#include "support/recorded_log.h"
#include "support/tar_builder.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::File;
using fs::Path;
using harbix::persistent_lines;
using test::message_of;
using test::Reader;
using test::TarBuilder;
using test::TemporaryFolder;
using test::Writer;

using namespace std::string_literals;

constexpr std::size_t LARGEST_TEXT = 32768;

TEST(PersistentLines, AreAllButThoseThatBeginWithTheMarks) {
  struct Row {
    std::string text, kept;
  };
  const Row rows[] = {
      {"", ""},
      {"\n", "\n"},
      {"\n\n\n", "\n\n\n"},
      {"a::1", "a::1"},
      {"a::1\n", "a::1\n"},
      {"a::1\n[n]b::2\n-c\n", "a::1\n"},
      {"a::1\n[n]b::2\n-c", "a::1\n"},
      {"[n]a::1\nb::2", "b::2"},
      {"-a\nb::2\n", "b::2\n"},
      {"@name\na::1\n", "@name\na::1\n"},
      {"[n]", ""},
      {"[n]\n", ""},
      {"-", ""},
      {"-\n", ""},
      {"--\n-\n[n]\n", ""},
      {"[n][n]a\n", ""},
      // Only at the very beginning, and only in full.
      {" [n]a\n", " [n]a\n"},
      {" -a\n", " -a\n"},
      {"a-b\n", "a-b\n"},
      {"a[n]\n", "a[n]\n"},
      {"[n\n", "[n\n"},
      {"[\nn]\n", "[\nn]\n"},
      {"[N]a\n", "[N]a\n"},
      {"[nn]a\n", "[nn]a\n"},
      {"n]a\n", "n]a\n"},
      {"a\r\n-b\r\nc\r\n", "a\r\nc\r\n"},
      {"a\r-b\n", "a\r-b\n"},
      {"a\n\n-b\n\nc", "a\n\n\nc"},
      {"\xFF\xC3\n-\xFF\n", "\xFF\xC3\n"},
      // A NUL ends the text, wherever it stands.
      {"\0a"s, ""},
      {"a\0b"s, "a"},
      {"a\n\0b\n"s, "a\n"},
      {"a\n-b\0\nc\n"s, "a\n"},
      {"-a\0"s, ""},
  };
  for (const Row& row : rows) EXPECT_EQ(row.kept, persistent_lines(row.text)) << test::printable(row.text);
}

TEST(PersistentLines, StayAsTheyAreTheSecondTime) {
  const std::string once = persistent_lines("-a\n[n]-b\n[n\n-\n]c\n\n-[n]\nd");
  EXPECT_EQ("[n\n]c\n\nd", once);
  EXPECT_EQ(once, persistent_lines(once));
}

class PpsObject : public ::testing::Test {
 protected:
  static void store(Writer& writer, const std::string& path) {
    fs::Folder root("/");
    harbix::write_pps_object(writer, root, {.path = Path(path), .device = 0, .inode = 0}, "/settings/pps/x");
  }
  /// Stores an object with this text and tells what the archive holds of it.
  std::string stored(const std::string& text) {
    test::write_file(object_, text);
    Writer writer(archive_);
    store(writer, object_);
    writer.close();
    Reader reader(archive_);
    const std::optional<harbix::EntryView> entry = reader.next_header();
    if (!entry) return "(no entry)";
    const auto size = static_cast<std::size_t>(entry->size());
    std::string data = reader.data();
    EXPECT_EQ(size, data.size());
    EXPECT_FALSE(reader.next_header());
    return data;
  }

  void restore(const std::string& archive, const std::string& path) {
    test::write_file(archive_, archive);
    Reader reader(archive_);
    const std::optional<harbix::EntryView> entry = reader.next_header();
    ASSERT_TRUE(entry);
    harbix::restore_pps_object(reader, *entry, Path(path));
  }
  /// What an object that held "old\n" holds after it was restored from an entry with this data.
  std::string restored(const std::string& data) {
    test::write_file(object_, "old\n");
    restore(TarBuilder().file("/settings/pps/x", data).text(), object_);
    return test::read_file(object_);
  }

  static long open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  }

  TemporaryFolder folder_;
  std::string object_ = folder_ / "object";
  std::string archive_ = folder_ / "a.tar";
};

TEST_F(PpsObject, IsStoredWithoutWhatMustNotTravel) {
  struct Row {
    std::string text, stored;
  };
  for (const Row& row :
       {Row{"a::1\n[n]b::2\n-c\n", "a::1\n"}, Row{"a::1\nb", "a::1\nb"}, Row{"", ""}, Row{"-a\n[n]b\n", ""},
        Row{"a::1\n\0b::2\n"s, "a::1\n"}, Row{"\0a::1\n"s, ""}, Row{"@x\na:n:1\n", "@x\na:n:1\n"}}) {
    EXPECT_EQ(row.stored, stored(row.text)) << test::printable(row.text);
  }
}

TEST_F(PpsObject, IsStoredUpToItsLargestText) {
  const std::string line(1023, 'x');
  std::string text;
  while (text.size() < LARGEST_TEXT) text += line + "\n";
  ASSERT_EQ(LARGEST_TEXT, text.size());
  EXPECT_EQ(text, stored(text));
  EXPECT_EQ(text, stored(text + "y"));
  EXPECT_EQ(text, stored(text + std::string(100000, 'y')));
  EXPECT_EQ(text.substr(1), stored(text.substr(1)));
  // The limit is that of what is read, not of what is left of it.
  EXPECT_EQ(text.substr(1024), stored("-" + text.substr(1) + "more\n"));
  // What is cut off is cut before the lines are looked at.
  EXPECT_EQ(text.substr(2) + "a\n", stored(text.substr(2) + "a\n-b\n"));
}

TEST_F(PpsObject, IsStoredWithItsStatusAndTheSizeOfItsText) {
  test::write_file(object_, "a::1\n-gone\n");
  ASSERT_EQ(0, ::chmod(object_.c_str(), 0640));
  ASSERT_EQ(0, ::chown(object_.c_str(), 4001, 4002));
  const File object{Path(object_)};
  Writer writer(archive_);
  store(writer, object_);
  writer.close();
  Reader reader(archive_);
  const std::optional<harbix::EntryView> entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ("/settings/pps/x", entry->name()->text());
  const struct ::stat record = entry->destination(Path("x")).record();
  EXPECT_EQ(S_IFREG | 0640U, record.st_mode);
  EXPECT_EQ(4001U, record.st_uid);
  EXPECT_EQ(4002U, record.st_gid);
  EXPECT_EQ(5, record.st_size);
  EXPECT_EQ(object.record().st_mtim.tv_sec, record.st_mtim.tv_sec);
}

TEST_F(PpsObject, ThatCannotBeReadLeavesNoEntry) {
  test::write_file(object_, "a::1\n");
  std::filesystem::remove(object_);
  const long before = open_descriptors();
  {
    Writer writer(archive_);
    EXPECT_EQ("Error opening: " + object_, message_of<std::runtime_error>([&] { store(writer, object_); }));
    EXPECT_EQ("Error reading pps object [errno:21 'Is a directory']",
              message_of<fs::Exception>([&] { store(writer, folder_.path()); }));
    writer.close();
  }
  EXPECT_EQ(before, open_descriptors());
  EXPECT_TRUE(Reader(archive_).names().empty());
}

TEST_F(PpsObject, ThatTheArchiveHasNoRoomForIsAnErrorOfTheArchive) {
  test::write_file(object_, std::string(LARGEST_TEXT, 'x'));
  Writer writer("/dev/full");
  EXPECT_EQ("Archive error: ", message_of<harbix::ArchiveError>([&] {
                                 for (int i = 0; i < 100; ++i) store(writer, object_);
                               }).substr(0, 15));
}

TEST_F(PpsObject, IsAppendedToWithoutWhatMustNotTravel) {
  struct Row {
    std::string data, result;
  };
  for (const Row& row : {Row{"a::1\n", "old\na::1\n"}, Row{"a::1\n[n]b::2\n-c\n", "old\na::1\n"},
                         Row{"a::1\nb", "old\na::1\nb"}, Row{"-a\n", "old\n"}, Row{"", "old\n"},
                         Row{"a\n\0b\n"s, "old\na\n"}, Row{"\0"s, "old\n"}}) {
    EXPECT_EQ(row.result, restored(row.data)) << test::printable(row.data);
  }
}

TEST_F(PpsObject, IsRestoredInChunksThatAreFilteredEachByItself) {
  const std::string full(LARGEST_TEXT, 'x');
  EXPECT_EQ("old\n" + full, restored(full));
  EXPECT_EQ("old\n" + full + "y", restored(full + "y"));
  EXPECT_EQ("old\n" + full + full + full + "end\n", restored(full + full + full + "end\n"));
  // What begins a chunk begins a line, and a NUL ends its chunk alone.
  EXPECT_EQ("old\n" + full + "next\n", restored(full + "-rest of a line\nnext\n"));
  EXPECT_EQ("old\na" + full, restored("a"s + std::string(LARGEST_TEXT - 1, '\0') + full));
}

TEST_F(PpsObject, TakesEachChunkInOneWrite) {
  // Every write to it replaces the name of this process, which keeps 15 characters.
  const std::string name = "/proc/self/comm";
  EXPECT_TRUE(test::passes_in_child([&] {
    restore(TarBuilder().file("/x", "ab\n[n]x\ncd\n-y\nef\n").text(), name);
    EXPECT_EQ("ab\ncd\nef\n\n", test::read_file(name));
    restore(TarBuilder().file("/x", std::string(LARGEST_TEXT, 'x')).text(), name);
    EXPECT_EQ("xxxxxxxxxxxxxxx\n", test::read_file(name));
    restore(TarBuilder().file("/x", std::string(LARGEST_TEXT, 'x') + "1\n2\n").text(), name);
    EXPECT_EQ("1\n2\n\n", test::read_file(name));
    // Nothing left of a chunk is nothing written.
    restore(TarBuilder().file("/x", std::string(LARGEST_TEXT, 'x') + "-1\n").text(), name);
    EXPECT_EQ("xxxxxxxxxxxxxxx\n", test::read_file(name));
  }));
}

TEST_F(PpsObject, MustExistToBeRestoredEvenFromNothing) {
  for (const char* data : {"a::1\n", ""}) {
    const long before = open_descriptors();
    EXPECT_EQ("restore_pps failed [errno:2 'No such file or directory']", message_of<fs::Exception>([&] {
                restore(TarBuilder().file("/settings/pps/x", data).text(), object_);
              }));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_FALSE(std::filesystem::exists(object_));
  }
  EXPECT_EQ("restore_pps failed [errno:21 'Is a directory']", message_of<fs::Exception>([&] {
              restore(TarBuilder().file("/settings/pps/x", "").text(), folder_.path());
            }));
}

TEST_F(PpsObject, ThatDoesNotTakeWhatItIsGivenIsToldOf) {
  EXPECT_EQ("restore_pps failed [errno:28 'No space left on device']", message_of<fs::Exception>([&] {
              restore(TarBuilder().file("/settings/pps/x", "a::1\n").text(), "/dev/full");
            }));
}

TEST_F(PpsObject, FromADamagedArchiveGetsTheWholeChunksBeforeTheDamage) {
  const std::string full(LARGEST_TEXT, 'x');
  struct Row {
    std::string data;
    std::size_t claimed;
    std::string result;
  };
  for (const Row& row : {Row{"a::1\n", 5000, "old\n"}, Row{full, LARGEST_TEXT + 5000, "old\n" + full},
                         Row{full + std::string(512, 'y'), LARGEST_TEXT + 5000, "old\n" + full}}) {
    test::write_file(object_, "old\n");
    const long before = open_descriptors();
    const test::RecordedLog log;
    const test::CapturedOutput errors(STDERR_FILENO);
    const long with_capture = open_descriptors();
    const TarBuilder archive = TarBuilder().add(TarBuilder::FILE, "/x", row.data, 0660, "", row.claimed);
    EXPECT_EQ("Error restore_pps",
              message_of<std::runtime_error>([&] { restore(archive.truncated_text(), object_); }));
    EXPECT_EQ(with_capture, open_descriptors()) << before;
    EXPECT_EQ("Error: Truncated tar archive\n", errors.text());
    EXPECT_EQ((std::vector<std::string>{"2 Archive status not OK (-30) ('Truncated tar archive')"}),
              log.messages());
    EXPECT_EQ(row.result, test::read_file(object_));
  }
}

}  // namespace
