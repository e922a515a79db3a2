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
#include "support/child_process.h"
#include "support/recorded_log.h"

namespace {

using test::passes_in_child;
using test::RecordedLog;

constexpr uid_t USER = 4001;
constexpr gid_t GROUP = 4002;
constexpr uid_t INVALID = static_cast<uid_t>(-1);

/// Takes one privilege away from the superuser, for the rest of the process's life.
void drop_capability(unsigned capability) {
  ::__user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  std::array<::__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  ASSERT_EQ(0, ::syscall(SYS_capget, &header, sets.data()));
  sets[0].effective &= ~(1U << capability);
  sets[0].permitted &= ~(1U << capability);
  ASSERT_EQ(0, ::syscall(SYS_capset, &header, sets.data()));
}

TEST(EffectiveUserGuard, SwitchesByIdAndComesBack) {
  {
    const fs::EffectiveUser user(USER);
    EXPECT_EQ(USER, ::geteuid());
    EXPECT_EQ(0U, ::getuid());
  }
  EXPECT_EQ(0U, ::geteuid());
}

TEST(EffectiveUserGuard, SwitchesByNameAndComesBack) {
  {
    const fs::EffectiveUser user{std::string("daemon")};
    EXPECT_EQ(1U, ::geteuid());
  }
  EXPECT_EQ(0U, ::geteuid());
}

TEST(EffectiveUserGuard, NestsAndComesBackStepByStep) {
  const fs::EffectiveUser outer(USER);
  {
    const fs::EffectiveUser inner(0);
    EXPECT_EQ(0U, ::geteuid());
  }
  EXPECT_EQ(USER, ::geteuid());
}

TEST(EffectiveUserGuard, ComesBackAfterThrow) {
  try {
    const fs::EffectiveUser user(USER);
    throw std::runtime_error("on the way");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(0U, ::geteuid());
  }
}

TEST(EffectiveUserGuard, ChangesNothingForAnUnknownName) {
  try {
    const fs::EffectiveUser user{std::string("nosuch")};
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ("User 'nosuch' does not exist", error.what());
  }
  EXPECT_EQ(0U, ::geteuid());
}

TEST(EffectiveUserGuard, TellsAndLogsWhatTheSystemRefuses) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_EQ(0, ::setresuid(USER, USER, USER));
    const RecordedLog log(0);
    try {
      const fs::EffectiveUser user(0);
      ADD_FAILURE();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ("Could not set effective uid: Operation not permitted", error.what());
    }
    EXPECT_EQ((std::vector<std::string>{"2 Could not set effective uid 0: Operation not permitted"}),
              log.messages());
    EXPECT_EQ(USER, ::geteuid());
  }));
}

TEST(EffectiveUserGuard, LeavesTheEffectiveUserWhereItIsForTheUnchangedId) {
  // setreuid takes this number for "do not change".
  const fs::EffectiveUser user(INVALID);
  EXPECT_EQ(0U, ::geteuid());
}

TEST(EffectiveUserGuard, KeepsRealAndSavedUserSoThatTheOtherOneCannotSignal) {
  const fs::EffectiveUser user(USER);
  uid_t real = INVALID;
  uid_t effective = INVALID;
  uid_t saved = INVALID;
  ASSERT_EQ(0, ::getresuid(&real, &effective, &saved));
  EXPECT_EQ(0U, real);
  EXPECT_EQ(USER, effective);
  EXPECT_EQ(0U, saved);
}

TEST(EffectiveUserGuard, EndsTheProcessWhenItCannotComeBack) {
  const auto lose_the_way_back = [] {
    const fs::EffectiveUser user(USER);
    static_cast<void>(::setresuid(USER, USER, USER));
  };
  EXPECT_EXIT(lose_the_way_back(), testing::ExitedWithCode(2),
              "^ERROR: Could not restore effective uid 0: Operation not permitted\n$");
}

TEST(EffectiveGroupGuard, EndsTheProcessWhenItCannotComeBack) {
  const auto lose_the_way_back = [] {
    const fs::EffectiveGroup group(GROUP);
    static_cast<void>(::setresgid(GROUP, GROUP, GROUP));
    static_cast<void>(::setresuid(USER, USER, USER));
  };
  EXPECT_EXIT(lose_the_way_back(), testing::ExitedWithCode(2),
              "^ERROR: Could not restore effective gid 0: Operation not permitted\n$");
}

