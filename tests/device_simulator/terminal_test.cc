#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/file_descriptor.h"
#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

/// A program on a terminal of its own, and the keys that are typed there.
class TypedSession {
 public:
  explicit TypedSession(const std::vector<std::string>& words) {
    int terminal = -1;
    pid_ = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (pid_ == 0) {
      std::vector<char*> arguments;
      arguments.reserve(words.size() + 1);
      for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
      arguments.push_back(nullptr);
      ::execvp(arguments.front(), arguments.data());
      ::_exit(99);
    }
    terminal_ = base::FileDescriptor(terminal);
  }
  TypedSession(const TypedSession&) = delete;
  TypedSession& operator=(const TypedSession&) = delete;
  ~TypedSession() {
    if (pid_ == -1) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }

  void type(const std::string& keys) {
    EXPECT_EQ(::write(terminal_.get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  /// Waits until `text` is on the screen after what was awaited before; fails after ten seconds.
  void expect(const std::string& text) {
    std::size_t found = 0;
    while ((found = screen_.find(text, seen_)) == std::string::npos) {
      if (!read_more()) {
        ADD_FAILURE() << "'" << text << "' did not come after: " << screen_.substr(seen_);
        return;
      }
    }
    seen_ = found + text.size();
  }

  /// Waits until keys are for the group that `process` leads; fails after ten seconds.
  void expect_keys_for(pid_t process) {
    for (int i = 0; i < 1000; ++i) {
      if (::tcgetpgrp(terminal_.get()) == process) return;
      ::usleep(10000);
    }
    ADD_FAILURE() << "the terminal still belongs to group " << ::tcgetpgrp(terminal_.get()) << ", not "
                  << process;
  }

  /// The program.
  [[nodiscard]] pid_t process() const { return pid_; }

  /// The exit status, once the program has ended.
  int wait() {
    while (read_more()) {
    }
    // Still there only when it did not end in time; then it must not hold up the test.
    if (::waitpid(pid_, nullptr, WNOHANG | WNOWAIT) == 0) ::kill(pid_, SIGKILL);
    int status = 0;
    EXPECT_EQ(::waitpid(pid_, &status, 0), pid_);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  bool read_more() {
    constexpr int PATIENCE_MILLISECONDS = 10000;
    pollfd event = {terminal_.get(), POLLIN, 0};
    if (::poll(&event, 1, PATIENCE_MILLISECONDS) != 1) return false;
    std::array<char, 4096> part = {};
    const ssize_t size = ::read(terminal_.get(), part.data(), part.size());
    if (size <= 0) return false;
    screen_.append(part.data(), static_cast<std::size_t>(size));
    return true;
  }

  pid_t pid_ = -1;
  base::FileDescriptor terminal_;
  std::string screen_;
  std::size_t seen_ = 0;
};

constexpr const char* CONTROL_C = "\x03";
constexpr const char* CONTROL_Z = "\x1a";

class DeviceTerminal : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }
};

TEST_F(DeviceTerminal, InterruptsTheCommand) {
  TypedSession session({HARBIX_DEVICE_PROGRAM, "--bare", "sh", "-c", "echo up; exec sleep 60"});
  session.expect("up");
  session.type(CONTROL_C);
  EXPECT_EQ(session.wait(), 128 + SIGINT);
}

TEST_F(DeviceTerminal, GivesAnInteractiveShellItsJobControl) {
  TypedSession session({"env", "PS1=ready> ", HARBIX_DEVICE_PROGRAM, "--bare", "bash", "--norc", "-i"});
  session.expect("ready> ");
  // In one process group: a key typed between two commands of the shell would be for the shell.
  session.type("sh -c \"echo st''arted; exec sleep 60\"\n");
  session.expect("started");
  session.type(CONTROL_C);
  session.expect("ready> ");
  session.type("echo status $?; sh -c \"echo wait''ing; read word; echo got \\$word\"\n");
  session.expect("status 130");
  session.expect("waiting");
  session.type(CONTROL_Z);
  session.expect("Stopped");
  session.type("fg\n");
  session.expect("read word");
  session.type("back\n");
  session.expect("got back");
  session.expect("ready> ");
  session.type("exit 7\n");
  EXPECT_EQ(session.wait(), 7);
}

TEST_F(DeviceTerminal, StopsAndGoesOnAsAJobOfTheCallersShell) {
  TypedSession session({"env", "PS1=ready> ", "bash", "--norc", "-i"});
  session.expect("ready> ");
  session.type(std::string("'") + HARBIX_DEVICE_PROGRAM +
               "' --bare sh -c \"echo st''arted; read word; echo got \\$word\"\n");
  session.expect("started");
  session.type(CONTROL_Z);
  session.expect("Stopped");
  session.expect("ready> ");
  session.type("fg\n");
  session.expect("read word");
  session.type("typed\n");
  session.expect("got typed");
  session.expect("ready> ");
  session.type("read word; echo got $word\n");
  session.type("terminal\n");
  session.expect("got terminal");
  session.type("exit 5\n");
  EXPECT_EQ(session.wait(), 5);
}

TEST_F(DeviceTerminal, EndsTheWaitForTheBackground) {
  TypedSession session({HARBIX_DEVICE_PROGRAM, "--bare", "sh", "-c", "sleep 60 & echo up; exit 3"});
  session.expect("up");
  session.expect_keys_for(session.process());
  session.type(CONTROL_C);
  EXPECT_EQ(session.wait(), 3);
}

/// A shell with job control whose jobs are devices.
class DeviceJob : public DeviceTerminal {
 protected:
  void SetUp() override {
    DeviceTerminal::SetUp();
    if (IsSkipped()) return;
    session_.expect("ready> ");
    session_.type(std::string("device='") + HARBIX_DEVICE_PROGRAM + "'; folder='" + (folder_ / "") + "'\n");
    session_.expect("ready> ");
  }

  TemporaryFolder folder_;
  TypedSession session_{{"env", "PS1=ready> ", "bash", "--norc", "-i"}};
};

TEST_F(DeviceJob, StopsWithTheScriptThatItIsPartOf) {
  session_.type(
      "sh -c '\"$0\" --bare sh -c \"echo st\"\"arted; read word; echo got \\$word\"; echo aft\"\"er' "
      "\"$device\"\n");
  session_.expect("started");
  session_.type(CONTROL_Z);
  session_.expect("Stopped");
  session_.expect("ready> ");
  session_.type("fg\n");
  session_.expect("read word");
  session_.type("typed\n");
  session_.expect("got typed");
  session_.expect("after");
}

TEST_F(DeviceJob, StopsWhenItsShellIsSuspended) {
  session_.type("PS1='inner> ' \"$device\" --bare bash --norc -i\n");
  session_.expect("inner> ");
  session_.type("suspend\n");
  session_.expect("Stopped");
  session_.expect("ready> ");
  session_.type("fg\n");
  session_.expect("--norc -i");
  session_.type("echo in''side $PPID\n");
  session_.expect("inside 1");
  session_.type("exit 4\n");
  session_.expect("ready> ");
  session_.type("echo status $?\n");
  session_.expect("status 4");
}

TEST_F(DeviceJob, StopsInTheBackgroundWhenItReadsAndGoesOnInTheForeground) {
  session_.type("\"$device\" --bare sh -c 'read word; echo got $word' </dev/tty &\n");
  session_.expect("ready> ");
  session_.type("until jobs -s | grep -q Stopped; do sleep 0.1; done; jobs\n");
  session_.expect("Stopped");
  session_.type("fg\n");
  session_.expect("/dev/tty");
  session_.type("typed\n");
  session_.expect("got typed");
}

TEST_F(DeviceJob, ReadsWhenItWasBroughtIntoTheForegroundWhileItRan) {
  session_.type(
      "\"$device\" --bare sh -c 'until [ -e /dev/shm/x ]; do sleep 0.1; [ -e /proc/$PPID ] && : >/dev/shm/x; "
      "done;"
      "sleep 1; echo as\"\"king; read word; echo got $word' </dev/tty & sleep 0.2; fg\n");
  session_.expect("asking");
  session_.type("typed\n");
  session_.expect("got typed");
}

TEST_F(DeviceJob, StopsAndWakesItsCommandWhenItIsToldTo) {
  session_.type(
      "\"$device\" --bare --state \"$folder/state\" sh -c 'trap \"exit 3\" TERM; while :; do echo x "
      ">>/count; sleep 0.1; "
      "done' &\n");
  session_.type("count=\"$folder/state/count\"; until [ -s \"$count\" ]; do sleep 0.1; done\n");
  session_.type("kill -TSTP %1; until jobs -s | grep -q Stopped; do sleep 0.1; done\n");
  session_.type("a=$(wc -l <\"$count\"); sleep 0.5; b=$(wc -l <\"$count\"); echo still $((b - a))\n");
  session_.expect("still 0");
  session_.type("bg; until [ $(wc -l <\"$count\") -gt $b ]; do sleep 0.1; done; echo run''ning\n");
  session_.expect("running");
  session_.type("kill %1; wait %1; echo status $?\n");
  session_.expect("status 3");
}

TEST_F(DeviceJob, WakesAStoppedCommandForASignalAlsoInAScript) {
  write_file(folder_ / "script",
             "\"$1\" --bare sh -c 'trap \"exit 8\" TERM; echo up; kill -STOP $$; sleep 60' >\"$2/up\" &\n"
             "until [ -s \"$2/up\" ]; do sleep 0.1; done\n"
             "sleep 0.5; kill -TERM $!; wait $!; echo status $?\n");
  session_.type("bash \"$folder/script\" \"$device\" \"$folder\"\n");
  session_.expect("status 8");
}

TEST_F(DeviceJob, StopsByAKeyAlsoWhenItsCommandIsStoppedAlready) {
  session_.type(
      "sh -c 'echo $$ >\"$1/job\"; \"$0\" --bare sh -c \"echo st\"\"arted; kill -STOP \\$\\$; echo "
      "aw\"\"ake; read "
      "word; echo got \\$word\"; exit' \"$device\" \"$folder\"\n");
  session_.expect("started");
  session_.expect_keys_for(std::stoi(read_file(folder_ / "job")));
  session_.type(CONTROL_Z);
  session_.expect("Stopped");
  session_.type("fg\n");
  session_.expect("awake");
  session_.type("typed\n");
  session_.expect("got typed");
}

TEST_F(DeviceJob, EndsWhenItWantsATerminalThatItCannotHave) {
  // The shell between has ended by then, and nothing is left that could bring the device into the foreground.
  session_.type(
      "(sh -c 'sleep 0.5; \"$0\" --bare cat </dev/tty; echo $? >\"$1/status\"' \"$device\" \"$folder\" &)\n");
  session_.type(
      "until [ -s \"$folder/status\" ]; do sleep 0.1; done; echo status $(cat \"$folder/status\")\n");
  session_.expect("status 129");
}

TEST_F(DeviceJob, StaysStoppedWhenItTakesNoHangupForATerminalThatItCannotHave) {
  session_.type(
      "(sh -c 'sleep 0.5; trap \"\" HUP; \"$0\" --bare sh -c \"cat; echo woken\" </dev/tty & echo $! "
      ">\"$1/pid\"; wait "
      "$!; echo $? >\"$1/status\"' \"$device\" \"$folder\" &)\n");
  session_.type("sleep 1.5; kill -TERM $(cat \"$folder/pid\")\n");
  session_.type(
      "until [ -s \"$folder/status\" ]; do sleep 0.1; done; echo status $(cat \"$folder/status\")\n");
  session_.expect("status 143");
}

TEST_F(DeviceJob, StopsWhenTheKeyComesBeforeItsCommand) {
  session_.type("\"$device\" sh -c \"echo st''arted; read word; echo got \\$word\"\n");
  session_.expect("got");
  ::usleep(150000);
  session_.type(CONTROL_Z);
  session_.expect("Stopped");
  session_.type("fg\n");
  session_.expect("read word");
  session_.type("typed\n");
  session_.expect("got typed");
}

TEST_F(DeviceJob, StopsByAKeyWhileItWaitsForTheBackground) {
  session_.type(
      "sh -c 'echo $$ >\"$1/job\"; exec \"$0\" --bare sh -c \"sleep 60 & echo st\"\"arted; exit 3\"' "
      "\"$device\" "
      "\"$folder\"\n");
  session_.expect("started");
  session_.expect_keys_for(std::stoi(read_file(folder_ / "job")));
  session_.type(CONTROL_Z);
  session_.expect("Stopped");
  session_.type("fg; echo status $?\n");
  session_.expect("status 3");
}

TEST_F(DeviceJob, IsEnteredWithAPromptThatNamesTheTablet) {
  session_.type("\"$device\" --bare --state \"$folder/other\" sleep 60 & \n");
  session_.type("until \"$device\" --state \"$folder/other\" --enter true 2>/dev/null; do sleep 0.1; done\n");
  session_.type("\"$device\" --state \"$folder/other\" --enter\n");
  session_.expect("root@tablet:/# ");
  session_.type("sh -c 'echo st\"\"arted; exec cat'\n");
  session_.expect("started");
  session_.type(CONTROL_Z);
  session_.expect("Stopped");
  session_.expect("root@tablet:/# ");
  session_.type("fg\n");
  session_.expect("exec cat");
  // Once from the terminal and once from the program, which has the foreground then.
  session_.type("typed\n");
  session_.expect("typed");
  session_.expect("typed");
  session_.type(CONTROL_C);
  session_.expect("root@tablet:/# ");
  session_.type("exit 5\n");
  session_.expect("ready> ");
  session_.type("echo status $?\n");
  session_.expect("status 5");
  session_.type("kill %%; wait; echo en''ded\n");
  session_.expect("ended");
}

TEST_F(DeviceJob, StopsAndGoesOnAsAVisitorOfADevice) {
  session_.type("\"$device\" --bare --state \"$folder/state\" sleep 60 &\n");
  session_.type("until \"$device\" --state \"$folder/state\" --enter true 2>/dev/null; do sleep 0.1; done\n");
  session_.type(
      "\"$device\" --state \"$folder/state\" --enter sh -c \"echo st''arted; read word; echo got "
      "\\$word\"\n");
  session_.expect("started");
  session_.type(CONTROL_Z);
  session_.expect("Stopped");
  session_.type("fg\n");
  session_.expect("read word");
  session_.type("typed\n");
  session_.expect("got typed");
  session_.type("kill %1; wait; echo en''ded\n");
  session_.expect("ended");
}

}  // namespace
}  // namespace harbix::test
