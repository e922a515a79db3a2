#include "archive/manifest.h"

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/archive.h"

namespace meta {

// Shown by the checks below.
void PrintTo(const Attribute& attribute, std::ostream* stream) {
  *stream << '{' << attribute.key << "}{" << attribute.value << '}';
}

}  // namespace meta

namespace harbix::test {
namespace {

using meta::Manifest;

Manifest parsed(const std::string& text) {
  std::istringstream stream(text);
  return meta::parse(stream);
}

TEST(ManifestText, IsALineAnAttributeAndAnEmptyLine) {
  struct Row {
    Manifest manifest;
    const char* text;
  };
  const std::vector<Row> rows{{{}, "\n"},
                              {{{"Name", "x"}, {"Dir", "a/b"}}, "Name: x\nDir: a/b\n\n"},
                              {{{"", "never seen"}, {"A", "1"}}, "\nA: 1\n\n"},
                              {{{"A", ""}}, "A: \n\n"},
                              {{{"A", "1"}, {"A", "2"}}, "A: 1\nA: 2\n\n"},
                              {{{"File", "3\n/a"}}, "File: 3\n/a\n\n"}};
  for (const Row& row : rows) EXPECT_EQ(meta::to_text(row.manifest), row.text);
}

TEST(ManifestText, IsReadByTheRules) {
  struct Row {
    const char* what;
    std::string text;
    Manifest manifest;
  };
  const std::vector<Row> rows{
      {"nothing", "", {}},
      {"the empty line alone", "\n", {}},
      {"two attributes", "Name: x\nDir: a/b\n\n", {{"Name", "x"}, {"Dir", "a/b"}}},
      {"no newline at the end", "Name: x", {{"Name", "x"}}},
      {"no blank behind the colon", "Name:x\n", {{"Name", "x"}}},
      {"white space before the value goes", "Name: \t x\n", {{"Name", "x"}}},
      {"white space behind the value stays", "Name: x \t\n", {{"Name", "x \t"}}},
      {"blanks before the colon stay in the key", "Name  : x\n", {{"Name  ", "x"}}},
      {"a colon in the value stays", "Name: a:b\n", {{"Name", "a:b"}}},
      {"a continuation keeps its blank", "Name: x\n y\n", {{"Name", "x y"}}},
      {"several continuations", "Name: x\n y\n  z\nDir: d\n", {{"Name", "x y  z"}, {"Dir", "d"}}},
      {"a tab does not continue; white space before the next key goes",
       "Name: x\n\tDir: d\n",
       {{"Name", "x"}, {"Dir", "d"}}},
      {"blank lines between attributes go", "Name: x\n\n\nDir: d\n", {{"Name", "x"}, {"Dir", "d"}}},
      {"a beginning with white space is dropped up to its colon", " lost:x\nDir: d\n", {{"x\nDir", "d"}}},
      {"and what begins with white space behind that colon as well", "\tlost: x\nDir: d\n", {}},
      {"an empty key is dropped", ": x: y\n", {}},
      {"a line without a colon joins the next key", "lost\nDir: d\n", {{"lost\nDir", "d"}}},
      {"a key at the end of the text is nothing", "Name: x\nDir", {{"Name", "x"}}},
      {"a key whose colon ends the text has an empty value", "Name:", {{"Name", ""}}},
      {"an empty value takes the next line", "Name: \nDir: d\n", {{"Name", "Dir: d"}}},
      {"repeated keys stay", "A: 1\nA: 2\n", {{"A", "1"}, {"A", "2"}}},
      {"order stays", "B: 1\nA: 2\n", {{"B", "1"}, {"A", "2"}}},
      {"a two-line value leaves its second line in the next key",
       "File: 3\n/a\nFile: 4\n/b\n\n",
       {{"File", "3"}, {"/a\nFile", "4"}}},
      {"bytes are bytes", std::string("A: \xFF\0\xC3\xA9\n", 8), {{"A", std::string("\xFF\0\xC3\xA9", 4)}}},
      {"a carriage return stays", "A: 1\r\n", {{"A", "1\r"}}}};
  for (const Row& row : rows) EXPECT_EQ(parsed(row.text), row.manifest) << row.what;
}

TEST(ManifestText, ComesBackAsItWasWritten) {
  const std::vector<Manifest> manifests{
      {{"Name", "x"}, {"Dir", "a/b"}},
      {{"Package", "a"}, {"File", "1 100644 0 0 5 /a b:c"}, {"File", "2 100644 0 0 5 /d"}},
      {{"A", "b: c"}, {"A", "trailing "}},
  };
  for (const Manifest& manifest : manifests) EXPECT_EQ(parsed(meta::to_text(manifest)), manifest);
}

TEST(ManifestText, OfManyAttributesComesBackInOrder) {
  Manifest manifest;
  for (int i = 0; i < 5000; ++i)
    manifest.push_back({"Key" + std::to_string(i), "value " + std::to_string(i)});
  EXPECT_TRUE(manifest == parsed(meta::to_text(manifest)));
}

TEST(ManifestText, WithAnAttributeOfAnyLengthComesBack) {
  for (const std::size_t size : {4094U, 4095U, 4096U, 4097U, 8190U, 8191U, 1U << 20U}) {
    const Manifest manifest{{std::string(size, 'k'), std::string(size, 'v')}, {"Next", "one"}};
    EXPECT_TRUE(parsed(meta::to_text(manifest)) == manifest) << size;
    EXPECT_TRUE(parsed("A: " + std::string(size, 'v')) == (Manifest{{"A", std::string(size, 'v')}})) << size;
  }
}

TEST(ManifestText, WithAnAttributeOfMoreThanAMebibyteIsMalformed) {
  const std::string much(1 << 19, 'x');
  for (const std::string& text : {much + much + "x: y\n", "K: " + much + much + "x\n",
                                  "K: " + much + "\n " + much + "\n", much + '\n' + much + ":y\n"}) {
    EXPECT_EQ(message_of<meta::malformed_manifest>([&] { static_cast<void>(parsed(text)); }),
              "Manifest with an attribute of more than 1 MiB");
  }
}

TEST(ManifestText, HoldsTwoMillionAttributesAndNoMore) {
  std::string text;
  for (std::size_t i = 0; i < meta::MOST_ATTRIBUTES; ++i) text += "k:v\n";
  std::istringstream most(text);
  EXPECT_EQ(meta::parse(most).size(), 2'000'000U);
  std::istringstream more(text + "k:v\n");
  EXPECT_EQ(message_of<meta::malformed_manifest>([&] { static_cast<void>(meta::parse(more)); }),
            "Manifest of more than 2000000 attributes");
}

TEST(ManifestText, ThatCannotBeReadThrows) {
  std::istringstream stream("Name: x\n");
  stream.setstate(std::ios::badbit);
  EXPECT_THROW(static_cast<void>(meta::parse(stream)), std::ios_base::failure);
}

TEST(ManifestLookUp, TakesTheFirstOfItsKey) {
  const Manifest manifest{{"A", "1"}, {"B", "2"}, {"A", "3"}};
  EXPECT_EQ(meta::look_up(manifest, "A"), "1");
  EXPECT_EQ(meta::look_up(manifest, "B"), "2");
}

TEST(ManifestLookUp, NamesTheKeyThatIsMissing) {
  const Manifest manifest{{"A", "1"}};
  for (const std::string key : {"a", "", "A "}) {
    EXPECT_EQ(message_of<std::runtime_error>([&] { static_cast<void>(meta::look_up(manifest, key)); }),
              "Key " + key + " not found.");
  }
}

}  // namespace
}  // namespace harbix::test
