#include "app/application_group.h"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace {

using harbix::data_owner;
using harbix::parse_application_group;

TEST(ApplicationGroup, IsADecimalNumber) {
  struct Row {
    const char* text;
    gid_t group;
  };
  for (const Row& row : {Row{"0", 0}, Row{"1", 1}, Row{"9999", 9999}, Row{"10000", 10000},
                         Row{"010001", 10001}, Row{"429496", 429496}})
    EXPECT_EQ(row.group, parse_application_group(row.text)) << row.text;
}

TEST(ApplicationGroup, ThatIsNoneIsQuotedInTheError) {
  for (const std::string text :
       {"", " ", "-1", "+1", " 1", "1 ", "1\n", "0x2710", "ten", "10001,10002", "1e4", "10001.0", "429497",
        "4294967295", "4294967296", "18446744073709561617"}) {
    try {
      static_cast<void>(parse_application_group(text));
      ADD_FAILURE() << text;
    } catch (const std::runtime_error& error) {
      EXPECT_EQ("'" + text + "' is not a group id", error.what());
    }
  }
}

TEST(ApplicationGroup, HasAUserOfItsOwnForData) {
  EXPECT_EQ(1000U, data_owner(0));
  EXPECT_EQ(100001000U, data_owner(harbix::FIRST_APPLICATION_GROUP));
  EXPECT_EQ(100011000U, data_owner(10001));
  // The last one that stays below the id that stands for "unchanged".
  EXPECT_EQ(4294961000U, data_owner(429496));
}

}  // namespace
