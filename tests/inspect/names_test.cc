#include "inspect/names.h"

#include <string>

#include <gtest/gtest.h>

namespace harbix::inspect {
namespace {

TEST(ShownName, HasNoControlCharacterAndNoByteThatIsNoText) {
  struct Row {
    std::string name;
    const char* text;
  };
  for (const Row& row :
       {Row{"/media/Music", "/media/Music"}, Row{"a\nb\tc", "a\\nb\\tc"}, Row{"\033[31m", "\\033[31m"},
        Row{"\177", "\\177"}, Row{"a\\b", "a\\\\b"},
        Row{"caf\xc3\xa9 \xe6\x9d\xb1 \xf0\x9f\x8e\xb5", "caf\xc3\xa9 \xe6\x9d\xb1 \xf0\x9f\x8e\xb5"},
        Row{"caf\xe9", "caf\\351"},
        Row{"\xc2\x9b"
            "31m",
            "\\302\\23331m"},
        Row{"a\xe2\x80\xae"
            "b",
            "a\\342\\200\\256b"},
        Row{"\xc0\x80", "\\300\\200"}, Row{"\xed\xa0\x80", "\\355\\240\\200"},
        Row{"\xf4\x90\x80\x80", "\\364\\220\\200\\200"}, Row{"\xe6\x9d", "\\346\\235"},
        Row{std::string("a\0b", 3), "a\\000b"}}) {
    EXPECT_EQ(shown(row.name), row.text);
  }
}

TEST(Utf8, IsWithoutFlaw) {
  for (const char* text : {"", "a", "\xc3\xa9", "\xef\xbf\xbd", "\xf4\x8f\xbf\xbf", "\033"})
    EXPECT_TRUE(is_utf8(text)) << text;
  for (const char* text : {"\xff", "\xc3", "a\xa9", "\xc1\xbf", "\xed\xbf\xbf", "\xf5\x80\x80\x80"})
    EXPECT_FALSE(is_utf8(text)) << text;
}

TEST(Base64, IsThatOfTheStandard) {
  struct Row {
    const char* bytes;
    const char* text;
  };
  for (const Row& row : {Row{"", ""}, Row{"f", "Zg=="}, Row{"fo", "Zm8="}, Row{"foo", "Zm9v"},
                         Row{"foobar", "Zm9vYmFy"}, Row{"\xff\xfe", "//4="}}) {
    EXPECT_EQ(base64(row.bytes), row.text);
  }
}

}  // namespace
}  // namespace harbix::inspect
