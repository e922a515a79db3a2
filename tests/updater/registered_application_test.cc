#include "updater/registered_application.h"

#include <stdexcept>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "updater/exception.h"
#include "updater/printed_application.h"

namespace {

using updater::parse_registered_application;
using updater::RegisteredApplication;
using updater::source_of;

static_assert(std::is_base_of_v<std::runtime_error, updater::Exception>);

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
  for (const Row& row : rows) EXPECT_EQ(row.application, parse_registered_application(row.line)) << row.line;
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
      EXPECT_EQ("Malformed PPS attribute line: '" + line + "'", error.what());
    }
  }
}

TEST(RegisteredApplicationLine, ThatIsEmptyIsInvalidNotMalformed) {
  try {
    static_cast<void>(parse_registered_application(""));
    ADD_FAILURE();
  } catch (const updater::Exception& error) {
    EXPECT_STREQ("Invalid PPS attribute entry", error.what());
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
      // An empty value, whatever the key, and whatever follows.
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
  for (const Row& row : rows) EXPECT_EQ(row.source, source_of(row.remainder)) << row.remainder;
}

}  // namespace
