#include "settings/script_lists.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "base/flags.h"
#include "tests/settings/settings_device.h"
#include "tests/support/captured_output.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::begins_with_any;
using harbix::ScriptList;
using harbix::settings_script_list;

const std::string SCRIPT = std::string(SETTINGS_SCRIPTS) + "/1";
const std::string LOGGED = "script log: " + SCRIPT + ": ";

std::vector<std::string> texts(const std::vector<Path>& paths) {
  std::vector<std::string> texts;
  texts.reserve(paths.size());
  for (const Path& path : paths) texts.push_back(path.text());
  return texts;
}

using Texts = std::vector<std::string>;

class ScriptLists : public SettingsDevice {
 protected:
  struct Answer {
    Texts paths;
    std::string errors;
  };
  static Answer ask(ScriptList list) {
    const CapturedOutput errors(STDERR_FILENO);
    Texts paths = texts(settings_script_list(list));
    return {std::move(paths), errors.text()};
  }
  /// What one script with these commands makes of the whitelist, with what is reported of it.
  void expect(const std::string& commands, const Texts& paths, const std::string& errors) const {
    EXPECT_TRUE(on_the_device([&] {
      put_script("1", commands);
      const Answer answer = ask(ScriptList::WHITELIST);
      EXPECT_EQ(answer.paths, paths) << commands;
      EXPECT_EQ(answer.errors, errors) << commands;
    }));
  }
};

TEST_F(ScriptLists, AreWhatTheScriptsPrintForTheirTag) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", naming({"/a", "/b c"}, {"/x"}));
    put_script("2", naming({"/b c"}, {"/y", "/z"}));
    EXPECT_EQ(sorted_lines(ask(ScriptList::WHITELIST).paths), "/a\n/b c\n/b c\n");
    EXPECT_EQ(sorted_lines(ask(ScriptList::BLACKLIST).paths), "/x\n/y\n/z\n");
    EXPECT_EQ(read_file("/events"), "");
  }));
}

TEST_F(ScriptLists, ComeFromScriptsThatGetTheTagAsTheirOnlyArgument) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", "echo \"($#):$*\" >> /calls\n");
    EXPECT_EQ(ask(ScriptList::BLACKLIST).errors, "");
    EXPECT_EQ(ask(ScriptList::WHITELIST).errors, "");
    EXPECT_EQ(read_file("/calls"), "(1):blacklist\n(1):whitelist\n");
  }));
}

TEST_F(ScriptLists, TakeTheLinesApart) {
  const std::string bad = "Empty whitelist line or non-absolute path detected in " + SCRIPT + "\n";
  struct Row {
    const char* printed;  ///< as an argument of the shell's printf
    Texts paths;
    std::string errors;
  };
  const Row rows[] = {
      {"", {}, ""},
      {"whitelist /a\\n", {"/a"}, ""},
      {"whitelist /a", {"/a"}, ""},
      {"whitelist/a\\n", {"/a"}, ""},
      {R"(whitelist \t\r\f\v /a\n)", {"/a"}, ""},
      {"whitelist /\\n", {"/"}, ""},
      {"whitelist /a  \\n", {"/a  "}, ""},
      {"whitelist /a\\t\\n", {"/a\\t"}, ""},
      {"whitelist /a\\r\\n", {"/a\\r"}, ""},
      {"whitelist /a b\\n", {"/a b"}, ""},
      {"whitelist /a/../b//c\\n", {"/a/../b//c"}, ""},
      {R"(whitelist /\303\244\377\n)", {"/\\303"}, ""},
      {"whitelist /a whitelist /b\\n", {"/a whitelist /b"}, ""},
      {R"(whitelist /a\nwhitelist /b\nwhitelist /a\n)", {"/a", "/b", "/a"}, ""},
      {"whitelist\\n", {}, bad},
      {"whitelist", {}, bad},
      {"whitelist \\n", {}, bad},
      {"whitelist \\t \\n", {}, bad},
      {"whitelist relative/x\\n", {}, bad},
      {"whitelist ./x\\n", {}, bad},
      {"whitelisted /a\\n", {}, bad},
      {"whitelist: /a\\n", {}, bad},
      {"\\n", {}, LOGGED + "\n"},
      {"hello\\n", {}, LOGGED + "hello\n"},
      {"hello", {}, LOGGED + "hello"},
      {" whitelist /a\\n", {}, LOGGED + " whitelist /a\n"},
      {"blacklist /a\\n", {}, LOGGED + "blacklist /a\n"},
      {"Whitelist /a\\n", {}, LOGGED + "Whitelist /a\n"},
      {"whitelis\\n", {}, LOGGED + "whitelis\n"},
      {"/a\\n", {}, LOGGED + "/a\n"},
      {R"(x\nwhitelist /a\nwhitelist b\ny\n)", {"/a"}, LOGGED + "x\n" + bad + LOGGED + "y\n"},
  };
  for (Row row : rows) {
    // The escapes that a path keeps.
    for (std::string& path : row.paths) {
      if (path == "/\\303") path = "/\xC3\xA4\xFF";
      if (path.ends_with("\\t")) path.replace(path.size() - 2, 2, "\t");
      if (path.ends_with("\\r")) path.replace(path.size() - 2, 2, "\r");
    }
    expect("printf '" + std::string(row.printed) + "'\n", row.paths, row.errors);
  }
}

