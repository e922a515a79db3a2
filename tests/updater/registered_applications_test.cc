#include "updater/registered_applications.h"

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/captured_output.h"
#include "tests/support/recorded_log.h"
#include "tests/support/root.h"
#include "tests/support/tree.h"
#include "tests/updater/printed_application.h"
#include "updater/exception.h"

namespace harbix::test {
namespace {

using updater::find_application;
using updater::is_from_storefront;
using updater::MustExist;
using updater::parse_registered_application;
using updater::read_registered_applications;
using updater::REGISTERED_APPLICATIONS;
using updater::RegisteredApplication;
using updater::source_of;

static_assert(std::is_base_of_v<std::runtime_error, updater::Exception>);

TEST(RegisteredApplication, IsBoughtWhenTheStorefrontInstalledIt) {
  EXPECT_TRUE(is_from_storefront({.id = "a", .dir = "/apps/a", .version = "1", .source = "shopvale"}));
  for (const char* source : {"", "websl", "sideloaded", "shopvale2", "Shopvale"})
    EXPECT_FALSE(is_from_storefront({.id = "a", .dir = "/apps/a", .version = "1", .source = source}))
        << source;
}

TEST(RegisteredApplicationLine, IsSplitIntoItsFields) {
  struct Row {
    const char* line;
    RegisteredApplication application;
  };
  const Row rows[] = {
      {"app1::/apps/app1,1.0.0.1,source::s1", {"app1", "/apps/app1", "1.0.0.1", "s1"}},
      {"app1::/apps/app1,1.0.0.1,x::,source::s1", {"app1", "/apps/app1", "1.0.0.1", "websl"}},
      {"app1::dir,1.0,", {"app1", "dir", "1.0", ""}},
      {"app1::dir,1.0,x::y", {"app1", "dir", "1.0", ""}},
      {"app1::dir,1.0,x::y,", {"app1", "dir", "1.0", ""}},
      {"app1::dir,1.0,,", {"app1", "dir", "1.0", "websl"}},
      {"app1::,,", {"app1", "", "", ""}},
      {"::dir,1.0,source::s", {"", "dir", "1.0", "s"}},
      {"::,,", {"", "", "", ""}},
      {" app 1 :: dir , 1 , source::s ", {" app 1 ", " dir ", " 1 ", ""}},
      {"app1::a:b,1:2,source::s:t", {"app1", "a:b", "1:2", "s:t"}},
      {"app1:::dir,1.0,source::s", {"app1", ":dir", "1.0", "s"}},
      {"app1::dir,1.0,source::s\nsource::t", {"app1", "dir", "1.0", "s"}},
      {"app1::dir\n,1.0,x::y\n,source::t", {"app1", "dir\n", "1.0", ""}},
      {"\xC3\xA4\xFF::\xFF,\xFE,source::\xFD", {"\xC3\xA4\xFF", "\xFF", "\xFE", "\xFD"}},
  };
  for (const Row& row : rows) EXPECT_EQ(parse_registered_application(row.line), row.application) << row.line;
}

TEST(RegisteredApplicationLine, OfAnotherShapeIsQuotedInTheError) {
  for (const std::string line :
       {"a", ":", "::", "app1", "app1:", "app1::", "app1:b:dir,1.0,source::s", "app1: :dir,1.0,", "app1:n",
        "app1::dir", "app1::dir,", "app1::dir,1.0", "app1:dir,1.0,x", "@name", "[n]app1", "\n", " ",
        "app1:\n:dir,1.0,", "app,1.0,x::y"}) {
    try {
      static_cast<void>(parse_registered_application(line));
      ADD_FAILURE() << line;
    } catch (const updater::Exception& error) {
      EXPECT_EQ(error.what(), "Malformed PPS attribute line: '" + line + "'");
    }
  }
}

TEST(RegisteredApplicationLine, ThatIsEmptyIsInvalidNotMalformed) {
  try {
    static_cast<void>(parse_registered_application(""));
    ADD_FAILURE();
  } catch (const updater::Exception& error) {
    EXPECT_STREQ(error.what(), "Invalid PPS attribute entry");
  }
}

TEST(SourceOfRemainder, IsTheValueOfTheFirstItemOfThatNameUnlessAnEmptyValueStandsBeforeIt) {
  struct Row {
    const char *remainder, *source;
  };
  const Row rows[] = {
      {"", ""},
      {"source::s", "s"},
      {"source::s,", "s"},
      {"source:n:s", "s"},
      {"source:json:{\"a\":1}", "{\"a\":1}"},
      {"source::s,source::t", "s"},
      {"a::b,source::s", "s"},
      {"a::b,c:x:d,source::s,e::", "s"},
      {"a::b", ""},
      {"a::b,", ""},
      {"Source::s", ""},
      {"source ::s", ""},
      {" source::s", ""},
      {"xsource::s", ""},
      {"a::source", ""},
      {"a:source:b", ""},
      // An empty value, with any key, and with anything behind it.
      {"a::", "websl"},
      {"a::,", "websl"},
      {"a::,source::s", "websl"},
      {"source::", "websl"},
      {"source::,source::s", "websl"},
      {"a::b,c::", "websl"},
      {"::", "websl"},
      {"::,source::s", "websl"},
      {"::x", ""},
      {"::x,source::s", "s"},
      // Items that end before their value have an empty one.
      {"source", "websl"},
      {"source:", "websl"},
      {"source:s", "websl"},
      {":", "websl"},
      {",", "websl"},
      {"a::b,source", "websl"},
      {"a::b,,source::s", ""},
      {"a:b,source::s", ""},
      {" ", "websl"},
  };
  for (const Row& row : rows) EXPECT_EQ(source_of(row.remainder), row.source) << row.remainder;
}

constexpr char FOLDER[] = "/pps/system/installer/registeredapps";

/// What came of reading the list.
struct Read {
  bool success = false;
  std::string applications;  ///< "ID DIR VERSION SOURCE", a line each
  std::string errors;
  std::vector<std::string> log;  ///< "SEVERITY MESSAGE", an item each
};

const std::vector<std::string> FAILURE_LOG{
    "2 ERROR: Failed to open /pps/system/installer/registeredapps/.all"};

Read read() {
  Read result;
  std::vector<RegisteredApplication> applications;
  const RecordedLog log;
  const CapturedOutput errors(STDERR_FILENO);
  result.success = read_registered_applications(applications);
  result.errors = errors.text();
  result.log = log.messages();
  for (const RegisteredApplication& one : applications)
    result.applications += one.id + " " + one.dir + " " + one.version + " " + one.source + "\n";
  return result;
}

/// The folder of the list exists, and the list does not.
class RegisteredApplicationList : public RootTest {
  void set_up_root() const override { std::filesystem::create_directories(FOLDER); }
};

TEST_F(RegisteredApplicationList, HasTheObjectsLinesInTheirOrder) {
  EXPECT_TRUE(on_the_device([] {
    struct Row {
      const char *text, *applications, *errors;
    };
    const Row rows[] = {
        {"@.all\nb::b.dir,1.0,source::shopvale\na::a.dir,2.0,x::,source::s\n",
         "b b.dir 1.0 shopvale\na a.dir 2.0 websl\n", ""},
        {"@.all\n", "", ""},
        {"@.all", "", ""},
        {"", "", ""},
        // The first line is the object's name and is skipped, also when it looks like an entry.
        {"a::a.dir,1.0,source::s\nb::b.dir,1.0,source::s\n", "b b.dir 1.0 s\n", ""},
        {"@.all\na::a.dir,1.0,source::s", "a a.dir 1.0 s\n", ""},
        // Lines of the Android runtime, in any form; names of objects.
        {"@.all\nsys.android.x::x,1.0,source::s\na::sys.android,1.0,source::s\nsys.android\n"
         "b::b,1.0,source::sys.androidx\n[n]sys.android:\n",
         "", ""},
        {"@.all\nsys.androi::x,1.0,source::s\n", "sys.androi x 1.0 s\n", ""},
        {"@.all\n@a\na::a.dir,1.0,source::s\n@b::b.dir,1.0,source::s\n", "a a.dir 1.0 s\n", ""},
        {"@.all\na::same,1.0,source::s\nb::same,2.0,source::t\na::same,1.0,source::s\n",
         "a same 1.0 s\nb same 2.0 t\na same 1.0 s\n", ""},
        // A line that does not fit is skipped.
        {"@.all\na::a.dir,1.0,source::s\nnoise\n\nb:n:1,2,3\nc::c.dir,1.0,source::s\n",
         "a a.dir 1.0 s\nc c.dir 1.0 s\n",
         "Warning: Malformed PPS attribute line: 'noise'\n"
         "Warning: Invalid PPS attribute entry\n"
         "Warning: Malformed PPS attribute line: 'b:n:1,2,3'\n"},
    };
    for (const Row& row : rows) {
      write_file(REGISTERED_APPLICATIONS, row.text);
      const Read result = read();
      EXPECT_TRUE(result.success) << row.text;
      EXPECT_EQ(result.applications, row.applications) << row.text;
      EXPECT_EQ(result.errors, row.errors) << row.text;
    }
  }));
}

TEST_F(RegisteredApplicationList, ThatIsMissingIsAFailure) {
  EXPECT_TRUE(on_the_device([] {
    const Read result = read();
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.errors, "Failed to open /pps/system/installer/registeredapps/.all\n");
    EXPECT_EQ(result.log, FAILURE_LOG);
  }));
}

TEST_F(RegisteredApplicationList, ThatCannotBeReadIsAFailure) {
  EXPECT_TRUE(on_the_device([] {
    // It can be opened, and not read.
    std::filesystem::create_directory(REGISTERED_APPLICATIONS);
    const Read result = read();
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.applications, "");
    EXPECT_EQ(result.errors, "Failed to open /pps/system/installer/registeredapps/.all\n");
    EXPECT_EQ(result.log, FAILURE_LOG);
  }));
}

