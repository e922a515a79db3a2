#include "archive/item_error.h"

#include <unistd.h>

#include <cerrno>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/error.h"
#include "fs/exception.h"
#include "support/captured_output.h"
#include "support/recorded_log.h"

namespace {

using harbix::tolerate_item_error;

class ItemError : public ::testing::Test {
 protected:
  test::RecordedLog log_;
  test::CapturedOutput errors_{STDERR_FILENO};
};

TEST_F(ItemError, OfOneItemCostsAMessage) {
  tolerate_item_error([] { throw std::runtime_error("Error opening: /a"); });
  tolerate_item_error([] { throw fs::Exception(EIO, "Error reading pps object"); });
  tolerate_item_error([] {});
  EXPECT_EQ("Error: Error opening: /a\nError: Error reading pps object [errno:5 'Input/output error']\n",
            errors_.text());
  EXPECT_EQ((std::vector<std::string>{"2 ERROR: Error opening: /a",
                                      "2 ERROR: Error reading pps object [errno:5 'Input/output error']"}),
            log_.messages());
}

TEST_F(ItemError, OfTheArchiveAndOfTheProgramGoOn) {
  EXPECT_THROW(tolerate_item_error([] { throw harbix::ArchiveError("full"); }), harbix::ArchiveError);
  EXPECT_THROW(tolerate_item_error([] { throw std::bad_alloc(); }), std::bad_alloc);
  EXPECT_THROW(tolerate_item_error([] { throw std::logic_error("x"); }), std::logic_error);
  EXPECT_EQ("", errors_.text());
  EXPECT_TRUE(log_.lines().empty());
}

}  // namespace