TEST(EffectiveGroupGuard, ComesBackUnderAnotherUserThatWasTakenMeanwhile) {
  EXPECT_TRUE(passes_in_child([] {
    {
      const fs::EffectiveGroup group(GROUP);
      fs::set_effective_user(USER);
    }
    EXPECT_EQ(0U, ::getegid());
    EXPECT_EQ(USER, ::geteuid());
  }));
}

TEST(BecomeSuperuser, OpensTheWayBackForAProgramStartedWithTheSetUserIdBit) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_EQ(0, ::setresuid(USER, 0, 0));
    fs::become_superuser();
    {
      const fs::EffectiveUser media(USER + 1);
      EXPECT_EQ(USER + 1, ::geteuid());
    }
    EXPECT_EQ(0U, ::geteuid());
    EXPECT_EQ(0U, ::getuid());
  }));
}

TEST(BecomeSuperuser, LeavesAnotherUserAsHeIs) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_EQ(0, ::setresuid(USER, USER, USER));
    fs::become_superuser();
    EXPECT_EQ(USER, ::geteuid());
  }));
}

TEST(EffectiveGroupGuard, SwitchesByIdAndComesBackToTheGroupItFound) {
  {
    const fs::EffectiveGroup outer(GROUP);
    EXPECT_EQ(GROUP, ::getegid());
    {
      const fs::EffectiveGroup inner(1);
      EXPECT_EQ(1U, ::getegid());
    }
    EXPECT_EQ(GROUP, ::getegid());
  }
  EXPECT_EQ(0U, ::getegid());
}

TEST(EffectiveGroupGuard, ByNameLeavesTheThreadsIdAsGroup) {
  EXPECT_TRUE(passes_in_child([] {
    {
      const fs::EffectiveGroup group{std::string("daemon")};
      EXPECT_EQ(1U, ::getegid());
    }
    EXPECT_EQ(static_cast<gid_t>(::gettid()), ::getegid());
    EXPECT_NE(0U, ::getegid());
  }));
}

TEST(EffectiveGroupGuard, ChangesNothingForAnUnknownName) {
  try {
    const fs::EffectiveGroup group{std::string("nosuch")};
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ("Group 'nosuch' does not exist", error.what());
  }
  EXPECT_EQ(0U, ::getegid());
}

TEST(EffectiveGroupGuard, WorksUnderAnEffectiveUserWithoutPrivilege) {
  const fs::EffectiveUser user(USER);
  {
    fs::set_effective_group(GROUP);
    EXPECT_EQ(GROUP, ::getegid());
    EXPECT_EQ(USER, ::geteuid());
    fs::set_effective_group(0);
  }
  EXPECT_EQ(0U, ::getegid());
}

TEST(EffectiveGroupGuard, TellsThatTheUserCouldNotBeRaised) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_EQ(0, ::setresuid(USER, USER, USER));
    const RecordedLog log;
    try {
      fs::set_effective_group(GROUP);
      ADD_FAILURE();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ("Could not set effective uid: Operation not permitted", error.what());
    }
    EXPECT_EQ((std::vector<std::string>{"2 Could not set effective uid 0: Operation not permitted"}),
              log.messages());
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
      EXPECT_STREQ("Could not set effective gid: Operation not permitted", error.what());
    }
    EXPECT_EQ((std::vector<std::string>{"2 Could not set effective gid 4003: Operation not permitted"}),
              log.messages());
    EXPECT_EQ(0U, ::getegid());
    EXPECT_EQ(0U, ::geteuid());
  }));
}

TEST(FileMaskGuard, SetsTheMaskAndComesBack) {
  const mode_t before = ::umask(022);
  {
    const fs::FileMask outer(0117);
    {
      const fs::FileMask inner(007);
      EXPECT_EQ(007U, ::umask(007));
    }
    EXPECT_EQ(0117U, ::umask(0117));
  }
  EXPECT_EQ(022U, ::umask(before));
}

TEST(FileMaskGuard, ComesBackAfterThrow) {
  const mode_t before = ::umask(022);
  try {
    const fs::FileMask mask(0777);
    throw std::runtime_error("on the way");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(022U, ::umask(before));
  }
}

}  // namespace
