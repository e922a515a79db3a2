#include "archive/plain_header.h"

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include "tests/support/archive.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::is_plain_header;

struct ::stat plain_status() {
  struct ::stat record {};
  record.st_mode = S_IFREG | 0640U;
  record.st_uid = 1001;
  record.st_gid = 10000;
  record.st_size = 4;
  record.st_mtim = {.tv_sec = 1700000000, .tv_nsec = 123456789};
  record.st_nlink = 2;
  return record;
}

/// A path of so many bytes, folders of one letter in it.
std::string prefix(std::size_t size) {
  std::string text;
  while (text.size() < size) text += text.size() % 2 == 0 ? '/' : 'f';
  if (text.ends_with('/')) text.back() = 'f';
  return text;
}

struct Row {
  std::string what;
  bool plain;
  struct ::stat record;
  std::string name;
};

/// One thing each that differs from a plain header, on both sides of the limit.
std::vector<Row> rows() {
  std::vector<Row> rows;
  const auto add = [&rows](const std::string& what, bool plain, const auto& change) {
    Row row{what, plain, plain_status(), "/media/name"};
    change(row);
    rows.push_back(row);
  };
  add("as it is", true, [](Row&) {});
  add("set-id bits", true, [](Row& row) { row.record.st_mode |= 06000U; });
  add("longest name", true, [](Row& row) { row.name = "/" + std::string(99, 'n'); });
  add("longer name", false, [](Row& row) { row.name = "/" + std::string(100, 'n'); });
  add("longer name in folders", true, [](Row& row) { row.name = "/a/" + std::string(99, 'n'); });
  add("longest name in folders", true,
      [](Row& row) { row.name = prefix(155) + "/" + std::string(100, 'n'); });
  add("longer name behind the prefix", false,
      [](Row& row) { row.name = prefix(155) + "/" + std::string(101, 'n'); });
  add("longer prefix", false, [](Row& row) { row.name = prefix(156) + "/" + std::string(100, 'n'); });
  add("longer prefix in short folders", true, [](Row& row) { row.name = prefix(200) + "/n"; });
  add("name without a prefix", false, [](Row& row) { row.name = std::string(101, 'n'); });
  add("control characters", true, [](Row& row) { row.name = "/media/\x01\n\x7f"; });
  add("accented name", false, [](Row& row) { row.name = "/media/\xC3\xA9"; });
  add("name that is not UTF-8", false, [](Row& row) { row.name = "/media/\xFF"; });
  add("largest owner", true, [](Row& row) { row.record.st_uid = 0777777; });
  add("larger owner", false, [](Row& row) { row.record.st_uid = 01000000; });
  add("largest group", true, [](Row& row) { row.record.st_gid = 0777777; });
  add("larger group", false, [](Row& row) { row.record.st_gid = 01000000; });
  add("first time", true, [](Row& row) { row.record.st_mtim.tv_sec = 0; });
  add("earlier time", false, [](Row& row) { row.record.st_mtim.tv_sec = -1; });
  add("last time", true, [](Row& row) { row.record.st_mtim.tv_sec = INT32_MAX - 1; });
  add("later time", false, [](Row& row) { row.record.st_mtim.tv_sec = INT32_MAX; });
  add("folder", false, [](Row& row) { row.record.st_mode = S_IFDIR | 0750U; });
  return rows;
}

/// The archive of one entry as the library's pax format makes it, with the end mark.
std::string pax_archive(const Row& row, const std::string& text) {
  std::vector<char> buffer(16384);
  std::size_t used = 0;
  ::archive* handle = ::archive_write_new();
  ::archive_write_set_format_pax_restricted(handle);
  ::archive_write_set_bytes_in_last_block(handle, 1);
  ::archive_write_open_memory(handle, buffer.data(), buffer.size(), &used);
  ::archive_entry* entry = ::archive_entry_new();
  ::archive_entry_copy_stat(entry, &row.record);
  ::archive_entry_set_pathname(entry, row.name.c_str());
  EXPECT_LE(ARCHIVE_WARN, ::archive_write_header(handle, entry)) << row.what;
  ::archive_write_data(handle, text.data(), text.size());
  ::archive_entry_free(entry);
  EXPECT_EQ(::archive_write_close(handle), ARCHIVE_OK);
  ::archive_write_free(handle);
  return {buffer.data(), used};
}

TEST(PlainHeader, IsOneThatFitsTheFieldsOfUstar) {
  for (const Row& row : rows()) EXPECT_EQ(is_plain_header(row.record, Path(row.name)), row.plain) << row.what;
}

TEST(PlainHeader, HasASizeOfElevenOctalDigits) {
  struct ::stat record = plain_status();
  record.st_size = 077777777777;
  EXPECT_TRUE(is_plain_header(record, Path("/n")));
  record.st_size += 1;
  EXPECT_FALSE(is_plain_header(record, Path("/n")));
}

TEST(PlainHeader, ChangesNoByteOfTheArchive) {
  const Utf8Names names;
  const TemporaryFolder folder;
  const std::string archive = folder / "a.tar";
  for (const Row& row : rows()) {
    const std::string text = S_ISREG(row.record.st_mode) ? "text" : "";
    Writer writer(archive);
    writer.write_text(Path(row.name), row.record, text);
    writer.close();
    EXPECT_TRUE(pax_archive(row, text) == read_file(archive)) << row.what;
  }
}

}  // namespace
}  // namespace harbix::test
