#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/pps_client.h"
#include "tests/support/program.h"

namespace harbix::test {

/// The program, mounted in a mount namespace of the test's own, with a store, in a private folder. Needs root
/// and /dev/fuse: a test that cannot mount fails.
class MountedPps : public testing::Test {
 public:
  MountedPps(const MountedPps&) = delete;
  MountedPps& operator=(const MountedPps&) = delete;

 protected:
  static void SetUpTestSuite();
  MountedPps();
  ~MountedPps() override;
  void SetUp() override { start(); }
  /// Ends the program, which must then have nothing to complain about; leaks too show in its exit status.
  void TearDown() override;

  /// Starts the program and waits until it says that it is ready.
  void start();
  /// Starts it with these arguments, without waiting. @return its id.
  static pid_t launch(const std::vector<std::string>& arguments);
  /// Sends the signal and waits. @return the exit status, or 128 and the signal.
  int stop(int signal);
  /// Waits for an end that has another cause.
  int wait_for_end();
  /// Takes the uppermost mount away. @return false when nothing is mounted.
  // NOLINTNEXTLINE(modernize-use-nodiscard): often run for its effect
  bool unmount() const;

  [[nodiscard]] std::string path(const std::string& name) const { return mount() + "/" + name; }
  [[nodiscard]] std::string mount() const { return folder_ / "mount"; }
  [[nodiscard]] std::string store() const { return folder_ / "store"; }

  /// Runs a command of the shell in the mounted root; its errors are among its output.
  [[nodiscard]] Outcome shell(const std::string& command) const;
  /// The same; the command must succeed. @return its output.
  // NOLINTNEXTLINE(modernize-use-nodiscard): often run for its effect
  std::string run(const std::string& command) const;
  /// The whole text of an object, read as a client does.
  [[nodiscard]] std::string cat(const std::string& name) const;
  /// The error number of opening, writing `text` and closing; 0 when it went well.
  [[nodiscard]] int write_error(const std::string& name, int flags, const std::string& text = "") const;

  TemporaryFolder folder_;
  pid_t server_ = -1;
};

}  // namespace harbix::test
