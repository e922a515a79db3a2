#include "fs/identity.h"

#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fs/accounts.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"

namespace harbix::test {
namespace {

constexpr uid_t ANOTHER_USER = 4001;
constexpr gid_t ANOTHER_GROUP = 4002;
constexpr uid_t INVALID = static_cast<uid_t>(-1);

/// Takes one privilege away from the superuser, for the rest of the process's life.
void drop_capability(unsigned capability) {
  ::__user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  std::array<::__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  ASSERT_EQ(::syscall(SYS_capget, &header, sets.data()), 0);
  sets[0].effective &= ~(1U << capability);
  sets[0].permitted &= ~(1U << capability);
  ASSERT_EQ(::syscall(SYS_capset, &header, sets.data()), 0);
}

TEST(EffectiveUserGuard, SwitchesByIdAndComesBack) {
  {
    const fs::EffectiveUser user(ANOTHER_USER);
    EXPECT_EQ(::geteuid(), ANOTHER_USER);
    EXPECT_EQ(::getuid(), 0U);
  }
  EXPECT_EQ(::geteuid(), 0U);
}

TEST(EffectiveUserGuard, SwitchesByNameAndComesBack) {
  {
    const fs::EffectiveUser user{std::string("daemon")};
    EXPECT_EQ(::geteuid(), 1U);
  }
  EXPECT_EQ(::geteuid(), 0U);
}

TEST(EffectiveUserGuard, NestsAndComesBackStepByStep) {
  const fs::EffectiveUser outer(ANOTHER_USER);
  {
    const fs::EffectiveUser inner(0);
    EXPECT_EQ(::geteuid(), 0U);
  }
  EXPECT_EQ(::geteuid(), ANOTHER_USER);
}

TEST(EffectiveUserGuard, ComesBackAfterThrow) {
  try {
    const fs::EffectiveUser user(ANOTHER_USER);
    throw std::runtime_error("on the way");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(::geteuid(), 0U);
  }
}

TEST(EffectiveUserGuard, ChangesNothingForAnUnknownName) {
  try {
    const fs::EffectiveUser user{std::string("nosuch")};
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "User 'nosuch' does not exist");
  }
  EXPECT_EQ(::geteuid(), 0U);
}

TEST(EffectiveUserGuard, TellsAndLogsWhatTheSystemRefuses) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_EQ(::setresuid(ANOTHER_USER, ANOTHER_USER, ANOTHER_USER), 0);
    const RecordedLog log(0);
    try {
      const fs::EffectiveUser user(0);
      ADD_FAILURE();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "Could not set effective uid: Operation not permitted");
    }
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{"2 Could not set effective uid 0: Operation not permitted"}));
    EXPECT_EQ(::geteuid(), ANOTHER_USER);
  }));
}

TEST(EffectiveUserGuard, LeavesTheEffectiveUserWhereItIsForTheUnchangedId) {
  // setreuid takes this number for "do not change".
  const fs::EffectiveUser user(INVALID);
  EXPECT_EQ(::geteuid(), 0U);
}

TEST(EffectiveUserGuard, KeepsRealAndSavedUserSoThatTheOtherOneCannotSignal) {
  const fs::EffectiveUser user(ANOTHER_USER);
  uid_t real = INVALID;
  uid_t effective = INVALID;
  uid_t saved = INVALID;
  ASSERT_EQ(::getresuid(&real, &effective, &saved), 0);
  EXPECT_EQ(real, 0U);
  EXPECT_EQ(effective, ANOTHER_USER);
  EXPECT_EQ(saved, 0U);
}

TEST(EffectiveUserGuard, EndsTheProcessWhenItCannotComeBack) {
  const auto lose_the_way_back = [] {
    const fs::EffectiveUser user(ANOTHER_USER);
    static_cast<void>(::setresuid(ANOTHER_USER, ANOTHER_USER, ANOTHER_USER));
  };
  EXPECT_EXIT(lose_the_way_back(), testing::ExitedWithCode(2),
              "^ERROR: Could not restore effective uid 0: Operation not permitted\n$");
}

TEST(EffectiveGroupGuard, EndsTheProcessWhenItCannotComeBack) {
  const auto lose_the_way_back = [] {
    const fs::EffectiveGroup group(ANOTHER_GROUP);
    static_cast<void>(::setresgid(ANOTHER_GROUP, ANOTHER_GROUP, ANOTHER_GROUP));
    static_cast<void>(::setresuid(ANOTHER_USER, ANOTHER_USER, ANOTHER_USER));
  };
  EXPECT_EXIT(lose_the_way_back(), testing::ExitedWithCode(2),
              "^ERROR: Could not restore effective gid 0: Operation not permitted\n$");
}

