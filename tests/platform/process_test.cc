#include "platform/process.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "support/captured_output.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

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
    EXPECT_EQ(row.status, WEXITSTATUS(status)) << row.commands;
  }
}

TEST(SpawnWaiting, ComesBackAfterTheProgramsWorkIsDone) {
  const test::TemporaryFolder folder;
  const std::string commands = "sleep 0.05; echo done > '" + folder / "file" + "'";
  EXPECT_EQ(0, run_shell(commands.c_str()));
  EXPECT_EQ("done\n", test::read_file(folder / "file"));
}

TEST(SpawnWaiting, TellsOfTheSignalThatEndedTheProgram) {
  const int status = run_shell("kill -TERM $$");
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(SIGTERM, WTERMSIG(status));
}

TEST(SpawnWaiting, HandsOverTheArgumentsWithTheNameFirst) {
  const test::CapturedOutput output(STDOUT_FILENO);
  EXPECT_EQ(0, spawnl(P_WAIT, SHELL,
                      {"a name", "-c", "tr '\\0' '|' < /proc/$$/cmdline", "x y", "", "'\"$HOME\n*"}));
  EXPECT_EQ("a name|-c|tr '\\0' '|' < /proc/$$/cmdline|x y||'\"$HOME\n*|", output.text());
}

TEST(SpawnWaiting, PassesTheEnvironmentOn) {
  EXPECT_TRUE(test::passes_in_child([] {
    ASSERT_EQ(0, ::setenv("HARBIX_TEST_VARIABLE", "a value", 1));
    EXPECT_EQ(0, run_shell("test \"$HARBIX_TEST_VARIABLE\" = 'a value'"));
  }));
}

TEST(SpawnWaiting, FailsForWhatIsNoProgram) {
  const test::TemporaryFolder folder;
  test::write_file(folder / "no_program", "#!/bin/sh\n");
  test::write_file(folder / "no_interpreter", "#!/no/such/interpreter\n");
  ASSERT_EQ(0, ::chmod((folder / "no_program").c_str(), 0644));
  ASSERT_EQ(0, ::chmod((folder / "no_interpreter").c_str(), 0755));
  struct Row {
    std::string path;
    int error;
  };
  for (const Row& row : {Row{folder / "missing", ENOENT}, Row{folder / "no_program", EACCES},
                         Row{folder / "no_interpreter", ENOENT}, Row{folder.path(), EACCES},
                         Row{folder / "no_program/below", ENOTDIR}, Row{"", ENOENT}}) {
    errno = 0;
    EXPECT_EQ(-1, spawnl(P_WAIT, row.path.c_str(), {"name"})) << row.path;
    EXPECT_EQ(row.error, errno) << row.path;
  }
}

TEST(SpawnWaiting, IsTheOnlyMode) {
  errno = 0;
  EXPECT_EQ(-1, spawnl(P_WAIT + 1, SHELL, {SHELL, "-c", "exit 0"}));
  EXPECT_EQ(EINVAL, errno);
}

TEST(SpawnWaiting, StartsProgramsWithEverySignalAtItsDefaultAction) {
  EXPECT_TRUE(test::passes_in_child([] {
    for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGUSR1}) {
      ASSERT_NE(SIG_ERR, std::signal(signal, SIG_IGN));
      // A shell cannot undo an ignored signal that it was started with.
      const int status = run_shell(("kill -" + std::to_string(signal) + " $$").c_str());
      EXPECT_TRUE(WIFSIGNALED(status)) << signal;
      EXPECT_EQ(signal, WTERMSIG(status));
    }
  }));
}

TEST(SpawnWaiting, OutlastsASignalThatIsHandled) {
  EXPECT_TRUE(test::passes_in_child([] {
    struct ::sigaction action {};
    action.sa_handler = [](int /*signal*/) {};
    ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, nullptr));
    const int status = run_shell("kill -USR1 $PPID; sleep 0.05; exit 3");
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(3, WEXITSTATUS(status));
  }));
}

}  // namespace
