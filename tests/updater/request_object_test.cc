#include "updater/request_object.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "fs/file.h"
#include "fs/identity.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"
#include "tests/updater/installer_folder.h"

namespace harbix::test {
namespace {

using updater::InterruptedRequest;
using updater::RequestObject;

class InterruptedRequestTest : public ::testing::Test {
 protected:
  void SetUp() override { test::write_file(object_.text(), ""); }

  TemporaryFolder folder_;
  fs::Path object_{folder_ / "object"};
};

using Handler = void (*)(int);

Handler handler_of(int signal) {
  struct ::sigaction action {};
  EXPECT_EQ(::sigaction(signal, nullptr, &action), 0);
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
  EXPECT_TRUE(passes_in_child([this] {
    const Handler own = [](int /*signal*/) {};
    ASSERT_NE(std::signal(SIGHUP, SIG_IGN), SIG_ERR);
    ASSERT_NE(std::signal(SIGINT, own), SIG_ERR);
    ASSERT_NE(std::signal(SIGTERM, SIG_DFL), SIG_ERR);
    {
      const InterruptedRequest scope(object_);
      EXPECT_NE(handler_of(SIGTERM), SIG_DFL);
    }
    EXPECT_EQ(handler_of(SIGHUP), SIG_IGN);
    EXPECT_EQ(handler_of(SIGINT), own);
    EXPECT_EQ(handler_of(SIGTERM), SIG_DFL);
  }));
}

TEST_F(InterruptedRequestTest, LeavesSignalsAloneThatAreIgnoredOrHandled) {
  EXPECT_TRUE(passes_in_child([this] {
    static volatile std::sig_atomic_t handled = 0;
    ASSERT_NE(std::signal(SIGHUP, SIG_IGN), SIG_ERR);
    ASSERT_NE(std::signal(SIGINT, [](int /*signal*/) { handled = 1; }), SIG_ERR);
    const InterruptedRequest scope(object_);
    ::raise(SIGHUP);
    ::raise(SIGINT);
    EXPECT_EQ(handled, 1);
    EXPECT_TRUE(fs::exists(object_));
  }));
}

bool exists(const std::string& path) { return fs::exists(fs::Path(path)); }

/// What the creation of a request object throws, "" when it throws nothing.
std::string failure() {
  try {
    const RequestObject object;
  } catch (const fs::Exception& error) {
    return error.what();
  }
  return "";
}

class RequestObjectTest : public InstallerFolder {};

TEST_F(RequestObjectTest, IsNamedAfterProcessThreadAndACounter) {
  EXPECT_TRUE(on_the_device([] {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(RequestObject().path().text(), request_name(i));
    std::string name;
    {
      const RequestObject object;
      name = object.path().text();
      EXPECT_TRUE(exists(text_file(name)));
    }
    EXPECT_EQ(name, request_name(3));
  }));
}

TEST_F(RequestObjectTest, IsOpenForReadingAndWritingAndNotForPrograms) {
  EXPECT_TRUE(on_the_device([] {
    const fs::FileMask mask(0);
    const RequestObject object;
    struct ::stat record {};
    ASSERT_EQ(::fstat(object.descriptor(), &record), 0);
    EXPECT_EQ(record.st_mode, static_cast<mode_t>(S_IFREG | 0660));
    EXPECT_EQ(::fcntl(object.descriptor(), F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_EQ(::fcntl(object.descriptor(), F_GETFD), FD_CLOEXEC);
  }));
}

TEST_F(RequestObjectTest, TriesTheNextNumberWhereANameIsTaken) {
  EXPECT_TRUE(on_the_device([] {
    write_file(text_file(request_name(0)), "another's");
    std::filesystem::create_directory(text_file(request_name(1)));
    std::filesystem::create_symlink("nowhere", text_file(request_name(2)));
    const RequestObject object;
    EXPECT_EQ(object.path().text(), request_name(3));
    EXPECT_EQ(read_file(text_file(request_name(0))), "another's");
  }));
}

TEST_F(RequestObjectTest, CannotBeMadeWhereTheFolderIsMissing) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::remove(REQUESTS);
    EXPECT_EQ(failure(),
              "Failed to create file '" + request_name(0) + "'  [errno:2 'No such file or directory']");
    write_file(REQUESTS, "");
    EXPECT_EQ(failure(), "Failed to create file '" + request_name(1) + "'  [errno:20 'Not a directory']");
  }));
}

TEST_F(RequestObjectTest, IsGoneAndClosedAfterwards) {
  EXPECT_TRUE(on_the_device([] {
    const RecordedLog log;
    std::optional<RequestObject> object(std::in_place);
    const int descriptor = object->descriptor();
    // What the service's own file system makes of the name.
    write_file(object->path().text(), "");
    object.reset();
    EXPECT_FALSE(exists(request_name(0)));
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_TRUE(log.messages().empty());
  }));
}

TEST_F(RequestObjectTest, MayBeTakenAwayByTheInstaller) {
  EXPECT_TRUE(on_the_device([] {
    const RecordedLog log(5);
    {
      const RequestObject object;
      ASSERT_FALSE(exists(object.path().text()));
    }
    EXPECT_EQ(log.messages(), std::vector<std::string>{});
  }));
}

TEST_F(RequestObjectTest, IsGoneWhenASignalEndsTheProcess) {
  EXPECT_TRUE(on_the_device([] {
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
      EXPECT_EXIT(
          {
            const RequestObject object;
            write_file("/name", object.path().text());
            write_file(object.path().text(), "");
            ::raise(signal);
          },
          testing::KilledBySignal(signal), "");
      const std::string name = read_file("/name");
      EXPECT_TRUE(exists(text_file(name))) << "no object was made";
      EXPECT_FALSE(exists(name)) << signal;
    }
  }));
}

}  // namespace
}  // namespace harbix::test
