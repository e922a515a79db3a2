#include "device/installer/request_desk.h"

#include <system_error>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

TEST(RequestDesk, HasNoRequestsWhereItsDirectoryWasTakenAway) {
  const TemporaryFolder folder;
  int answers = 0;
  const installer::RequestDesk desk(folder / "gone", folder / "control", [&](const installer::Request&) {
    ++answers;
    return installer::Answer();
  });
  EXPECT_NO_THROW(desk.look_at_all());
  EXPECT_EQ(answers, 0);
}

TEST(RequestDesk, FailsWhereItsDirectoryCannotBeRead) {
  const TemporaryFolder folder;
  write_file(folder / "file", "");
  const installer::RequestDesk desk(folder / "file", folder / "control",
                                    [](const installer::Request&) { return installer::Answer(); });
  EXPECT_THROW(desk.look_at_all(), std::system_error);
}

}  // namespace
}  // namespace harbix::test
