#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/writer.h"
#include "tests/support/archive.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::File;
using fs::Path;

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

  TemporaryFolder folder_;
  std::string archive_ = folder_ / "a.tar";
};

TEST_F(HeaderOnly, MeasuresWhatTheWholeArchiveWouldHold) {
  const std::vector<std::vector<std::string>> selections{{},    {"empty"}, {"f"},
                                                         {"l"}, {"d"},     {"f", "l", "d", "empty", "f"}};
  for (const std::vector<std::string>& names : selections) {
    EXPECT_EQ(measured(names, false), measured(names, true)) << names.size();
  }
  EXPECT_EQ(measured({"f"}, false), 512 + 1024 + 1024);
}

TEST_F(HeaderOnly, KeepsStatusAndLinkTargetAndHasZerosForContents) {
  Writer writer(archive_);
  for (const char* name : {"f", "l", "d"}) add_header(writer, name);
  writer.close();
  Reader reader(archive_);
  std::optional<harbix::EntryView> entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name()->text(), "/settings/f");
  EXPECT_EQ(entry->destination(Path("x")).record().st_mode, S_IFREG | 0640U);
  EXPECT_EQ(entry->destination(Path("x")).record().st_uid, 4001U);
  EXPECT_EQ(reader.data(), std::string(513, '\0'));
  entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name()->text(), "/settings/l");
  EXPECT_EQ(entry->link_target(), "target");
  entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->destination(Path("x")).record().st_mode, S_IFDIR | 0750U);
  EXPECT_FALSE(reader.next_header());
}

TEST_F(HeaderOnly, NeedsNotToReadTheFile) {
  const File gone{Path(folder_ / "f")};
  std::filesystem::remove(folder_ / "f");
  Writer writer("/dev/null");
  writer.write_header_only(gone, "", "/settings/f");
  writer.close();
  EXPECT_EQ(writer.compressed_position(), 512 + 1024 + 1024);
}

}  // namespace
}  // namespace harbix::test
