#include "fs/exception.h"

#include <cerrno>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

TEST(FsException, IsARuntimeError) { EXPECT_TRUE((std::is_base_of_v<std::runtime_error, fs::Exception>)); }

TEST(FsException, OfAMessageAloneHasNoErrorNumber) {
  const fs::Exception error("Text.");
  EXPECT_STREQ(error.what(), "Text.");
  EXPECT_EQ(error.error(), -1);
}

TEST(FsException, AppendsTheSystemsTextOfTheErrorNumber) {
  struct Row {
    int error;
    const char* text;
  };
  for (const Row& row :
       {Row{ENOENT, "Text. [errno:2 'No such file or directory']"},
        Row{EACCES, "Text. [errno:13 'Permission denied']"}, Row{0, "Text. [errno:0 'Success']"},
        Row{123456, "Text. [errno:123456 'Unknown error 123456']"},
        Row{fs::Exception::NO_ERROR_NUMBER, "Text."}}) {
    const fs::Exception error(row.error, "Text.");
    EXPECT_STREQ(error.what(), row.text);
    EXPECT_EQ(error.error(), row.error);
  }
}

}  // namespace
}  // namespace harbix::test
