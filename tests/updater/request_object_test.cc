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
#include "support/child_process.h"
#include "support/recorded_log.h"
#include "support/temporary_folder.h"
#include "support/tree.h"
#include "updater/installer_folder.h"

namespace {

using test::request_name;
using test::text_file;
using test::write_file;
using updater::InterruptedRequest;
using updater::RequestObject;

class InterruptedRequestTest : public ::testing::Test {
 protected:
  void SetUp() override { test::write_file(object_.text(), ""); }

  test::TemporaryFolder folder_;
  fs::Path object_{folder_ / "object"};
};

using Handler = void (*)(int);

Handler handler_of(int signal) {
  struct ::sigaction action {};
  EXPECT_EQ(0, ::sigaction(signal, nullptr, &action));
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
  EXPECT_TRUE(test::passes_in_child([this] {
    const Handler own = [](int /*signal*/) {};
    ASSERT_NE(SIG_ERR, std::signal(SIGHUP, SIG_IGN));
    ASSERT_NE(SIG_ERR, std::signal(SIGINT, own));
    ASSERT_NE(SIG_ERR, std::signal(SIGTERM, SIG_DFL));
    {
      const InterruptedRequest scope(object_);
      EXPECT_NE(SIG_DFL, handler_of(SIGTERM));
    }
    EXPECT_EQ(SIG_IGN, handler_of(SIGHUP));
    EXPECT_EQ(own, handler_of(SIGINT));
    EXPECT_EQ(SIG_DFL, handler_of(SIGTERM));
  }));
}

TEST_F(InterruptedRequestTest, LeavesSignalsAloneThatAreIgnoredOrHandled) {
  EXPECT_TRUE(test::passes_in_child([this] {
    static volatile std::sig_atomic_t handled = 0;
    ASSERT_NE(SIG_ERR, std::signal(SIGHUP, SIG_IGN));
    ASSERT_NE(SIG_ERR, std::signal(SIGINT, [](int /*signal*/) { handled = 1; }));
    const InterruptedRequest scope(object_);
    ::raise(SIGHUP);
    ::raise(SIGINT);
    EXPECT_EQ(1, handled);
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

class RequestObjectTest : public test::InstallerFolder {};

TEST_F(RequestObjectTest, IsNamedAfterProcessThreadAndACounter) {
  EXPECT_TRUE(on_the_device([] {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(request_name(i), RequestObject().path().text());
    std::string name;
    {
      const RequestObject object;
      name = object.path().text();
      EXPECT_TRUE(exists(text_file(name)));
    }
    EXPECT_EQ(request_name(3), name);
  }));
}

TEST_F(RequestObjectTest, IsOpenForReadingAndWritingAndNotForPrograms) {
  EXPECT_TRUE(on_the_device([] {
    const fs::FileMask mask(0);
    const RequestObject object;
    struct ::stat record {};
    ASSERT_EQ(0, ::fstat(object.descriptor(), &record));
    EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0660), record.st_mode);
    EXPECT_EQ(O_RDWR, ::fcntl(object.descriptor(), F_GETFL) & O_ACCMODE);
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(object.descriptor(), F_GETFD));
  }));
}

TEST_F(RequestObjectTest, TriesTheNextNumberWhereANameIsTaken) {
  EXPECT_TRUE(on_the_device([] {
    write_file(text_file(request_name(0)), "another's");
    std::filesystem::create_directory(text_file(request_name(1)));
    std::filesystem::create_symlink("nowhere", text_file(request_name(2)));
    const RequestObject object;
    EXPECT_EQ(request_name(3), object.path().text());
    EXPECT_EQ("another's", test::read_file(text_file(request_name(0))));
  }));
}

TEST_F(RequestObjectTest, CannotBeMadeWhereTheFolderIsMissing) {
  EXPECT_TRUE(on_the_device([] {
    std::filesystem::remove(test::REQUESTS);
    EXPECT_EQ("Failed to create file '" + request_name(0) + "'  [errno:2 'No such file or directory']",
              failure());
    write_file(test::REQUESTS, "");
    EXPECT_EQ("Failed to create file '" + request_name(1) + "'  [errno:20 'Not a directory']", failure());
  }));
}

TEST_F(RequestObjectTest, IsGoneAndClosedAfterwards) {
  EXPECT_TRUE(on_the_device([] {
    const test::RecordedLog log;
    std::optional<RequestObject> object(std::in_place);
    const int descriptor = object->descriptor();
    // What the service's own file system makes of the name.
    write_file(object->path().text(), "");
    object.reset();
    EXPECT_FALSE(exists(request_name(0)));
    EXPECT_EQ(-1, ::fcntl(descriptor, F_GETFD));
    EXPECT_EQ(EBADF, errno);
    EXPECT_TRUE(log.messages().empty());
  }));
}

TEST_F(RequestObjectTest, MayBeTakenAwayByTheInstaller) {
  EXPECT_TRUE(on_the_device([] {
    const test::RecordedLog log(5);
    {
      const RequestObject object;
      ASSERT_FALSE(exists(object.path().text()));
    }
    EXPECT_EQ(std::vector<std::string>{}, log.messages());
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
      const std::string name = test::read_file("/name");
      EXPECT_TRUE(exists(text_file(name))) << "no object was made";
      EXPECT_FALSE(exists(name)) << signal;
    }
  }));
}

}  // namespace
