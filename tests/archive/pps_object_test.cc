#include "archive/pps_object.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/error.h"
#include "fs/exception.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tar_builder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::File;
using fs::Path;
using harbix::persistent_lines;

using namespace std::string_literals;

using Texts = std::vector<std::string>;

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
  for (const Row& row : rows) EXPECT_EQ(persistent_lines(row.text), row.kept) << printable(row.text);
}

TEST(PersistentLines, StayAsTheyAreTheSecondTime) {
  const std::string once = persistent_lines("-a\n[n]-b\n[n\n-\n]c\n\n-[n]\nd");
  EXPECT_EQ(once, "[n\n]c\n\nd");
  EXPECT_EQ(persistent_lines(once), once);
}

class PpsObject : public ::testing::Test {
 protected:
  static void store(Writer& writer, const std::string& path) {
    fs::Folder root("/");
    harbix::write_pps_object(writer, root, fs::File(Path(path), {}), "/settings/pps/x");
  }
  /// Stores an object with this text and returns what the archive holds of it.
  std::string stored(const std::string& text) {
    write_file(object_, text);
    Writer writer(archive_);
    store(writer, object_);
    writer.close();
    Reader reader(archive_);
    const std::optional<harbix::EntryView> entry = reader.next_header();
    if (!entry) return "(no entry)";
    const auto size = static_cast<std::size_t>(entry->size());
    std::string data = reader.data();
    EXPECT_EQ(data.size(), size);
    EXPECT_FALSE(reader.next_header());
    return data;
  }

  void restore(const std::string& archive, const std::string& path) {
    write_file(archive_, archive);
    Reader reader(archive_);
    const std::optional<harbix::EntryView> entry = reader.next_header();
    ASSERT_TRUE(entry);
    harbix::restore_pps_object(reader, *entry, Path(path));
  }
  /// What an object that held "old\n" holds after it was restored from an entry with this data.
  std::string restored(const std::string& data) {
    write_file(object_, "old\n");
    restore(TarBuilder().file("/settings/pps/x", data).text(), object_);
    return read_file(object_);
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
    EXPECT_EQ(stored(row.text), row.stored) << printable(row.text);
  }
}

TEST_F(PpsObject, IsStoredUpToItsLargestText) {
  const std::string line(1023, 'x');
  std::string text;
  while (text.size() < LARGEST_TEXT) text += line + "\n";
  ASSERT_EQ(text.size(), LARGEST_TEXT);
  EXPECT_EQ(stored(text), text);
  EXPECT_EQ(stored(text + "y"), text);
  EXPECT_EQ(stored(text + std::string(100000, 'y')), text);
  EXPECT_EQ(stored(text.substr(1)), text.substr(1));
  // The limit is that of what is read, not of what is left of it.
  EXPECT_EQ(stored("-" + text.substr(1) + "more\n"), text.substr(1024));
  // What is cut off is cut before the lines are looked at.
  EXPECT_EQ(stored(text.substr(2) + "a\n-b\n"), text.substr(2) + "a\n");
}

TEST_F(PpsObject, IsStoredWithItsStatusAndTheSizeOfItsText) {
  write_file(object_, "a::1\n-gone\n");
  ASSERT_EQ(::chmod(object_.c_str(), 0640), 0);
  ASSERT_EQ(::chown(object_.c_str(), 4001, 4002), 0);
  const File object{Path(object_)};
  Writer writer(archive_);
  store(writer, object_);
  writer.close();
  Reader reader(archive_);
  const std::optional<harbix::EntryView> entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name()->text(), "/settings/pps/x");
  const struct ::stat record = entry->destination(Path("x")).record();
  EXPECT_EQ(record.st_mode, S_IFREG | 0640U);
  EXPECT_EQ(record.st_uid, 4001U);
  EXPECT_EQ(record.st_gid, 4002U);
  EXPECT_EQ(record.st_size, 5);
  EXPECT_EQ(record.st_mtim.tv_sec, object.record().st_mtim.tv_sec);
}

TEST_F(PpsObject, ThatMayBeLongerThanOneReadIsReportedAsCut) {
  struct Row {
    std::string text;
    bool is_cut;
  };
  for (const Row& row : {Row{std::string(32767, 'x'), false}, Row{std::string(32768, 'x'), true},
                         Row{std::string("a::1\n\0b::2\n", 11), true}, Row{"a::1\n", false}}) {
    write_file(object_, row.text);
    const RecordedLog log(1);
    const CapturedOutput errors(STDERR_FILENO);
    Writer writer(archive_);
    store(writer, object_);
    writer.close();
    const std::string name = "PPS object '" + object_ + "' was cut in the archive";
    EXPECT_EQ(errors.text(), row.is_cut ? "Warning: " + name + "\n" : "");
    EXPECT_EQ(log.messages(), row.is_cut ? Texts{"3 " + name} : Texts{});
  }
}

TEST_F(PpsObject, ThatCannotBeReadLeavesNoEntry) {
  write_file(object_, "a::1\n");
  std::filesystem::remove(object_);
  const long before = open_descriptors();
  {
    Writer writer(archive_);
    EXPECT_EQ(message_of<std::runtime_error>([&] { store(writer, object_); }),
              "Error opening: " + object_ + ": No such file or directory");
    EXPECT_EQ(message_of<fs::Exception>([&] { store(writer, folder_.path()); }),
              "Error reading pps object [errno:21 'Is a directory']");
    writer.close();
  }
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_TRUE(Reader(archive_).names().empty());
}

