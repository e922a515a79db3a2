#include "base/file_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

using base::FileDescriptor;

FileDescriptor open_null() { return FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }

bool is_open(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

TEST(FileDescriptor, HoldsNothingAtFirst) {
  FileDescriptor none;
  EXPECT_FALSE(none.is_open());
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), -1);
  EXPECT_EQ(none.close(), 0);
}

TEST(FileDescriptor, ClosesAtTheEndOfItsLife) {
  int number = -1;
  {
    const FileDescriptor owner = open_null();
    number = owner.get();
    EXPECT_TRUE(is_open(number));
  }
  EXPECT_FALSE(is_open(number));
}

TEST(FileDescriptor, MovesOwnershipAndClosesWhatItHeldBefore) {
  FileDescriptor first = open_null();
  FileDescriptor second = open_null();
  const int first_number = first.get();
  const int second_number = second.get();
  second = std::move(first);
  EXPECT_FALSE(is_open(second_number));
  EXPECT_EQ(second.get(), first_number);
  EXPECT_FALSE(first.is_open());  // NOLINT(bugprone-use-after-move): that it is empty is the claim
}

TEST(FileDescriptor, SurvivesBeingAssignedToItself) {
  FileDescriptor owner = open_null();
  FileDescriptor& same = owner;
  owner = std::move(same);
  EXPECT_TRUE(is_open(owner.get()));
}

TEST(FileDescriptor, GivesUpWhatItReleases) {
  int number = -1;
  {
    FileDescriptor owner = open_null();
    number = owner.release();
    EXPECT_FALSE(owner.is_open());
  }
  EXPECT_TRUE(is_open(number));
  ::close(number);
}

TEST(FileDescriptor, TellsTheErrorOfCloseAndIsEmptyAfterwards) {
  FileDescriptor owner = open_null();
  ASSERT_EQ(::close(owner.get()), 0);
  EXPECT_EQ(owner.close(), EBADF);
  EXPECT_FALSE(owner.is_open());
}

}  // namespace
}  // namespace harbix::test
