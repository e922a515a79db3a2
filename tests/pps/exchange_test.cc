// A request and its answer through one object.

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <string>

#include "tests/support/mounted_pps.h"
#include "tests/support/toy_service.h"

namespace harbix::test {
namespace {

using Response = std::map<std::string, std::string>;

class Exchange : public MountedPps {
 protected:
  void SetUp() override {
    MountedPps::SetUp();
    run("mkdir -p upd/current");
  }
};

TEST_F(Exchange, ReadsTheAnswerAndNotItsOwnRequest) {
  const ToyService service(path("upd/current"));
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(exchange(path("upd/current/request"), "/apps/x"),
              (Response{{"actual_extras", "of /apps/x"}, {"actual_gid", "1001"}, {"result", "0"}}));
  }
  EXPECT_EQ(run("ls -A upd/current"), "");
}

TEST_F(Exchange, ReadsAnAnswerThatComesInSeveralWrites) {
  const auto object = open_object(path("upd/current/request?wait,delta"), O_RDWR | O_CREAT | O_EXCL, 0660);
  write_text(object, "action::register\n");
  write_text(object, "package_path::/apps/x\n");
  const auto service = open_object(path("upd/current/request"), O_WRONLY | O_APPEND);
  write_text(service, "state::busy\n");
  EXPECT_EQ(read_text(object), "@request\nstate::busy\n");
  write_text(service, "actual_");
  write_text(service, "gid::7\nresult::0\nresult::1\n");
  EXPECT_EQ(read_text(object), "@request\nactual_gid::7\nresult::1\n");
}

TEST_F(Exchange, LeavesTheServiceServingWhenAClientIsKilled) {
  const auto client = [this] {
    static_cast<void>(exchange(path("upd/current/unanswered"), "/apps/x"));
    return 0;
  };
  {
    Process alone(client);  // no service answers: it sleeps in its read
    alone.wait_until_asleep();
    struct stat record {};
    while (::lstat(path("upd/current/unanswered").c_str(), &record) == -1) continue;
    alone.kill();
  }
  const ToyService service(path("upd/current"));
  EXPECT_EQ(exchange(path("upd/current/request"), "/apps/y").at("result"), "0");
  EXPECT_EQ(write_error("upd/current/unanswered", O_RDWR | O_CREAT | O_EXCL), EEXIST);
}

}  // namespace
}  // namespace harbix::test
