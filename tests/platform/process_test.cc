#include "platform/process.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using platform::P_WAIT;
using platform::spawnl;

constexpr char SHELL[] = "/bin/sh";

/// The status of a shell that runs these commands.
int run_shell(const char* commands) { return spawnl(P_WAIT, SHELL, {SHELL, "-c", commands}); }

TEST(SpawnWaiting, GivesTheStatusOfTheProgramThatHasEnded) {
  struct Row {
    const char* commands;
    int status;
  };
  for (const Row& row : {Row{"exit 0", 0}, Row{"exit 1", 1}, Row{"exit 127", 127}, Row{"exit 255", 255}}) {
    const int status = run_shell(row.commands);
    EXPECT_TRUE(WIFEXITED(status)) << row.commands;
    EXPECT_EQ(WEXITSTATUS(status), row.status) << row.commands;
  }
}

TEST(SpawnWaiting, ComesBackAfterTheProgramsWorkIsDone) {
  const TemporaryFolder folder;
  const std::string commands = "sleep 0.05; echo done > '" + folder / "file" + "'";
  EXPECT_EQ(run_shell(commands.c_str()), 0);
  EXPECT_EQ(read_file(folder / "file"), "done\n");
}

TEST(SpawnWaiting, TellsOfTheSignalThatEndedTheProgram) {
  const int status = run_shell("kill -TERM $$");
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST(SpawnWaiting, HandsOverTheArgumentsWithTheNameFirst) {
  const CapturedOutput output(STDOUT_FILENO);
  EXPECT_EQ(
      spawnl(P_WAIT, SHELL, {"a name", "-c", "tr '\\0' '|' < /proc/$$/cmdline", "x y", "", "'\"$HOME\n*"}),
      0);
  EXPECT_EQ(output.text(), "a name|-c|tr '\\0' '|' < /proc/$$/cmdline|x y||'\"$HOME\n*|");
}

TEST(SpawnWaiting, PassesTheEnvironmentOn) {
  EXPECT_TRUE(passes_in_child([] {
    ASSERT_EQ(::setenv("HARBIX_TEST_VARIABLE", "a value", 1), 0);
    EXPECT_EQ(run_shell("test \"$HARBIX_TEST_VARIABLE\" = 'a value'"), 0);
  }));
}

TEST(SpawnWaiting, FailsForWhatIsNoProgram) {
  const TemporaryFolder folder;
  write_file(folder / "no_program", "#!/bin/sh\n");
  write_file(folder / "no_interpreter", "#!/no/such/interpreter\n");
  ASSERT_EQ(::chmod((folder / "no_program").c_str(), 0644), 0);
  ASSERT_EQ(::chmod((folder / "no_interpreter").c_str(), 0755), 0);
  struct Row {
    std::string path;
    int error;
  };
  for (const Row& row : {Row{folder / "missing", ENOENT}, Row{folder / "no_program", EACCES},
                         Row{folder / "no_interpreter", ENOENT}, Row{folder.path(), EACCES},
                         Row{folder / "no_program/below", ENOTDIR}, Row{"", ENOENT}}) {
    errno = 0;
    EXPECT_EQ(spawnl(P_WAIT, row.path.c_str(), {"name"}), -1) << row.path;
    EXPECT_EQ(errno, row.error) << row.path;
  }
}

TEST(SpawnWaiting, IsTheOnlyMode) {
  errno = 0;
  EXPECT_EQ(spawnl(P_WAIT + 1, SHELL, {SHELL, "-c", "exit 0"}), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(SpawnWaiting, StartsProgramsWithEverySignalAtItsDefaultAction) {
  EXPECT_TRUE(passes_in_child([] {
    for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGUSR1}) {
      ASSERT_NE(std::signal(signal, SIG_IGN), SIG_ERR);
      // A shell cannot undo an ignored signal that it was started with.
      const int status = run_shell(("kill -" + std::to_string(signal) + " $$").c_str());
      EXPECT_TRUE(WIFSIGNALED(status)) << signal;
      EXPECT_EQ(WTERMSIG(status), signal);
    }
  }));
}

TEST(SpawnWaiting, OutlastsASignalThatIsHandled) {
  EXPECT_TRUE(passes_in_child([] {
    struct ::sigaction action {};
    action.sa_handler = [](int /*signal*/) {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    const int status = run_shell("kill -USR1 $PPID; sleep 0.05; exit 3");
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
  }));
}

}  // namespace
}  // namespace harbix::test