TEST_F(ScriptLists, TakeWhatScriptsSayOnStandardErrorAsWell) {
  expect("echo 'whitelist /a' >&2\necho oops >&2\n", {"/a"}, LOGGED + "oops\n");
}

TEST_F(ScriptLists, DoNotDependOnHowAScriptEnds) {
  expect("echo 'whitelist /a'\nexit 3\n", {"/a"}, "");
  // What the shell says of a killed script is in its own words.
  EXPECT_TRUE(on_the_device([] {
    put_script("1", "echo 'whitelist /a'\nkill -9 $$\n");
    put_script("2", "echo 'whitelist /b'\n");
    EXPECT_EQ(sorted_lines(ask(ScriptList::WHITELIST).paths), "/a\n/b\n");
  }));
}

TEST_F(ScriptLists, TakeLongLinesInPieces) {
  const std::string tag = "whitelist ";
  // 1,023 characters are a piece, the newline among them.
  const std::string fitting = "/" + std::string(1022 - tag.size() - 1, 'a');
  expect("echo '" + tag + fitting + "'\n", {fitting}, "");
  const std::string filling = fitting + "b";
  expect("echo '" + tag + filling + "'\n", {filling}, LOGGED + "\n");
  expect("echo '" + tag + filling + "rest'\necho 'whitelist /c'\n", {filling, "/c"}, LOGGED + "rest\n");
  expect("echo '" + std::string(2500, 'x') + "'\n", {},
         LOGGED + std::string(1023, 'x') + LOGGED + std::string(1023, 'x') + LOGGED + std::string(454, 'x') +
             "\n");
}

TEST_F(ScriptLists, TakeAMegabyteOfOutput) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1",
               "i=0\nwhile [ $i -lt 1000 ]; do echo \"whitelist /p/$i\"; i=$((i+1)); done\n"
               "head -c 1000000 /dev/zero | tr '\\0' x\necho\necho 'whitelist /last'\n");
    const Answer answer = ask(ScriptList::WHITELIST);
    ASSERT_EQ(answer.paths.size(), 1001U);
    EXPECT_EQ(answer.paths[999], "/p/999");
    EXPECT_EQ(answer.paths.back(), "/last");
    EXPECT_EQ(std::ranges::count(answer.errors, 'x'), 1000000);
    EXPECT_TRUE(answer.errors.ends_with("x\n"));
  }));
}

TEST_F(ScriptLists, PassOverScriptsThatCannotRun) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", "echo 'whitelist /a'\n");
    ASSERT_EQ(::chmod(SCRIPT.c_str(), 0644), 0);
    put_script("2", "echo 'whitelist /b'\n");
    ASSERT_EQ(::symlink("nowhere", (std::string(SETTINGS_SCRIPTS) + "/3").c_str()), 0);
    const Answer answer = ask(ScriptList::WHITELIST);
    EXPECT_EQ(answer.paths, Texts{"/b"});
    EXPECT_NE(std::string::npos, answer.errors.find(LOGGED)) << answer.errors;
    EXPECT_NE(std::string::npos, answer.errors.find("ermission denied\n")) << answer.errors;
    EXPECT_NE(std::string::npos, answer.errors.find("/3: not found\n")) << answer.errors;
    EXPECT_EQ(std::ranges::count(answer.errors, '\n'), 2) << answer.errors;
  }));
}