TEST_F(PpsObject, ThatTheArchiveHasNoRoomForIsAnErrorOfTheArchive) {
  write_file(object_, std::string(LARGEST_TEXT, 'x'));
  Writer writer("/dev/full");
  EXPECT_EQ(message_of<harbix::ArchiveError>([&] {
              for (int i = 0; i < 100; ++i) store(writer, object_);
            }).substr(0, 15),
            "Archive error: ");
}

TEST_F(PpsObject, IsAppendedToWithoutWhatMustNotTravel) {
  struct Row {
    std::string data, result;
  };
  for (const Row& row : {Row{"a::1\n", "old\na::1\n"}, Row{"a::1\n[n]b::2\n-c\n", "old\na::1\n"},
                         Row{"a::1\nb", "old\na::1\nb"}, Row{"-a\n", "old\n"}, Row{"", "old\n"},
                         Row{"a\n\0b\n"s, "old\na\n"}, Row{"\0"s, "old\n"}}) {
    EXPECT_EQ(restored(row.data), row.result) << printable(row.data);
  }
}

TEST_F(PpsObject, IsRestoredInChunksAndFilteredAcrossTheirEdges) {
  const std::string full(LARGEST_TEXT, 'x');
  EXPECT_EQ(restored(full), "old\n" + full);
  EXPECT_EQ(restored(full + "y"), "old\n" + full + "y");
  EXPECT_EQ(restored(full + full + full + "end\n"), "old\n" + full + full + full + "end\n");
  // What begins a chunk is the rest of a line, and a NUL ends its chunk alone.
  EXPECT_EQ(restored(full + "-rest of a line\nnext\n"), "old\n" + full + "-rest of a line\nnext\n");
  const std::string line = std::string(LARGEST_TEXT - 3, 'x');
  for (const std::string filler : {"\n", "y\n", "yy\n"})
    EXPECT_EQ(restored(line + filler + "[n]not persistent\nnext\n"), "old\n" + line + filler + "next\n");
  for (const std::string end : {"[", "[n", "[x", "[nx"})
    EXPECT_EQ(restored(line + "\n" + end), "old\n" + line + "\n" + end);
  EXPECT_EQ(restored("a"s + std::string(LARGEST_TEXT - 1, '\0') + full), "old\na" + full);
}

TEST_F(PpsObject, TakesEachChunkInOneWrite) {
  // Every write to it replaces the name of this process, which keeps 15 characters.
  const std::string name = "/proc/self/comm";
  EXPECT_TRUE(passes_in_child([&] {
    restore(TarBuilder().file("/x", "ab\n[n]x\ncd\n-y\nef\n").text(), name);
    EXPECT_EQ(read_file(name), "ab\ncd\nef\n\n");
    restore(TarBuilder().file("/x", std::string(LARGEST_TEXT, 'x')).text(), name);
    EXPECT_EQ(read_file(name), "xxxxxxxxxxxxxxx\n");
    restore(TarBuilder().file("/x", std::string(LARGEST_TEXT, 'x') + "1\n2\n").text(), name);
    EXPECT_EQ(read_file(name), "1\n2\n\n");
    // Nothing left of a chunk is nothing written.
    restore(TarBuilder().file("/x", std::string(LARGEST_TEXT - 1, 'x') + "\n-1\n").text(), name);
    EXPECT_EQ(read_file(name), "xxxxxxxxxxxxxxx\n");
  }));
}

TEST_F(PpsObject, OfMoreThanOneMebibyteIsRefused) {
  write_file(object_, "old\n");
  EXPECT_EQ(message_of<std::runtime_error>([this] {
              restore(TarBuilder().add(TarBuilder::FILE, "/x", "a", 0660, "", (1U << 20) + 1).text(),
                      object_);
            }),
            "PPS object of more than 1 MiB");
  EXPECT_EQ(read_file(object_), "old\n");
}

TEST_F(PpsObject, MustExistToBeRestoredEvenFromNothing) {
  for (const char* data : {"a::1\n", ""}) {
    const long before = open_descriptors();
    EXPECT_EQ(message_of<fs::Exception>(
                  [&] { restore(TarBuilder().file("/settings/pps/x", data).text(), object_); }),
              "restore_pps failed [errno:2 'No such file or directory']");
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_FALSE(std::filesystem::exists(object_));
  }
  EXPECT_EQ(message_of<fs::Exception>(
                [&] { restore(TarBuilder().file("/settings/pps/x", "").text(), folder_.path()); }),
            "restore_pps failed [errno:21 'Is a directory']");
}

TEST_F(PpsObject, ThatDoesNotTakeWhatItIsGivenIsToldOf) {
  EXPECT_EQ(message_of<fs::Exception>(
                [&] { restore(TarBuilder().file("/settings/pps/x", "a::1\n").text(), "/dev/full"); }),
            "restore_pps failed [errno:28 'No space left on device']");
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
    write_file(object_, "old\n");
    const long before = open_descriptors();
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    const long with_capture = open_descriptors();
    const TarBuilder archive = TarBuilder().add(TarBuilder::FILE, "/x", row.data, 0660, "", row.claimed);
    EXPECT_EQ(message_of<std::runtime_error>([&] { restore(archive.truncated_text(), object_); }),
              "Error restore_pps");
    EXPECT_EQ(open_descriptors(), with_capture) << before;
    EXPECT_EQ(errors.text(), "Error: Truncated tar archive\n");
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{"2 Archive status not OK (-30) ('Truncated tar archive')"}));
    EXPECT_EQ(read_file(object_), row.result);
  }
}

}  // namespace
}  // namespace harbix::test
