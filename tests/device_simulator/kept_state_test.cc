#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

class DeviceKeptState : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    EXPECT_EQ(run("true").status, 0);
  }

  Outcome run(const std::string& script) {
    return run_device({"--bare", "--state", state_, "sh", "-c", script});
  }

  Outcome act(const std::vector<std::string>& action) {
    std::vector<std::string> words = {"--state", state_};
    words.insert(words.end(), action.begin(), action.end());
    return run_device(words);
  }

  void expect_done(const Outcome& result) {
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output + result.errors, "");
  }

  /// Does what must be refused with `problem`, and looks that nothing was changed.
  void expect_refused(const std::vector<std::string>& action, const std::string& problem) {
    const std::string before = listing(folder_ / "");
    const Outcome result = act(action);
    EXPECT_EQ(result.status, 70);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "harbix-device: " + problem + "\n");
    EXPECT_EQ(listing(folder_ / ""), before);
  }

  TemporaryFolder folder_;
  std::string state_ = folder_ / "state";
};

TEST_F(DeviceKeptState, IsTheFactorysAfterAReset) {
  const std::string fresh = folder_ / "fresh";
  EXPECT_EQ(run_device({"--state", fresh, "true"}).status, 0);
  EXPECT_EQ(run("echo x >/accounts/1000/shared/x; rm -r /apps").status, 0);
  expect_done(act({"--reset"}));
  EXPECT_FALSE(std::filesystem::exists(state_ + ".snapshots"));
  // What a start leaves behind differs: the log, and the objects that services publish.
  const Outcome difference = run_on_host(
      "for device in state fresh; do (cd $folder/$device && find accounts apps base -printf '%p %y %m %U:%G "
      "%s "
      "%T@ %l\\n' | LC_ALL=C sort) >$folder/$device.list; done; cd $folder && diff state.list fresh.list && "
      "grep -ac shared state.list",
      folder_ / "");
  EXPECT_EQ(difference.status, 0) << difference.output.substr(0, 2000);
  EXPECT_GT(std::stoi(difference.output), 100);
  expect_done(act({"--reset", "--bare"}));
  EXPECT_EQ(listing(state_ + "/accounts/1000/shared"), "");
  EXPECT_EQ(run("echo works").output, "works\n");
}

TEST_F(DeviceKeptState, ComesBackFromASnapshot) {
  EXPECT_EQ(run("echo old >/accounts/1000/shared/a; echo state::old >/pps/o").status, 0);
  const std::string before = listing(state_);
  expect_done(act({"--snapshot", "one"}));
  EXPECT_EQ(listing(state_), before);
  EXPECT_EQ(listing(state_ + ".snapshots/one"), before);
  EXPECT_EQ(
      run("echo new >/accounts/1000/shared/a; echo >/accounts/1000/shared/b; echo state::new >/pps/o").status,
      0);
  expect_done(act({"--rollback", "one"}));
  EXPECT_EQ(listing(state_), before);
  EXPECT_EQ(run("cat /accounts/1000/shared/a /pps/o").output, "old\n@o\nstate::old\n");
  // As often as one likes.
  expect_done(act({"--rollback", "one"}));
  EXPECT_EQ(listing(state_), before);
}

