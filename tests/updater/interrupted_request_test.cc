#include "updater/interrupted_request.h"

#include <unistd.h>

#include <csignal>

#include <gtest/gtest.h>

#include "fs/file.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using updater::InterruptedRequest;

class InterruptedRequestTest : public ::testing::Test {
 protected:
  void SetUp() override { test::write_file(object_.text(), ""); }

  test::TemporaryFolder folder_;
  fs::Path object_{folder_ / "object"};
};

using Handler = void (*)(int);

Handler handler_of(int signal) {
  struct ::sigaction action {};
  EXPECT_EQ(0, ::sigaction(signal, nullptr, &action));
  return action.sa_handler;
}

TEST_F(InterruptedRequestTest, TakesTheObjectAwayAndEndsByTheSignal) {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    test::write_file(object_.text(), "");
    EXPECT_EXIT(
        {
          const InterruptedRequest scope(object_);
          ::raise(signal);
        },
        testing::KilledBySignal(signal), "");
    EXPECT_FALSE(fs::exists(object_)) << signal;
  }
}

TEST_F(InterruptedRequestTest, EndsByTheSignalWithoutAnObjectToo) {
  fs::File(object_).unlink();
  EXPECT_EXIT(
      {
        const InterruptedRequest scope(object_);
        ::raise(SIGTERM);
      },
      testing::KilledBySignal(SIGTERM), "");
}

TEST_F(InterruptedRequestTest, LeavesTheObjectToWhatComesAfterTheScope) {
  EXPECT_EXIT(
      {
        { const InterruptedRequest scope(object_); }
        ::raise(SIGTERM);
      },
      testing::KilledBySignal(SIGTERM), "");
  EXPECT_TRUE(fs::exists(object_));
}

TEST_F(InterruptedRequestTest, PutsTheActionsBackThatItFound) {
  EXPECT_TRUE(test::passes_in_child([this] {
    const Handler own = [](int /*signal*/) {};
    ASSERT_NE(SIG_ERR, std::signal(SIGHUP, SIG_IGN));
    ASSERT_NE(SIG_ERR, std::signal(SIGINT, own));
    ASSERT_NE(SIG_ERR, std::signal(SIGTERM, SIG_DFL));
    {
      const InterruptedRequest scope(object_);
      EXPECT_NE(SIG_DFL, handler_of(SIGTERM));
    }
    EXPECT_EQ(SIG_IGN, handler_of(SIGHUP));
    EXPECT_EQ(own, handler_of(SIGINT));
    EXPECT_EQ(SIG_DFL, handler_of(SIGTERM));
  }));
}

TEST_F(InterruptedRequestTest, LeavesSignalsAloneThatAreIgnoredOrHandled) {
  EXPECT_TRUE(test::passes_in_child([this] {
    static volatile std::sig_atomic_t handled = 0;
    ASSERT_NE(SIG_ERR, std::signal(SIGHUP, SIG_IGN));
    ASSERT_NE(SIG_ERR, std::signal(SIGINT, [](int /*signal*/) { handled = 1; }));
    const InterruptedRequest scope(object_);
    ::raise(SIGHUP);
    ::raise(SIGINT);
    EXPECT_EQ(1, handled);
    EXPECT_TRUE(fs::exists(object_));
  }));
}

}  // namespace