TEST_F(ScriptLists, PassOverFoldersAndWhatTheyHold) {
  EXPECT_TRUE(on_the_device([] {
    put_script("inner/1", "echo 'whitelist /a'\n");
    put_script("2", "echo 'whitelist /b'\n");
    const Answer answer = ask(ScriptList::WHITELIST);
    EXPECT_EQ(answer.paths, Texts{"/b"});
    EXPECT_EQ(answer.errors, "");
  }));
}

TEST_F(ScriptLists, AreEmptyWithoutTheFolder) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::remove_all("/base");
    EXPECT_EQ(ask(ScriptList::WHITELIST).paths, Texts{});
    EXPECT_EQ(ask(ScriptList::BLACKLIST).errors, "");
  }));
}

TEST_F(ScriptLists, AreKeptOnceTheyAreNotEmptyAndAskedForAgainUntilThen) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", "echo $1 >> /calls\n[ $1 = blacklist ] || cat /list\n");
    write_file("/list", "");
    EXPECT_EQ(ask(ScriptList::WHITELIST).paths, Texts{});
    EXPECT_EQ(ask(ScriptList::WHITELIST).paths, Texts{});
    EXPECT_EQ(read_file("/calls"), "whitelist\nwhitelist\n");
    write_file("/list", "whitelist /a\n");
    EXPECT_EQ(ask(ScriptList::WHITELIST).paths, Texts{"/a"});
    write_file("/list", "whitelist /b\n");
    EXPECT_EQ(ask(ScriptList::WHITELIST).paths, Texts{"/a"});
    EXPECT_EQ(read_file("/calls"), "whitelist\nwhitelist\nwhitelist\n");
    // One list says nothing of the other.
    EXPECT_EQ(ask(ScriptList::BLACKLIST).paths, Texts{});
    EXPECT_EQ(ask(ScriptList::BLACKLIST).paths, Texts{});
    EXPECT_EQ(read_file("/calls"), "whitelist\nwhitelist\nwhitelist\nblacklist\nblacklist\n");
  }));
}

TEST_F(ScriptLists, AreToldOfWithMuchOutput) {
  EXPECT_TRUE(on_the_device([] {
    harbix::verbose = true;
    put_script("1", "echo \"$1 /a b \"\necho log\necho $1 b\n");
    const std::string client = "System client b&r settings script:  " + SCRIPT + "\n";
    EXPECT_EQ(ask(ScriptList::WHITELIST).errors,
              client + "Adding /a b  to the settings whitelist\n" + LOGGED +
                  "log\nEmpty whitelist line or non-absolute path detected in " + SCRIPT + "\n");
    EXPECT_EQ(ask(ScriptList::BLACKLIST).errors,
              client + "Adding /a b  to the settings blacklist\n" + LOGGED +
                  "log\nEmpty blacklist line or non-absolute path detected in " + SCRIPT + "\n");
    EXPECT_EQ(ask(ScriptList::WHITELIST).errors, "");
  }));
}

TEST(BeginsWithAny, ComparesCharacters) {
  const std::vector<Path> prefixes{Path("/pps/services"), Path("/a/"), Path("/x@y")};
  for (const char* path : {"/pps/services", "/pps/services/x", "/pps/servicesX", "/a/", "/a/b", "/x@yz"})
    EXPECT_TRUE(begins_with_any(Path(path), prefixes)) << path;
  for (const char* path : {"", "/", "/pps", "/pps/service", "/a", "/A/b", "pps/services", " /a/", "/x"})
    EXPECT_FALSE(begins_with_any(Path(path), prefixes)) << path;
  EXPECT_FALSE(begins_with_any(Path("/a"), {}));
  EXPECT_TRUE(begins_with_any(Path("/a"), {Path("/")}));
}

}  // namespace
}  // namespace harbix::test
