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

std::string refusal(const std::string& path) {
  return message_of<std::runtime_error>([&path] { static_cast<void>(harbix::open_source(Path(path))); });
}

TEST(Source, OfAPlainFileHoldsItsContents) {
  const TemporaryFolder folder;
  Tree{file("f", "12345", 0600)}.build(folder.path());
  const harbix::Source source = harbix::open_source(Path(folder / "f"));
  EXPECT_EQ(folder / "f", source.file.path().text());
  EXPECT_EQ(5, source.file.record().st_size);
  EXPECT_TRUE(source.contents);
  EXPECT_EQ("", source.link_target);
}

TEST(Source, OfAFolderHasNoContents) {
  const TemporaryFolder folder;
  const harbix::Source source = harbix::open_source(Path(folder.path()));
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
    const harbix::Source source = harbix::open_source(Path(folder / row.name));
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
  EXPECT_EQ(5, harbix::open_source(listed.path()).file.record().st_size);
}

TEST(SourceOpenerTest, OpensWhatLiesInSeveralFolders) {
  const TemporaryFolder folder;
  Tree{dir("a"), file("a/f", "12345"), file("a/g", "1"), link("a/l", "f"), dir("b"), file("b/f", "123")}
      .build(folder.path());
  harbix::SourceOpener opener;
  EXPECT_EQ(5, opener.open(Path(folder / "a/f")).file.record().st_size);
  EXPECT_EQ(3, opener.open(Path(folder / "b/f")).file.record().st_size);
  EXPECT_EQ(1, opener.open(Path(folder / "a/g")).file.record().st_size);
  const harbix::Source link = opener.open(Path(folder / "a/l"));
  EXPECT_EQ("f", link.link_target);
  EXPECT_TRUE(link.file.is_symbolic_link());
  EXPECT_EQ(folder / "a/l", link.file.path().text());
  EXPECT_TRUE(opener.open(Path(folder / "a")).file.is_directory());
  EXPECT_TRUE(opener.open(Path("/")).file.is_directory());
}

TEST(SourceOpenerTest, NamesWhatItCannotOpenAndGoesOn) {
  const TemporaryFolder folder;
  Tree{dir("a"), file("a/f", "12345")}.build(folder.path());
  harbix::SourceOpener opener;
  for (const char* path : {"none/f", "a/none", "a/f/below"}) {
    EXPECT_EQ("Error opening: " + (folder / path),
              message_of<std::runtime_error>([&] { static_cast<void>(opener.open(Path(folder / path))); }));
    EXPECT_EQ(5, opener.open(Path(folder / "a/f")).file.record().st_size);
  }
}

}  // namespace
