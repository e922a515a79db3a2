#include "archive/source.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "archive/error.h"
#include "fs/identity.h"
#include "tests/support/archive.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;

harbix::Source opened(const Path& path) {
  fs::Folder root("/");
  return harbix::open_source(root, path);
}

std::string refusal(const std::string& path) {
  return message_of<std::runtime_error>([&path] { static_cast<void>(opened(Path(path))); });
}

TEST(Source, OfAPlainFileHoldsItsContents) {
  const TemporaryFolder folder;
  Tree{file("f", "12345", 0600)}.build(folder.path());
  const harbix::Source source = opened(Path(folder / "f"));
  EXPECT_EQ(source.file.path().text(), folder / "f");
  EXPECT_EQ(source.file.record().st_size, 5);
  EXPECT_TRUE(source.contents);
  EXPECT_EQ(source.link_target, "");
}

TEST(Source, OfAFolderHasNoContents) {
  const TemporaryFolder folder;
  const harbix::Source source = opened(Path(folder.path()));
  EXPECT_TRUE(source.file.is_directory());
  EXPECT_FALSE(source.contents);
}

TEST(Source, OfALinkIsItsTargetWithoutFollowingIt) {
  const TemporaryFolder folder;
  const std::string long_target(PATH_MAX - 1, 't');
  Tree{link("dangling", "no\xFFwhere"), link("to_dir", "d"), dir("d"), link("loop", "loop"),
       link("long", long_target)}
      .build(folder.path());
  struct Row {
    const char* name;
    std::string target;
  };
  for (const Row& row :
       {Row{"dangling", "no\xFFwhere"}, Row{"to_dir", "d"}, Row{"loop", "loop"}, Row{"long", long_target}}) {
    const harbix::Source source = opened(Path(folder / row.name));
    EXPECT_TRUE(source.file.is_symbolic_link()) << row.name;
    EXPECT_EQ(source.link_target, row.target);
    EXPECT_FALSE(source.contents);
  }
}

TEST(Source, OfOtherKindsIsRefusedWithoutWaiting) {
  const std::string KIND = ": not a file, folder or link";
  const TemporaryFolder folder;
  Tree{fifo("pipe")}.build(folder.path());
  EXPECT_EQ(refusal(folder / "pipe"), "Error opening: " + (folder / "pipe") + KIND);
  EXPECT_EQ(refusal("/dev/null"), std::string("Error opening: /dev/null") + KIND);

  const base::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const std::string name = folder / "socket";
  ::sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, name.c_str(), name.size());
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const ::sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(refusal(name), "Error opening: " + name + ": No such device or address");
}

TEST(Source, ThatIsGoneOrClosedIsRefused) {
  const TemporaryFolder folder;
  Tree{file("closed", "", 0600)}.build(folder.path());
  EXPECT_EQ(refusal(folder / "gone"), "Error opening: " + (folder / "gone") + ": No such file or directory");
  const fs::EffectiveUser nobody(65534);
  EXPECT_EQ(refusal(folder / "closed"), "Error opening: " + (folder / "closed") + ": Permission denied");
}

TEST(Source, EndsTheRunWhenNothingCouldBeOpened) {
  const TemporaryFolder folder;
  Tree{file("f", "12")}.build(folder.path());
  EXPECT_TRUE(passes_in_child([&folder] {
    fs::Folder root{Path(folder.path())};
    struct ::rlimit usual {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
    const struct ::rlimit none { .rlim_cur = 3, .rlim_max = usual.rlim_max };
    const auto open_without_descriptors = [&] {
      ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
      try {
        static_cast<void>(harbix::open_source(root, "f"));
      } catch (...) {
        // What looks at the error may need some: the sanitizers do.
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
        throw;
      }
    };
    EXPECT_EQ(message_of<harbix::ResourceError>(open_without_descriptors),
              "Error opening: f: Too many open files");
  }));
}

TEST(Source, DescribesWhatWasOpenedNotWhatWasListed) {
  const TemporaryFolder folder;
  Tree{file("f", "12")}.build(folder.path());
  const fs::File listed(Path(folder / "f"));
  write_file(folder / "f", "12345");
  EXPECT_EQ(opened(listed.path()).file.record().st_size, 5);
}

TEST(Source, IsFoundInSeveralFoldersBelowOne) {
  const TemporaryFolder folder;
  Tree{dir("a", {file("f", "12345"), file("g", "1"), link("l", "f")}), dir("b", {file("f", "123")})}.build(
      folder.path());
  fs::Folder root{Path(folder.path())};
  const auto size_of = [&](const Path& path) {
    return harbix::open_source(root, path).file.record().st_size;
  };
  EXPECT_EQ(size_of("a/f"), 5);
  EXPECT_EQ(size_of("b/f"), 3);
  EXPECT_EQ(size_of(Path(folder / "a/g")), 1);
  const harbix::Source link = harbix::open_source(root, "a/l");
  EXPECT_EQ(link.link_target, "f");
  EXPECT_TRUE(link.file.is_symbolic_link());
  EXPECT_EQ(link.file.path().text(), "a/l");
  EXPECT_EQ(harbix::read_link(root, "a/l"), "f");
  EXPECT_TRUE(harbix::open_source(root, "a").file.is_directory());
}

TEST(Source, ThatCannotBeOpenedIsNamedAndTheNextOneIs) {
  const TemporaryFolder folder;
  Tree{dir("a", {file("f", "12345")})}.build(folder.path());
  fs::Folder root{Path(folder.path())};
  const std::string none = ": No such file or directory";
  for (const auto& [name, reason] : {std::pair{"none/f", none}, std::pair{"a/none", none},
                                     std::pair{"a/f/below", std::string(": Not a directory")}}) {
    const Path path(name);
    const std::string message = "Error opening: " + path.text() + reason;
    EXPECT_EQ(message_of<std::runtime_error>([&] { static_cast<void>(harbix::open_source(root, path)); }),
              message);
    EXPECT_EQ(message_of<std::runtime_error>([&] { static_cast<void>(harbix::read_link(root, path)); }),
              message);
    EXPECT_EQ(harbix::open_source(root, "a/f").file.record().st_size, 5);
  }
}

TEST(Source, IsNotReachedThroughALink) {
  const TemporaryFolder folder;
  Tree{dir("app", {link("folder", "../others"), link("root", "/")}), dir("others", {file("secret", "text")})}
      .build(folder.path());
  fs::Folder root{Path(folder.path())};
  for (const char* path : {"app/folder/secret", "app/root/etc/passwd", "app/../others/secret"}) {
    const std::string text =
        message_of<std::runtime_error>([&] { static_cast<void>(harbix::open_source(root, path)); });
    EXPECT_TRUE(text.starts_with(std::string("Error opening: ") + path + ": ")) << text;
  }
}

}  // namespace
}  // namespace harbix::test
