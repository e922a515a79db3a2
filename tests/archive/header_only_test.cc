#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "archive/writer.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::File;
using fs::Path;
using test::dir;
using test::file;
using test::link;
using test::message_of;
using test::Tree;
using test::Writer;

/// Archives of headers alone, that are only measured.
class HeaderOnly : public ::testing::Test {
 protected:
  void SetUp() override {
    Tree{file("empty"), file("f", std::string(513, 'x'), 0640).owned_by(4001, 4002), link("l", "target"),
         dir("d", {}, 0750)}
        .build(folder_.path());
  }
  void add_header(Writer& writer, const std::string& name) {
    const File item{Path(folder_ / name)};
    writer.write_header_only(item, item.is_symbolic_link() ? "target" : "", Path("/settings/" + name));
  }
  [[nodiscard]] std::int64_t measured(const std::vector<std::string>& names, bool with_contents) {
    Writer writer("/dev/null");
    for (const std::string& name : names) {
      if (with_contents) {
        writer.add(folder_ / name, "/settings/" + name);
      } else {
        add_header(writer, name);
      }
    }
    writer.close();
    return writer.compressed_position();
  }

  test::TemporaryFolder folder_;
  std::string archive_ = folder_ / "a.tar";
};

TEST_F(HeaderOnly, MeasuresWhatTheWholeArchiveWouldHold) {
  const std::vector<std::vector<std::string>> selections{{},    {"empty"}, {"f"},
                                                         {"l"}, {"d"},     {"f", "l", "d", "empty", "f"}};
  for (const std::vector<std::string>& names : selections) {
    EXPECT_EQ(measured(names, true), measured(names, false)) << names.size();
  }
  EXPECT_EQ(512 + 1024 + 1024, measured({"f"}, false));
}

TEST_F(HeaderOnly, KeepsStatusAndLinkTargetAndHasZerosForContents) {
  Writer writer(archive_);
  for (const char* name : {"f", "l", "d"}) add_header(writer, name);
  writer.close();
  test::Reader reader(archive_);
  std::optional<harbix::EntryView> entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ("/settings/f", entry->name()->text());
  EXPECT_EQ(S_IFREG | 0640U, entry->destination(Path("x")).record().st_mode);
  EXPECT_EQ(4001U, entry->destination(Path("x")).record().st_uid);
  EXPECT_EQ(std::string(513, '\0'), reader.data());
  entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ("/settings/l", entry->name()->text());
  EXPECT_EQ("target", entry->link_target());
  entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(S_IFDIR | 0750U, entry->destination(Path("x")).record().st_mode);
  EXPECT_FALSE(reader.next_header());
}

TEST_F(HeaderOnly, NeedsNotToReadTheFile) {
  const File gone{Path(folder_ / "f")};
  std::filesystem::remove(folder_ / "f");
  Writer writer("/dev/null");
  writer.write_header_only(gone, "", "/settings/f");
  writer.close();
  EXPECT_EQ(512 + 1024 + 1024, writer.compressed_position());
}

}  // namespace
