#include "archive/source.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "fs/identity.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using test::dir;
using test::fifo;
using test::file;
using test::link;
using test::message_of;
using test::TemporaryFolder;
using test::Tree;

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
  EXPECT_EQ(folder / "f", source.file.path().text());
  EXPECT_EQ(5, source.file.record().st_size);
  EXPECT_TRUE(source.contents);
  EXPECT_EQ("", source.link_target);
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
    EXPECT_EQ(row.target, source.link_target);
    EXPECT_FALSE(source.contents);
  }
}

TEST(Source, OfOtherKindsIsRefusedWithoutWaiting) {
  const TemporaryFolder folder;
  Tree{fifo("pipe")}.build(folder.path());
  EXPECT_EQ("Error opening: " + (folder / "pipe"), refusal(folder / "pipe"));
  EXPECT_EQ("Error opening: /dev/null", refusal("/dev/null"));

  const base::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const std::string name = folder / "socket";
  ::sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, name.c_str(), name.size());
  ASSERT_EQ(0, ::bind(socket.get(), reinterpret_cast<const ::sockaddr*>(&address), sizeof address));
  EXPECT_EQ("Error opening: " + name, refusal(name));
}

TEST(Source, ThatIsGoneOrClosedIsRefused) {
  const TemporaryFolder folder;
  Tree{file("closed", "", 0600)}.build(folder.path());
  EXPECT_EQ("Error opening: " + (folder / "gone"), refusal(folder / "gone"));
  const fs::EffectiveUser nobody(65534);
  EXPECT_EQ("Error opening: " + (folder / "closed"), refusal(folder / "closed"));
}

TEST(Source, DescribesWhatWasOpenedNotWhatWasListed) {
  const TemporaryFolder folder;
  Tree{file("f", "12")}.build(folder.path());
  const fs::File listed(Path(folder / "f"));
  test::write_file(folder / "f", "12345");
  EXPECT_EQ(5, opened(listed.path()).file.record().st_size);
}

TEST(Source, IsFoundInSeveralFoldersBelowOne) {
  const TemporaryFolder folder;
  Tree{dir("a", {file("f", "12345"), file("g", "1"), link("l", "f")}), dir("b", {file("f", "123")})}.build(
      folder.path());
  fs::Folder root{Path(folder.path())};
  const auto size_of = [&](const Path& path) {
    return harbix::open_source(root, path).file.record().st_size;
  };
  EXPECT_EQ(5, size_of("a/f"));
  EXPECT_EQ(3, size_of("b/f"));
  EXPECT_EQ(1, size_of(Path(folder / "a/g")));
  const harbix::Source link = harbix::open_source(root, "a/l");
  EXPECT_EQ("f", link.link_target);
  EXPECT_TRUE(link.file.is_symbolic_link());
  EXPECT_EQ("a/l", link.file.path().text());
  EXPECT_EQ("f", harbix::read_link(root, "a/l"));
  EXPECT_TRUE(harbix::open_source(root, "a").file.is_directory());
}

TEST(Source, ThatCannotBeOpenedIsNamedAndTheNextOneIs) {
  const TemporaryFolder folder;
  Tree{dir("a", {file("f", "12345")})}.build(folder.path());
  fs::Folder root{Path(folder.path())};
  for (const char* path : {"none/f", "a/none", "a/f/below"}) {
    const std::string message = std::string("Error opening: ") + path;
    EXPECT_EQ(message,
              message_of<std::runtime_error>([&] { static_cast<void>(harbix::open_source(root, path)); }));
    EXPECT_EQ(message,
              message_of<std::runtime_error>([&] { static_cast<void>(harbix::read_link(root, path)); }));
    EXPECT_EQ(5, harbix::open_source(root, "a/f").file.record().st_size);
  }
}

TEST(Source, IsNotReachedThroughALink) {
  const TemporaryFolder folder;
  Tree{dir("app", {link("folder", "../others"), link("root", "/")}), dir("others", {file("secret", "text")})}
      .build(folder.path());
  fs::Folder root{Path(folder.path())};
  for (const char* path : {"app/folder/secret", "app/root/etc/passwd", "app/../others/secret"}) {
    EXPECT_EQ(std::string("Error opening: ") + path,
              message_of<std::runtime_error>([&] { static_cast<void>(harbix::open_source(root, path)); }));
  }
}

}  // namespace
