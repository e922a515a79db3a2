// What comes back after an end of the program, asked for or not.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "tests/support/mounted_pps.h"

namespace harbix::test {
namespace {

class MountPersistence : public MountedPps {
 protected:
  static constexpr const char* LISTING = "find . -mindepth 1 -printf '%p %y %m %U %G %T@\\n' | sort";
  [[nodiscard]] std::string stored(const std::string& command) const {
    return run("cd '" + store() + "' && " + command);
  }
};

TEST_F(MountPersistence, BringsTextsOwnersModesAndTimesBack) {
  run("mkdir -p services/x; chmod 2750 services/x; chown 5:6 services/x");
  run("printf 'a::1\\n[n]b::2\\nc:n:3\\n' >services/x/obj; chmod 604 services/x/obj; chown 7:8 "
      "services/x/obj");
  run("echo app::1 >services/.all; : >empty; touch -d @1000.5 empty services/x/obj services/.all");
  EXPECT_EQ(stop(SIGTERM), 0);
  EXPECT_EQ(stored("cat services/x/obj services/.all empty"), "@obj\na::1\nc:n:3\n@.all\napp::1\n@empty\n");
  start();
  EXPECT_EQ(cat("services/x/obj"), "@obj\na::1\nc:n:3\n");
  EXPECT_EQ(cat("services/.all"), "@.all\napp::1\n");
  EXPECT_EQ(run("stat -c '%n %a %u %g %Y' services/x services/x/obj empty | cut -d' ' -f1-4"),
            "services/x 2750 5 6\nservices/x/obj 604 7 8\nempty 644 0 0\n");
  EXPECT_EQ(run("stat -c '%.1Y' services/x/obj empty"), "1000.5\n1000.5\n");
  EXPECT_EQ(run(LISTING), stored(LISTING)) << "the store shows the same things";
}

TEST_F(MountPersistence, ForgetsWhatWasRemoved) {
  run("mkdir dir; echo a::1 >dir/obj; echo b::2 >obj; rm obj; rm -r dir");
  EXPECT_EQ(stored("find . -mindepth 1"), "");
  EXPECT_EQ(stop(SIGINT), 0);
  start();
  EXPECT_EQ(run("ls -A"), "");
}

TEST_F(MountPersistence, KeepsNamesThatTheStoreMarks) {
  EXPECT_EQ(stop(SIGTERM), 0);
  const auto prepare = [this](const std::string& command) {
    const Outcome outcome = shell("cd '" + store() + "' && " + command);
    ASSERT_EQ(outcome.status, 0) << outcome.output;
  };
  prepare("mkdir -p services/x; echo a::1 >services/x/obj@y; chmod 600 services/x/obj@y");
  start();
  EXPECT_EQ(cat("services/x/obj"), "@obj\na::1\n");
  EXPECT_EQ(run("ls -A services/x; stat -c %a services/x/obj"), "obj\n600\n");
  run("echo b::2 >services/x/obj");
  EXPECT_EQ(stored("ls -A services/x; cat services/x/obj@y; stat -c %a services/x/obj@y"),
            "obj@y\n@obj\na::1\nb::2\n600\n");
}

TEST_F(MountPersistence, LosesOnlyWhatWasNotClosedWhenItIsKilled) {
  run("echo a::1 >closed; mkdir dir; chmod 700 dir");
  const auto open_one = open_object(path("open"), O_WRONLY | O_CREAT);
  write_text(open_one, "a::1\n");
  ASSERT_EQ(::fsync(open_one.get()), 0);
  write_text(open_one, "b::2\n");
  WaitingReader reader(path("closed?wait"));
  static_cast<void>(stop(SIGKILL));
  EXPECT_EQ(reader.text(), "(error " + std::to_string(ECONNABORTED) + ")");
  EXPECT_EQ(write_error("closed", O_WRONLY), ENOTCONN);
  start();
  EXPECT_EQ(cat("closed"), "@closed\na::1\n");
  EXPECT_EQ(cat("open"), "@open\na::1\n");
  EXPECT_EQ(run("stat -c %a dir"), "700\n");
}

TEST_F(MountPersistence, TellsTheClientWhenTheStoreRefuses) {
  // A folder in the way of the file that is written first.
  ASSERT_EQ(shell("mkdir '" + store() + "/@unfinished'").status, 0);
  const auto object = open_object(path("obj"), O_WRONLY | O_CREAT);
  write_text(object, "a::1\n");
  EXPECT_EQ(::fsync(object.get()), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(cat("obj"), "@obj\na::1\n");
  ASSERT_EQ(shell("rmdir '" + store() + "/@unfinished'").status, 0);
  EXPECT_EQ(::fsync(object.get()), 0);
  EXPECT_EQ(stored("cat obj"), "@obj\na::1\n");
}

}  // namespace
}  // namespace harbix::test
