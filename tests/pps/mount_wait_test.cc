// Reads that wait: woken by others, refused, interrupted, killed.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/mounted_pps.h"

namespace harbix::test {
namespace {

class MountWait : public MountedPps {
 protected:
  void SetUp() override {
    MountedPps::SetUp();
    run("echo a::1 >obj; echo b::2 >obj");
  }
};

TEST_F(MountWait, EndsWithSomebodyElsesChange) {
  WaitingReader whole(path("obj?wait"));
  WaitingReader delta(path("obj?wait,delta"));
  WaitingReader all(path(".all?wait,delta"));
  run("echo a::1 >obj; printf '' >obj");
  run("echo c::3 >obj");
  EXPECT_EQ(whole.text(), "@obj\na::1\nb::2\nc::3\n");
  EXPECT_EQ(delta.text(), "@obj\nc::3\n");
  EXPECT_EQ(all.text(), "@obj\nc::3\n");
}

TEST_F(MountWait, IsToldOfRemovedAttributes) {
  WaitingReader delta(path("obj?delta,wait"));
  run("echo -b >obj");
  EXPECT_EQ(delta.text(), "@obj\n-b\n");
}

TEST_F(MountWait, EndsWithTheObject) {
  WaitingReader reader(path("obj?wait"));
  run("rm obj");
  EXPECT_EQ(reader.text(), "");
}

TEST_F(MountWait, IsNotAskedForWhereAReaderMayNotBlock) {
  const auto object = open_object(path("obj?wait,delta"), O_RDONLY | O_NONBLOCK);
  const auto error = [&] {
    try {
      return read_text(object);
    } catch (const std::system_error& refused) {
      return "(error " + std::to_string(refused.code().value()) + ")";
    }
  };
  const std::string again = "(error " + std::to_string(EAGAIN) + ")";
  EXPECT_EQ(error(), again);
  run("echo a::5 >obj");
  EXPECT_EQ(error(), "@obj\na::5\n");
  EXPECT_EQ(error(), again);
}

TEST_F(MountWait, ServesOnWhenAWaitingClientIsKilled) {
  for (int round = 0; round < 20; ++round) {
    WaitingReader killed(path("obj?wait"));
    WaitingReader stays(path("obj?wait,delta"));
    killed.kill();
    const std::string line = "round::" + std::to_string(round) + "\n";
    EXPECT_EQ(write_error("obj", O_WRONLY, line), 0);
    EXPECT_EQ(stays.text(), "@obj\n" + line);
  }
}

TEST_F(MountWait, EndsWithASignalThatIsHandled) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const base::FileDescriptor progress(ends[0]);
  const base::FileDescriptor told(ends[1]);
  Process reader([&] {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    if (::sigaction(SIGUSR1, &action, nullptr) == -1) return 1;
    const auto object = open_object(path("obj?wait"), O_RDONLY);
    write_text(told, "1");
    try {
      static_cast<void>(read_text(object));
      return 2;
    } catch (const std::system_error& error) {
      if (error.code().value() != EINTR) return 3;
    }
    write_text(told, "2");
    return read_text(object) == "@obj\na::1\nb::9\n" ? 0 : 4;
  });
  EXPECT_EQ(read_text(progress, 1), "1");
  reader.wait_until_asleep();
  ASSERT_EQ(::kill(reader.id(), SIGUSR1), 0);
  EXPECT_EQ(read_text(progress, 1), "2");
  run("echo b::9 >obj");
  EXPECT_EQ(reader.wait(), 0);
}

TEST_F(MountWait, HoldsHundredsOfReadersAtOnce) {
  std::vector<std::unique_ptr<WaitingReader>> readers;
  readers.reserve(200);
  for (int i = 0; i < 200; ++i) readers.push_back(std::make_unique<WaitingReader>(path("obj?wait,delta")));
  for (std::size_t i = 0; i < readers.size(); i += 2) readers[i]->kill();
  run("echo c::3 >obj");
  for (std::size_t i = 1; i < readers.size(); i += 2) EXPECT_EQ(readers[i]->text(), "@obj\nc::3\n");
}

TEST_F(MountWait, EndsWithTheFileSystem) {
  WaitingReader reader(path("obj?wait"));
  EXPECT_EQ(stop(SIGTERM), 0);
  EXPECT_EQ(reader.text(), "(error " + std::to_string(ENODEV) + ")");
}

}  // namespace
}  // namespace harbix::test
