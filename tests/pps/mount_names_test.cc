// Names, options and rights, as the kernel and its clients see them.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>

#include "tests/support/mounted_pps.h"

namespace harbix::test {
namespace {

class MountNames : public MountedPps {
 protected:
  [[nodiscard]] struct stat look_at(const std::string& name) const {
    struct stat record {};
    EXPECT_EQ(::lstat(path(name).c_str(), &record), 0) << name;
    return record;
  }
};

TEST_F(MountNames, AreOneObjectUnderEveryOption) {
  run("echo a::1 >obj");
  const struct stat plain = look_at("obj");
  EXPECT_EQ(plain.st_size, 10);
  EXPECT_TRUE(S_ISREG(plain.st_mode));
  for (const char* name : {"obj?", "obj?wait", "obj?delta", "obj?wait,delta", "obj?unheard-of"}) {
    const struct stat record = look_at(name);
    EXPECT_EQ(record.st_ino, plain.st_ino) << name;
    EXPECT_EQ(record.st_size, plain.st_size) << name;
  }
  run("echo b::2 >'obj?wait'; chmod 604 'obj?delta'");
  EXPECT_EQ(cat("obj?delta"), "@obj\na::1\nb::2\n");
  EXPECT_EQ(look_at("obj").st_mode, S_IFREG | 0604U);
  EXPECT_EQ(look_at("obj").st_size, 15);
  EXPECT_EQ(run("ls -A"), "obj\n");
  run("rm 'obj?wait,delta'");
  EXPECT_EQ(run("ls -A"), "");
  EXPECT_EQ(::lstat(path("obj").c_str(), std::make_unique<struct stat>().get()), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(MountNames, AreMadeExclusivelyOnce) {
  constexpr int MAKE = O_RDWR | O_CREAT | O_EXCL;
  EXPECT_EQ(write_error("obj?wait,delta", MAKE), 0);
  for (const char* name : {"obj?wait,delta", "obj", "obj?x"})
    EXPECT_EQ(write_error(name, MAKE), EEXIST) << name;
  EXPECT_EQ(write_error("obj?wait", O_RDWR | O_CREAT), 0);
  EXPECT_EQ(write_error(".all", MAKE), EEXIST);
  EXPECT_EQ(run("ls -A"), "obj\n");
}

TEST_F(MountNames, CannotHoldWhatHasAnotherMeaning) {
  constexpr int MAKE = O_WRONLY | O_CREAT;
  EXPECT_EQ(write_error("obj@x", MAKE), EINVAL);
  EXPECT_EQ(write_error("a\nb", MAKE), EINVAL);
  EXPECT_EQ(write_error("?wait", MAKE), EINVAL);
  EXPECT_EQ(write_error(std::string(256, 'x'), MAKE), ENAMETOOLONG);
  EXPECT_EQ(::mkdir(path("dir?wait").c_str(), 0755), -1);
  EXPECT_EQ(errno, EINVAL);
  run("mkdir dir");
  EXPECT_EQ(write_error("dir?wait", O_RDONLY), ENOENT);
}

TEST_F(MountNames, MakeATreeOfDirectories) {
  run("mkdir -p a/b/c; echo x::1 >a/b/c/obj; echo y::1 >a/obj");
  EXPECT_EQ(run("find . | sort"), ".\n./a\n./a/b\n./a/b/c\n./a/b/c/obj\n./a/obj\n");
  EXPECT_NE(shell("rmdir a/b").status, 0);
  EXPECT_NE(shell("rm a/b").status, 0);
  run("rm -r a");
  EXPECT_EQ(run("ls -A"), "");
}

TEST_F(MountNames, AreListedInFullHoweverMany) {
  run("for i in $(seq 3000); do echo \"i::$i\" >object-with-a-long-name-$i; done");
  EXPECT_EQ(run("ls -A | wc -l"), "3000\n");
  EXPECT_EQ(run("grep -c ^@ .all"), "3000\n");
  EXPECT_EQ(look_at(".all").st_size, static_cast<off_t>(cat(".all").size()));
}

TEST_F(MountNames, HaveNoLinksAndAreMovedByCopying) {
  run("echo a::1 >obj");
  EXPECT_EQ(::symlink("obj", path("link").c_str()), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(::link(path("obj").c_str(), path("link").c_str()), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(::mkfifo(path("fifo").c_str(), 0644), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(::rename(path("obj").c_str(), path("other").c_str()), -1);
  EXPECT_EQ(errno, EXDEV);
  run("mv obj other");
  EXPECT_EQ(cat("other"), "@other\na::1\n");
  EXPECT_EQ(run("ls -A"), "other\n");
}

TEST_F(MountNames, BelongToTheirMakerAndKeepOthersOut) {
  const std::string as_user = "setpriv --reuid 1234 --regid 1235 --clear-groups sh -c ";
  run("mkdir open closed; chmod 777 open; chmod 755 closed; echo a::1 >closed/obj; chmod 640 closed/obj");
  run(as_user + "'umask 027; echo a::1 >open/obj'");
  EXPECT_EQ(run("stat -c '%u %g %a' open/obj"), "1234 1235 640\n");
  for (const char* refused :
       {"cat closed/obj", "echo b::2 >closed/obj", "echo b::2 >closed/new", "rm -f closed/obj",
        "chmod 666 closed/obj", "echo b::2 >closed/.all", "mkdir closed/dir"}) {
    EXPECT_NE(shell(as_user + "'" + refused + "'").status, 0) << refused;
  }
  EXPECT_EQ(cat("closed/obj"), "@obj\na::1\n");
  run(as_user + "'cat closed/.all; echo c::3 >open/obj; echo d::4 >open/.all'");
  EXPECT_EQ(cat("open/obj"), "@obj\na::1\nc::3\n");
  EXPECT_EQ(run("stat -c '%u %g %a' open/.all"), "0 0 666\n");
  run("chown 7:8 open/obj; chmod 600 open/obj; touch -d @1000 open/obj");
  EXPECT_EQ(run("stat -c '%u %g %a %X %Y' open/obj"), "7 8 600 1000 1000\n");
  EXPECT_NE(shell(as_user + "'cat open/obj'").status, 0);
}

TEST_F(MountNames, LiveOnAsOpenObjectsAfterTheirRemoval) {
  run("echo a::1 >obj");
  const auto open_one = open_object(path("obj"), O_RDWR);
  run("rm obj");
  write_text(open_one, "b::2\n");
  EXPECT_EQ(read_text(open_one), "@obj\na::1\nb::2\n");
  struct stat record {};
  ASSERT_EQ(::fstat(open_one.get(), &record), 0);
  EXPECT_EQ(record.st_nlink, 0U);
  run("echo c::3 >obj");
  EXPECT_EQ(cat("obj"), "@obj\nc::3\n");
}

}  // namespace
}  // namespace harbix::test