TEST_F(DeviceKeptState, ComesBackWithAllThatAFileSystemKeeps) {
  const std::string file = state_ + "/tmp/file";
  const auto attribute = [&] {
    std::string value(16, '\0');
    const ssize_t size = ::getxattr(file.c_str(), "trusted.note", value.data(), value.size());
    return value.substr(0, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  };
  constexpr const char* LOOK =
      "cd $folder/state/tmp && stat -c '%n %F %a %u:%g %h %y %s %t' ./* && stat -c %b hole && [ file -ef "
      "linked ]";
  const Outcome made = run_on_host(
      "cd $folder/state/tmp && echo text >file && chown 10113:10001 file && chmod 4751 file && ln file "
      "linked && "
      "truncate -s 1G hole && ln -s 'no where' link && chown -h 7:8 link && mkfifo -m 620 pipe && "
      "mknod node c 1 3 && mkdir -m 2770 folder && touch \"$(printf 'odd\\n\\377 name')\" ./-rf && "
      "touch -hd '2001-02-03 04:05:06.789' ./* && ls -ld --full-time . >$folder/time",
      folder_ / "");
  ASSERT_EQ(made.errors, "");
  ASSERT_EQ(::setxattr(file.c_str(), "trusted.note", "value", 5, 0), 0);
  const Outcome before = run_on_host(LOOK, folder_ / "");
  ASSERT_EQ(before.status, 0) << before.errors;
  EXPECT_THAT(before.output, testing::EndsWith("\n0\n"));
  expect_done(act({"--snapshot", "s"}));
  EXPECT_EQ(run("rm -rf /tmp/*").status, 0);
  expect_done(act({"--rollback", "s"}));
  const Outcome after = run_on_host(LOOK, folder_ / "");
  EXPECT_EQ(after.status, 0) << after.errors;
  EXPECT_EQ(after.output, before.output);
  EXPECT_EQ(attribute(), "value");
  EXPECT_EQ(
      run_on_host("cd $folder/state/tmp && ls -ld --full-time . | cmp - $folder/time", folder_ / "").status,
      0);
}

TEST_F(DeviceKeptState, RefusesASnapshotThatIsThereAndARollbackToNone) {
  expect_refused({"--rollback", "one"}, "'" + state_ + "' has no snapshot 'one'; nothing was changed");
  expect_done(act({"--snapshot", "one"}));
  expect_refused({"--snapshot", "one"}, "'" + state_ + "' has a snapshot 'one' already; nothing was changed");
}

TEST_F(DeviceKeptState, RefusesARunningDevice) {
  expect_done(act({"--snapshot", "one"}));
  DeviceProcess device({"--state", state_, "sh", "-c", "echo up; exec sleep 60"});
  ASSERT_EQ(device.read_line(), "up");
  for (const std::vector<std::string>& action : std::vector<std::vector<std::string>>{
           {"--reset"}, {"--snapshot", "two"}, {"--rollback", "one"}, {"true"}}) {
    expect_refused(action, "a device is running in '" + state_ + "' already");
  }
}

TEST_F(DeviceKeptState, RefusesWhatIsNoDeviceOfThisLayout) {
  write_file(state_ + "/.harbix-device", "harbix-device layout 99\n");
  for (const std::vector<std::string>& action :
       std::vector<std::vector<std::string>>{{"--reset"}, {"--snapshot", "one"}, {"--rollback", "one"}}) {
    expect_refused(action, "'" + state_ + "' holds a device of another layout; nothing was changed in it");
  }
  std::filesystem::remove(state_ + "/.harbix-device");
  expect_refused({"--reset"},
                 "'" + state_ + "' is neither empty nor a device's folder; nothing was changed in it");
  state_ = folder_ / "missing";
  expect_refused({"--reset"}, "cannot open the folder '" + state_ + "': No such file or directory");
  std::filesystem::create_directory(state_);
  expect_refused({"--reset"}, "there is no device in '" + state_ + "'; nothing was changed in it");
}

TEST_F(DeviceKeptState, IsUnchangedWhenThereIsNoRoom) {
  const Outcome result = run_on_host(
      "unshare -m sh -c 'mount -t tmpfs -o size=8m none \"$folder\" && \"$device\" --bare --state "
      "\"$folder/s\" sh -c "
      "\"head -c 5M "
      "/dev/zero >/tmp/big\" && (cd \"$folder\"; find . | sort >/tmp/$$; \"$device\" --state \"$folder/s\" "
      "--snapshot "
      "one; echo $?; "
      "\"$device\" --state \"$folder/s\" --reset; echo $?; find . | sort | cmp /tmp/$$ - && echo same; rm "
      "/tmp/$$)'",
      folder_ / "");
  EXPECT_EQ(result.output, "70\n70\nsame\n");
  EXPECT_THAT(result.errors,
              testing::MatchesRegex("harbix-device: cannot copy '[^\n]*No space left on device\n"
                                    "harbix-device: cannot [^\n]*No space left on device\n"));
}

TEST_F(DeviceKeptState, IsWholeWheneverItsChangeIsInterrupted) {
  EXPECT_EQ(run("for i in $(seq 500); do echo $i >/accounts/$i; done").status, 0);
  expect_done(act({"--snapshot", "one"}));
  EXPECT_EQ(run("echo x >/tmp/changed").status, 0);
  const std::string changed = listing(state_);
  const std::string kept = listing(state_ + ".snapshots/one");
  for (int round = 0; round < 24; ++round) {
    const int signal = round % 2 == 0 ? SIGKILL : SIGINT;
    DeviceProcess rollback({"--state", state_, "--rollback", "one"});
    ::usleep(static_cast<useconds_t>(round) * 5000);
    ::kill(rollback.pid(), signal);
    rollback.wait();
    EXPECT_THAT(listing(state_), testing::AnyOf(changed, kept)) << round;
    EXPECT_EQ(listing(state_ + ".snapshots/one"), kept) << round;
    const std::string left = state_ + ".snapshots/.new";
    if (signal == SIGKILL) {
      std::filesystem::remove_all(left);
    } else {
      EXPECT_FALSE(std::filesystem::exists(left)) << round;
    }
    if (listing(state_) == kept) {
      EXPECT_EQ(run("echo works; echo x >/tmp/changed").output, "works\n");
      break;
    }
  }
  // What a killed one has left is gone after the next.
  std::filesystem::create_directories(state_ + ".snapshots/.new/accounts");
  expect_done(act({"--rollback", "one"}));
  EXPECT_EQ(listing(state_), kept);
  EXPECT_FALSE(std::filesystem::exists(state_ + ".snapshots/.new"));
}

TEST_F(DeviceKeptState, SaysWhatInterruptedItsChange) {
  // Much to copy, and a signal that comes before it begins: it is held back until the program looks.
  EXPECT_EQ(run("head -c 300M /dev/urandom >/tmp/much").status, 0);
  DeviceProcess snapshot({"--state", state_, "--snapshot", "one"});
  ::usleep(60000);
  ASSERT_EQ(::kill(snapshot.pid(), SIGTERM), 0);
  const Outcome result = snapshot.wait();
  EXPECT_EQ(result.status, 128 + SIGTERM);
  EXPECT_EQ(result.errors, "harbix-device: interrupted by signal 15; nothing was changed\n");
  EXPECT_FALSE(std::filesystem::exists(state_ + ".snapshots"));
}

TEST_F(DeviceKeptState, IsMadeByAProgramThatIsIgnoringHangups) {
  DeviceProcess snapshot({"--state", state_, "--snapshot", "one"}, "", [] { ::signal(SIGHUP, SIG_IGN); });
  ::usleep(20000);
  ::kill(snapshot.pid(), SIGHUP);
  EXPECT_EQ(snapshot.wait().status, 0);
}

}  // namespace
}  // namespace harbix::test