const std::vector<RegisteredApplication> APPLICATIONS{
    {"a", "a.dir", "1", "s"}, {"b", "same", "2", "t"}, {"c", "same", "3", "u"}, {"d", "", "4", "v"}};

TEST(RegisteredApplicationLookup, FindsTheFirstOfThatPackage) {
  for (const MustExist must_exist : {MustExist::NO, MustExist::YES}) {
    EXPECT_EQ(find_application(APPLICATIONS, "a.dir", must_exist), APPLICATIONS[0]);
    EXPECT_EQ(find_application(APPLICATIONS, "same", must_exist), APPLICATIONS[1]);
    EXPECT_EQ(find_application(APPLICATIONS, "", must_exist), APPLICATIONS[3]);
  }
}

TEST(RegisteredApplicationLookup, ComparesTheWholeNameExactly) {
  for (const std::string name : {"a", "A.dir", "a.di", "a.dir ", " a.dir", "a.dir\n", "1", "s"}) {
    EXPECT_EQ(find_application(APPLICATIONS, name, MustExist::NO), RegisteredApplication{}) << name;
    try {
      static_cast<void>(find_application(APPLICATIONS, name, MustExist::YES));
      ADD_FAILURE() << name;
    } catch (const updater::Exception& error) {
      EXPECT_EQ(error.what(), "Package '" + name + "' not found.");
    }
  }
}

}  // namespace
}  // namespace harbix::test
