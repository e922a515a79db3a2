// Many clients at once, some of them killed.

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/mounted_pps.h"
#include "tests/support/toy_service.h"

namespace harbix::test {
namespace {

class Stress : public MountedPps {
 protected:
  void SetUp() override {
    MountedPps::SetUp();
    run("mkdir current");
  }

  /// A client that makes exchanges one after the other. Ends with 0 when every answer was the right one.
  [[nodiscard]] std::function<int()> exchanger(int number, int rounds) const {
    return [this, number, rounds] {
      for (int round = 0; round < rounds; ++round) {
        const std::string name = "br_" + std::to_string(number) + "_" + std::to_string(round);
        const auto response = exchange(path("current/" + name), "/apps/" + name);
        if (response.at("actual_extras") != "of /apps/" + name) return 1;
      }
      return 0;
    };
  }

  /// Reports how often a second something happened.
  static void report(const std::string& what, int count, std::chrono::steady_clock::duration took) {
    const double seconds = std::chrono::duration<double>(took).count();
    std::cout << "[ measured ] " << what << ": " << count << " in " << seconds << " s, " << count / seconds
              << " a second\n";
  }
};

TEST_F(Stress, MakesThousandsOfExchangesWhileClientsAreKilled) {
  constexpr int CLIENTS = 4;
  constexpr int ROUNDS = 1000;
  const ToyService service(path("current"));
  const auto start_time = std::chrono::steady_clock::now();
  std::vector<std::unique_ptr<Process>> clients;
  clients.reserve(CLIENTS);
  for (int i = 0; i < CLIENTS; ++i) clients.push_back(std::make_unique<Process>(exchanger(i, ROUNDS)));

  run("echo tick::0 >shared");
  const auto wait_at_shared = [this] {
    const auto object = open_object(path("shared?wait,delta"), O_RDONLY);
    for (;;) static_cast<void>(read_text(object));
    return 0;
  };
  for (int round = 0; round < 100; ++round) {
    Process waiter(wait_at_shared);
    Process killed(exchanger(100 + round, 1000000));
    ::usleep(static_cast<useconds_t>(round * 100));  // kills come at every moment of an exchange
    EXPECT_EQ(write_error("shared", O_WRONLY, "tick::" + std::to_string(round) + "\n"), 0);
    killed.kill();
    waiter.kill();
  }
  for (const auto& client : clients) EXPECT_EQ(client->wait(), 0);
  report("exchanges with kills beside them", CLIENTS * ROUNDS, std::chrono::steady_clock::now() - start_time);

  EXPECT_EQ(cat("shared"), "@shared\ntick::99\n");
  run("rm -f current/br_1[0-9][0-9]_*");
  EXPECT_EQ(run("ls -A current"), "");
  EXPECT_EQ(exchange(path("current/last"), "/apps/last").at("result"), "0");
}

TEST_F(Stress, MakesExchangesOneAfterTheOther) {
  constexpr int ROUNDS = 2000;
  const ToyService service(path("current"));
  const auto start_time = std::chrono::steady_clock::now();
  EXPECT_EQ(exchanger(0, ROUNDS)(), 0);
  report("exchanges of one client", ROUNDS, std::chrono::steady_clock::now() - start_time);
}

TEST_F(Stress, LosesNoChangeOfManyWriters) {
  constexpr int WRITERS = 4;
  constexpr int ROUNDS = 1000;
  run("echo start::1 >obj");
  const auto write_own = [this](int number) {
    return [this, number] {
      for (int round = 1; round <= ROUNDS; ++round) {
        const std::string line = "w" + std::to_string(number) + "::" + std::to_string(round) + "\n";
        if (write_error("obj", O_WRONLY | O_TRUNC, line) != 0) return 1;
      }
      return 0;
    };
  };
  Process reader([this] {
    const auto object = open_object(path("obj?wait"), O_RDONLY);
    for (;;) {
      const std::string text = read_text(object);
      bool is_last = true;
      for (int i = 0; i < WRITERS; ++i) {
        const std::string line = "\nw" + std::to_string(i) + "::" + std::to_string(ROUNDS) + "\n";
        is_last = is_last && text.find(line) != std::string::npos;
      }
      if (is_last) return 0;
    }
  });
  reader.wait_until_asleep();
  const auto start_time = std::chrono::steady_clock::now();
  std::vector<std::unique_ptr<Process>> writers;
  writers.reserve(WRITERS);
  for (int i = 0; i < WRITERS; ++i) writers.push_back(std::make_unique<Process>(write_own(i)));
  for (const auto& writer : writers) EXPECT_EQ(writer->wait(), 0);
  report("opened, written and closed", WRITERS * ROUNDS, std::chrono::steady_clock::now() - start_time);
  EXPECT_EQ(reader.wait(), 0) << "the last change reaches a reader, whatever it missed before";
}

}  // namespace
}  // namespace harbix::test