TEST(EffectiveGroupGuard, ComesBackUnderAnotherUserThatWasTakenMeanwhile) {
  EXPECT_TRUE(passes_in_child([] {
    {
      const fs::EffectiveGroup group(ANOTHER_GROUP);
      fs::set_effective_user(ANOTHER_USER);
    }
    EXPECT_EQ(::getegid(), 0U);
    EXPECT_EQ(::geteuid(), ANOTHER_USER);
  }));
}

TEST(BecomeSuperuser, OpensTheWayBackForAProgramStartedWithTheSetUserIdBit) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_EQ(::setresuid(ANOTHER_USER, 0, 0), 0);
    fs::become_superuser();
    {
      const fs::EffectiveUser media(ANOTHER_USER + 1);
      EXPECT_EQ(::geteuid(), ANOTHER_USER + 1);
    }
    EXPECT_EQ(::geteuid(), 0U);
    EXPECT_EQ(::getuid(), 0U);
  }));
}

TEST(BecomeSuperuser, LeavesAnotherUserAsHeIs) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_EQ(::setresuid(ANOTHER_USER, ANOTHER_USER, ANOTHER_USER), 0);
    fs::become_superuser();
    EXPECT_EQ(::geteuid(), ANOTHER_USER);
  }));
}

TEST(EffectiveGroupGuard, SwitchesByIdAndComesBackToTheGroupItFound) {
  {
    const fs::EffectiveGroup outer(ANOTHER_GROUP);
    EXPECT_EQ(::getegid(), ANOTHER_GROUP);
    {
      const fs::EffectiveGroup inner(1);
      EXPECT_EQ(::getegid(), 1U);
    }
    EXPECT_EQ(::getegid(), ANOTHER_GROUP);
  }
  EXPECT_EQ(::getegid(), 0U);
}

TEST(EffectiveGroupGuard, ByNameLeavesTheThreadsIdAsGroup) {
  EXPECT_TRUE(passes_in_child([] {
    {
      const fs::EffectiveGroup group{std::string("daemon")};
      EXPECT_EQ(::getegid(), 1U);
    }
    EXPECT_EQ(::getegid(), static_cast<gid_t>(::gettid()));
    EXPECT_NE(::getegid(), 0U);
  }));
}

TEST(EffectiveGroupGuard, ChangesNothingForAnUnknownName) {
  try {
    const fs::EffectiveGroup group{std::string("nosuch")};
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "Group 'nosuch' does not exist");
  }
  EXPECT_EQ(::getegid(), 0U);
}

TEST(EffectiveGroupGuard, WorksUnderAnEffectiveUserWithoutPrivilege) {
  const fs::EffectiveUser user(ANOTHER_USER);
  {
    fs::set_effective_group(ANOTHER_GROUP);
    EXPECT_EQ(::getegid(), ANOTHER_GROUP);
    EXPECT_EQ(::geteuid(), ANOTHER_USER);
    fs::set_effective_group(0);
  }
  EXPECT_EQ(::getegid(), 0U);
}

TEST(EffectiveGroupGuard, TellsThatTheUserCouldNotBeRaised) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_EQ(::setresuid(ANOTHER_USER, ANOTHER_USER, ANOTHER_USER), 0);
    const RecordedLog log;
    try {
      fs::set_effective_group(ANOTHER_GROUP);
      ADD_FAILURE();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "Could not set effective uid: Operation not permitted");
    }
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{"2 Could not set effective uid 0: Operation not permitted"}));
  }));
}

TEST(EffectiveGroupGuard, TellsAndLogsWhatTheSystemRefusesAndKeepsTheUser) {
  EXPECT_TRUE(passes_in_child([] {
    drop_capability(CAP_SETGID);
    const RecordedLog log(0);
    try {
      // A group that this process has never been in: one of its own would be granted.
      const fs::EffectiveGroup group(4003);
      ADD_FAILURE();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "Could not set effective gid: Operation not permitted");
    }
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{"2 Could not set effective gid 4003: Operation not permitted"}));
    EXPECT_EQ(::getegid(), 0U);
    EXPECT_EQ(::geteuid(), 0U);
  }));
}

TEST(FileMaskGuard, SetsTheMaskAndComesBack) {
  const mode_t before = ::umask(022);
  {
    const fs::FileMask outer(0117);
    {
      const fs::FileMask inner(007);
      EXPECT_EQ(::umask(007), 007U);
    }
    EXPECT_EQ(::umask(0117), 0117U);
  }
  EXPECT_EQ(::umask(before), 022U);
}

TEST(FileMaskGuard, ComesBackAfterThrow) {
  const mode_t before = ::umask(022);
  try {
    const fs::FileMask mask(0777);
    throw std::runtime_error("on the way");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(::umask(before), 022U);
  }
}

}  // namespace
}  // namespace harbix::test
