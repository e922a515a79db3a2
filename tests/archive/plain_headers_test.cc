#include "archive/plain_headers.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/archive.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using harbix::InputFile;
using harbix::PlainHeader;
using harbix::PlainHeaders;

using Names = std::vector<std::string>;

constexpr std::int64_t RECORD_SIZE = 512;

class PlainHeadersTest : public ArchiveReaderTest {
 protected:
  struct Result {
    Names names;
    std::int64_t end;
  };

  Result walk(const std::string& bytes) {
    const InputFile input(archive(bytes));
    PlainHeaders headers(input);
    Names names;
    while (const std::optional<PlainHeader> header = headers.next()) {
      names.push_back(header->name + (header->is_file ? " " + std::to_string(header->size) : ""));
    }
    return {names, headers.end()};
  }
};

TEST_F(PlainHeadersTest, AreReadUpToTheLastEntryOfAWholeArchive) {
  TarBuilder tar;
  tar.file("/media/a", "text").file("/media/b", std::string(1000, 'b')).folder("/media/c/").link("/l", "a");
  const Result result = walk(tar.file("/last", "").text());
  EXPECT_EQ(result.names, (Names{"/media/a 4", "/media/b 1000", "/media/c/", "/l"}));
  EXPECT_EQ(result.end, 7 * RECORD_SIZE);
}

TEST_F(PlainHeadersTest, StopAtTheEntryBeforeWhatOnlyTheLibraryKnows) {
  const std::string plain = TarBuilder().file("/a", "1").file("/b", "2").truncated_text();
  const std::string last = TarBuilder().file("/c", "3").file("/d", "4").text();
  std::string damaged = last;
  damaged[5] ^= 1;
  std::string in_base_256 = last;
  in_base_256[124] = '\x80';
  for (const std::string& rest :
       {TarBuilder().add('x', "PaxHeader", "9 path=ab").truncated_text() + last,
        TarBuilder().add('x', "PaxHeader", "path=a\n").truncated_text() + last,
        TarBuilder().add('x', "PaxHeader", "7 path\n").truncated_text() + last,
        TarBuilder().add('x', "PaxHeader", "8 path=\n").truncated_text() + last,
        TarBuilder().add('x', "PaxHeader", std::string("10 path=\0\n", 10)).truncated_text() + last,
        TarBuilder().add('x', "PaxHeader", "11 size=1e\n").truncated_text() + last,
        TarBuilder().add('x', "PaxHeader", "11 size=-1\n").truncated_text() + last,
        TarBuilder().add('x', "PaxHeader", "22 GNU.sparse.major=1\n").truncated_text() + last,
        TarBuilder().add('x', "PaxHeader", "10 path=a\n" + std::string(3000, '1')).truncated_text() + last,
        TarBuilder().add('g', "PaxHeader", "10 path=a\n").truncated_text() + last,
        TarBuilder().add('L', "././@LongLink", "name").truncated_text() + last,
        TarBuilder().add(TarBuilder::HARD_LINK, "/h", "", 0660, "/a").text(), damaged, in_base_256,
        std::string(1024, '\0'), std::string(), last.substr(0, 511)}) {
    const Result result = walk(plain + rest);
    EXPECT_EQ(result.names, (Names{"/a 1"}));
    EXPECT_EQ(result.end, 2 * RECORD_SIZE);
  }
}

TEST_F(PlainHeadersTest, TakeWhatDoesNotFitFromTheExtendedHeaderInFront) {
  TarBuilder tar;
  tar.add('x', "PaxHeader",
          "15 path=/m/\xc3\xa9"
          "a\n17 uid=100001000\n")
      .file("cut", "text");
  tar.add('x', "PaxHeader", "17 linkpath=long\n").link("/m/link", "cut").file("/m/b", "b");
  const Result result = walk(tar.add('x', "PaxHeader", "").file("/last", "").text());
  EXPECT_EQ(result.names, (Names{"/m/\xc3\xa9"
                                 "a 4",
                                 "/m/link", "/m/b 1"}));
  EXPECT_EQ(result.end, 9 * RECORD_SIZE);
}

TEST_F(PlainHeadersTest, TakeTheSizeOfTheDataFromTheExtendedHeader) {
  const std::string larger = TarBuilder().add('x', "PaxHeader", "12 size=600\n").truncated_text();
  // By itself the header says 512, and another one lies where its data would end.
  const std::string bytes = larger + TarBuilder().file("/a", std::string(512, 'a')).truncated_text() +
                            TarBuilder().file("/in the data", "").file("/b", "").text();
  EXPECT_EQ(walk(bytes).names, (Names{"/a 600"}));
}

TEST_F(PlainHeadersTest, AreNotFoundInWhatIsNoTar) {
  for (const std::string& bytes : {std::string(), std::string("text"), std::string(5000, 'x')}) {
    const Result result = walk(bytes);
    EXPECT_EQ(result.names, Names{});
    EXPECT_EQ(result.end, 0);
  }
}

TEST_F(PlainHeadersTest, GiveNamesOfTwoFieldsInFull) {
  const std::string name = "/media/" + std::string(90, 'd') + "/" + std::string(90, 'f');
  {
    harbix::ArchiveWriter writer(archive_);
    struct ::stat record {};
    record.st_mode = S_IFREG | 0660;
    for (int i = 0; i < 2; ++i) writer.write_text(fs::Path(name), record, "");
    writer.close();
  }
  const InputFile input(archive_);
  const std::optional<PlainHeader> header = PlainHeaders(input).next();
  ASSERT_TRUE(header);
  EXPECT_EQ(header->name, name);
}

}  // namespace
}  // namespace harbix::test
